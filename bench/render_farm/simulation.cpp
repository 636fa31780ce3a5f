// A show of 100,000 frames on 2,000 nodes that fail, as a run of events without waiting: what chunks cost
// beside the ideal, how often they are put back, and what it takes to read the journal of it all. usage:
// bench_farm [FOLDER]    writes FOLDER/farm.svg and a journal beside it, prints a table

#include "host/render_farm/job.h"
#include "host/render_farm/journal.h"
#include "host/render_farm/status.h"
#include "host/shot/composition.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numeric>
#include <queue>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
namespace render_farm = host::render_farm;

constexpr int nodes = 2000;
constexpr int64_t frames = 100000;
constexpr double hour = 3600;
// Seconds: from the queue to a process that renders; what a process computes once; a lost node's return, and
// a lost node's being noticed.
constexpr double start = 8, once = 12, repair = 1800, notice = 300;
// One of these a so many hours of a node.
constexpr double node_fails = 400, task_fails = 100, disk_fails = 60;
constexpr double disk_hangs = 120;

struct Show {
  std::vector<double> seconds;  // of each frame
  double ideal = 0;             // hours, without any overhead

  explicit Show(unsigned seed) : seconds(static_cast<size_t>(frames)) {
    std::mt19937 random(seed);
    std::lognormal_distribution<double> time(std::log(25.0), 0.6);
    for (double& each : seconds) each = time(random);
    ideal = std::accumulate(seconds.begin(), seconds.end(), 0.0) / nodes / hour;
  }
};

struct Result {
  int64_t chunks = 0, restarts = 0, lines = 0;
  double hours = 0, busy = 0;  // until the last frame; of all nodes, as a share of the ideal
};

// A chunk with what is left of it.
struct Task {
  size_t chunk = 0, next = 0;
};

Result simulate(const Show& show, const std::vector<render_farm::Chunk>& chunks, unsigned seed,
                const std::function<void(int64_t frame, size_t chunk, double seconds)>& done) {
  std::mt19937_64 random(seed);
  const auto after = [&random](double rate) {
    return std::exponential_distribution<double>(1 / (rate * hour))(random);
  };
  Result result;
  result.chunks = static_cast<int64_t>(chunks.size());
  std::deque<Task> waiting;
  for (size_t i = 0; i < chunks.size(); ++i) waiting.push_back({i, 0});
  using Event = std::pair<double, int>;  // a node that is free
  std::priority_queue<Event, std::vector<Event>, std::greater<>> free;
  std::vector<std::pair<double, Task>> returning;  // chunks on their way back to the queue
  for (int node = 0; node < nodes; ++node) free.emplace(0, node);
  const auto later = [](const auto& a, const auto& b) { return a.first > b.first; };
  while (!waiting.empty() || !returning.empty()) {
    auto [now, node] = free.top();
    free.pop();
    while (!returning.empty() && returning.front().first <= now) {
      std::pop_heap(returning.begin(), returning.end(), later);
      waiting.push_back(returning.back().second);
      returning.pop_back();
    }
    if (waiting.empty()) {
      if (!returning.empty()) free.emplace(returning.front().first, node);
      continue;
    }
    Task task = waiting.front();
    waiting.pop_front();
    const double begun = now, node_end = now + after(node_fails), task_end = now + after(task_fails);
    double disk = now + after(disk_fails);
    const double end = std::min(node_end, task_end);
    now += start + once;
    const render_farm::Chunk& chunk = chunks[task.chunk];
    for (; task.next < chunk.size(); ++task.next) {
      double seconds = show.seconds[static_cast<size_t>(chunk[task.next])];
      if (now + seconds > disk) {
        seconds += disk_hangs;
        disk = now + seconds + after(disk_fails);
      }
      if (now + seconds > end) break;
      now += seconds;
      ++result.lines;
      if (done) done(chunk[task.next], task.chunk, seconds);
    }
    const bool whole = task.next == chunk.size();
    const bool lost = !whole && node_end <= task_end;
    if (!whole) {
      now = end;
      ++result.restarts;
      returning.emplace_back(now + (lost ? notice : 0), task);
      std::push_heap(returning.begin(), returning.end(), later);
    }
    result.busy += now - begun;
    result.hours = std::max(result.hours, now / hour);
    free.emplace(now + (lost ? repair : 0), node);
  }
  result.busy /= show.ideal * nodes * hour;
  return result;
}

using Point = std::pair<double, double>;

std::string curve(const std::vector<Point>& points, const char* color) {
  std::string path;
  for (const auto& [x, y] : points) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f,%.1f ", 60 + std::log10(x) / 3 * 500, 280 - (y - 1) / 2 * 240);
    path += text;
  }
  return "<polyline points='" + path + "' fill='none' stroke='" + color + "' stroke-width='2'/>\n";
}

