// The render side of `quorvel live` on the software driver: what a moved knob costs, how soon something newer
// takes the place of what is drawn, and whether hours leave anything behind.

#include "bench/live/page.h"
#include "bench/report.h"
#include "host/frame/keyed_frame.h"
#include "host/frame/project.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

namespace {

using bench::Better;
using bench_live::chain;
using bench_live::Page;
using bench_live::parsed;
using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.at(values.size() / 2);
}

// A row that is measured against what it is to be, or better.
void wanted(bench::Report& report, const std::string& name, const std::string& unit, double ours,
            double most) {
  report.row(name, unit, Better::less, ours, {{"wanted", most}}, 1);
}

void knob_at_the_bottom(bench::Report& report) {
  Page page;
  page.edit(parsed(chain(100, 2)));
  page.wait(page.wish(1));
  const auto before = page.session().stats();
  constexpr int edits = 20;
  for (int i = 1; i <= edits; ++i) {
    page.edit(parsed(chain(100, 2 + 0.1 * i)));
    page.wait(page.wish(1));
  }
  const auto after = page.session().stats();
  const auto each = [](int64_t from, int64_t to) { return static_cast<double>(to - from) / edits; };
  wanted(report, "last knob of 100 nodes: nodes visited", "nodes/edit", each(before.visited, after.visited),
         1);
  wanted(report, "last knob of 100 nodes: draws", "draws/edit", each(before.draws, after.draws), 1);
}

void edit_to_pixels(bench::Report& report) {
  Page page;
  page.edit(parsed(chain(10, 1, 960, 540, true)));
  page.wait(page.wish(1));
  std::vector<double> whole;
  std::vector<double> own;
  for (int i = 1; i <= 15; ++i) {
    const std::string text = chain(10, 1 + 0.1 * i, 960, 540, true);
    const auto begin = Clock::now();
    page.edit(parsed(text));
    const host::live::session::Drawn drawn = page.wait(page.wish(1));
    whole.push_back(ms_since(begin));
    own.push_back(drawn.uses.back().ms);
  }
  const double draw = median(own);
  wanted(report, "edit to pixels, last node of ten at 960x540", "ms", median(whole), 1.5 * draw + 40);
  report.note("  wanted: 1.5 x that node's own draw (" + std::to_string(draw) + " ms) + 40 ms");
}

// What is still drawn of an image once something newer is wished, and how long that one takes to come.
void cancel(bench::Report& report) {
  Page page;
  const auto slow = [](int i) { return parsed(chain(60, 1 + 0.01 * i, 960, 540, true)); };
  page.edit(slow(0));
  std::vector<double> going_on;
  std::vector<double> waits;
  for (int i = 1; i <= 10; ++i) {
    const std::string old_frame = " " + std::to_string(i * 10);
    const auto drawn_since = [&](Clock::time_point time) {
      const auto spans = page.session().spans().since(time);
      return std::count_if(spans.begin(), spans.end(), [&old_frame](const auto& span) {
        return span.work == host::Work::drawing && span.name.ends_with(old_frame);
      });
    };
    page.edit(slow(i));
    const auto begin = Clock::now();
    page.wish(i * 10);
    while (drawn_since(begin) == 0) std::this_thread::yield();
    page.edit(parsed(chain(2, 1 + 0.1 * i)));
    const auto id = page.wish(1);
    const auto edited = Clock::now();
    page.wait(id);
    waits.push_back(ms_since(edited));
    going_on.push_back(static_cast<double>(drawn_since(edited)));
  }
  wanted(report, "cancel: draws of the old image that end after the edit", "draws",
         *std::max_element(going_on.begin(), going_on.end()), 1);
  report.row("cancel: until a small newer image is there", "ms", Better::less, median(waits));
}

void scrub(bench::Report& report) {
  Page page;
  page.edit(parsed(chain(10, 1, 960, 540, true)));
  page.wait(page.wish(1, 0.5));
  // The hand moves sixty times a second, to another frame each time.
  const size_t before = page.images();
  const auto begin = Clock::now();
  const double seconds = report.quick() ? 1 : 4;
  uint64_t last = 0;
  for (int64_t frame = 2; ms_since(begin) < seconds * 1000; frame += 1) {
    last = page.wish(frame, 0.5);
    std::this_thread::sleep_until(begin + std::chrono::milliseconds(frame * 1000 / 60));
  }
  const double rate = static_cast<double>(page.images() - before) / seconds;
  page.wait(last);
  report.row("scrub over frames that are not cached, 480x270", "frames/s", Better::more, rate,
             {{"wanted", 5}}, 1);
}

void parse_and_plan(bench::Report& report) {
  const std::string text = chain(300, 1);
  const std::string edited = chain(300, 2);
  host::plates::Headers headers;
  const auto timed = bench::time_in_turn(
      report.quick() ? 5 : 30, {[&] { bench::keep(parsed(text)); },
                                [&] {
                                  const auto shot = parsed(edited);
                                  const auto project = host::frame::make_project(*shot, 1, headers, false);
                                  host::frame::FrameKeys keys(*shot, project);
                                  bench::keep(keys.frame(shot->outputs, 1));
                                }});
  report.row("parse and check 300 nodes", "ms", Better::less, timed[0].median * 1e3);
  wanted(report, "parse, check and plan 300 nodes", "ms", timed[1].median * 1e3, 5);
}

void steady(bench::Report& report) {
  const int edits = report.quick() ? 40 : 500;
  const auto [early, late] = bench_live::work_long(edits, 4 * edits);
  const std::string name = std::to_string(edits) + " edits, " + std::to_string(4 * edits) + " frames: ";
  const auto flat = [&](const char* what, const char* unit, double from, double to, double limit) {
    report.row(name + what, unit, Better::less, to, {{"a quarter through", from}}, limit);
  };
  const auto count = [](int64_t number) { return static_cast<double>(number); };
  // What the allocator keeps comes and goes by a few images.
  flat("memory", "MiB", early.megabytes, late.megabytes, 0.9);
  flat("images in textures and buffers", "MiB", early.images, late.images, 0.9);
  flat("threads", "threads", count(early.threads), count(late.threads), 1);
  flat("handles", "handles", count(early.handles), count(late.handles), 1);
}

}  // namespace

int main(int argc, char** argv) {
  bench::Report report("live", argc, argv);
  const std::pair<const char*, void (*)(bench::Report&)> groups[] = {
      {"knob", knob_at_the_bottom}, {"edit", edit_to_pixels}, {"cancel", cancel}, {"scrub", scrub},
      {"plan", parse_and_plan},     {"steady", steady}};
  for (const auto& [name, measure] : groups) {
    if (report.wants(name)) measure(report);
  }
  return report.finish();
}