void write_picture(const fs::path& file, const std::vector<Point>& hours, const std::vector<Point>& busy) {
  std::ofstream svg(file);
  svg << "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 620 330' font-family='sans-serif' "
         "font-size='13'>\n"
         "<rect width='620' height='330' fill='white'/>\n";
  for (int i = 0; i <= 4; ++i) {
    const int y = 280 - i * 60;
    svg << "<line x1='60' x2='560' y1='" << y << "' y2='" << y << "' stroke='#ddd'/><text x='52' y='" << y + 4
        << "' text-anchor='end'>" << 1 + 0.5 * i << "</text>\n";
  }
  int decade = 1;
  for (int i = 0; i <= 3; ++i, decade *= 10)
    svg << "<text x='" << 60 + i * 500 / 3 << "' y='300' text-anchor='middle'>" << decade << "</text>\n";
  svg << "<text x='310' y='322' text-anchor='middle'>frames a chunk</text>\n"
      << curve(hours, "#c33") << curve(busy, "#36c")
      << "<text x='70' y='25' fill='#c33'>time to the last frame, ideal = 1</text>\n"
         "<text x='330' y='25' fill='#36c'>machine time, ideal = 1</text>\n</svg>\n";
}

double seconds_of(const std::function<void()>& work) {
  const auto begun = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

// A million lines, as ten shows leave them, and what it takes to tell how the last stands.
void measure_status(const Show& show, const fs::path& folder) {
  const host::shot::Composition composition = host::shot::parse_composition(
      R"({"format": {"width": 32, "height": 18}, "frames": "0-99999", "nodes": [{"name": "c", "type": "constant"},
          {"name": "out", "type": "write", "inputs": "c", "knobs": {"file": "out/f.#####.exr"}}]})",
      folder / "shot.json");
  render_farm::Job job;
  job.folder = folder / "shot";
  job.array_id = std::string("9");  // gcc 12 takes the other way for an overlap
  job.frames = composition.frames;
  job.chunks = render_farm::chunks_of(job.frames, 100, 1000);
  fs::remove(render_farm::journal_of(job));
  std::ofstream journal(render_farm::journal_of(job));
  int64_t lines = 0;
  for (int round = 0; round < 10; ++round) {
    simulate(show, job.chunks, static_cast<unsigned>(round),
             [&](int64_t frame, size_t chunk, double seconds) {
               journal << R"({"frame":)" << frame << R"(,"outcome":"done","host":"node0123.farm","task":")"
                       << round << '_' << chunk
                       << R"(.0","start":"2026-01-31T12:34:56.789Z","end":"2026-01-31T12:35:21.012Z","ms":)"
                       << seconds * 1000 << R"(,"bytes":33187334,"digest":"d1a2b3c4d5e6f708"})" << '\n';
               ++lines;
             });
  }
  journal.close();
  render_farm::Status status;
  const double took = seconds_of([&] { status = render_farm::status_of(composition, job, nullptr); });
  const double read = seconds_of(
      [&] { render_farm::read_journal(render_farm::journal_of(job), [](const render_farm::Entry&) {}); });
  std::printf("status of %lld frames from a journal of %lld lines: %.2f s, %.2f s of them reading it\n",
              static_cast<long long>(status.frames), static_cast<long long>(lines), took, read);
}

}  // namespace

int main(int argc, char** argv) {
  const fs::path folder = argc > 1 ? argv[1] : ".";
  const Show show(7);
  std::vector<int64_t> all(static_cast<size_t>(frames));
  std::iota(all.begin(), all.end(), 0);
  const int64_t automatic = render_farm::automatic_chunk({(once + 25) * 1000, 25000}, frames, nodes);
  std::printf("%lld frames on %d nodes; ideal: %.2f h\n%8s %8s %10s %10s %10s\n",
              static_cast<long long>(frames), nodes, show.ideal, "chunk", "chunks", "hours", "machine",
              "put back");
  std::vector<Point> hours, busy;
  for (const int64_t size : {int64_t{1}, int64_t{2}, int64_t{5}, int64_t{10}, automatic, int64_t{50},
                             int64_t{100}, int64_t{200}, int64_t{500}}) {
    const Result result = simulate(show, render_farm::chunks_of(all, size, frames), 1, {});
    std::printf("%8lld %8lld %10.2f %9.2fx %10lld%s\n", static_cast<long long>(size),
                static_cast<long long>(result.chunks), result.hours, result.busy,
                static_cast<long long>(result.restarts), size == automatic ? "  auto" : "");
    hours.emplace_back(size, result.hours / show.ideal);
    busy.emplace_back(size, result.busy);
  }
  write_picture(folder / "farm.svg", hours, busy);
  measure_status(show, folder);
  return 0;
}
