#include "host/decode/sources.h"

#include <qv/io/decode.h>
#include <qv/io/scheduler.h>

#include "host/base/stopwatch.h"
#include "host/decode/read_layers.h"
#include "host/files/whole.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace host::decode {
namespace {

// What is read of one file in one go, as one job of the scheduler.
struct FileJob {
  std::string path;
  std::vector<plates::Source> sources;  // of this file
  int64_t id = 0;
  int wanted = 0;  // sources under way that are parts of it

  // Filled by the job, looked at once that has been taken out of the scheduler.
  struct Part {
    Pixels pixels;  // taken out once
    std::string error;
  };
  std::map<plates::Source, Part> parts;
  bool taken = false;
  std::string error;

  // On a thread of the scheduler, which opens the file here for the first time, if nobody has before.
  void read(plates::Headers& headers, int threads) {
    std::shared_ptr<plates::OpenFile> file;
    const plates::HeaderPtr header = headers.read(path, &file);
    bool layered = header->contents.layers.size() > 1;
    std::vector<plates::Layer> layers;
    std::vector<Part*> readable;
    for (const plates::Source& source : sources) {
      Part& part = parts[source];
      try {
        plates::Layer layer = headers.layer(source, *header);
        if (!files::ends_whole(path, header->format, layer.subimage))
          throw std::runtime_error(path + ": " + files::cut_text);
        layers.push_back(std::move(layer));
        readable.push_back(&part);
        layered = layered || !source.channels.empty();
      } catch (const std::runtime_error& failure) {
        part.error = failure.what();
      }
    }
    const bool plain = header->plain && layers.size() == 1 && layers[0].channels == std::array{0, 1, 2, 3};
    if (layers.empty()) return;
    if (plain && layers[0].half && read_halves(file, layers[0], readable[0]->pixels)) return;
    if (plain && read_plain(file, layers[0], readable[0]->pixels)) return;
    std::vector<Pixels> pixels = read_layers(path, file, layers, layered && !plain, threads);
    for (size_t i = 0; i < pixels.size(); ++i) readable[i]->pixels = std::move(pixels[i]);
  }

  // False where floats are all that can be had.
  bool read_halves(std::shared_ptr<plates::OpenFile>& file, const plates::Layer& layer,
                   Pixels& pixels) const {
    if (!file) file = plates::open_file(path);
    if (!file->exr) return false;
    const qv::io::ExrPart& part = file->exr->parts()[0];
    const Box& window = layer.extent.window;
    if (part.width != box_width(window) || part.height != box_height(window)) return false;
    std::shared_ptr<const uint16_t[]> halves = file->exr->decode_halves(1);
    if (!halves) return false;
    pixels = {layer.extent, nullptr, {}, true, std::move(halves)};
    return true;
  }

  // False for a file that the general reader must read.
  bool read_plain(std::shared_ptr<plates::OpenFile>& file, const plates::Layer& layer, Pixels& pixels) const {
    if (!file) file = plates::open_file(path);
    qv::io::DecodeResult result;
    if (file->exr) file->exr->decode_plain(1, result);
    if (result.status != qv::io::decode_done) file->by_general().decode_plain(1, result);
    if (result.status == qv::io::decode_failed) throw std::runtime_error(path + ": " + result.error);
    if (result.status != qv::io::decode_done) return false;
    if (result.width != box_width(layer.extent.window) || result.height != box_height(layer.extent.window)) {
      throw std::runtime_error(path + ": the file changed while it was being read");
    }
    pixels = {layer.extent, std::move(result.pixels), {}};
    return true;
  }
};

// A source on its way: a part of a job, or what is kept.
struct Entry {
  int distance = 0;
  std::optional<uint64_t> bytes;  // unknown until the header has been read
  int takes = 1;                  // nodes of the nearest frame that want it
  std::shared_ptr<FileJob> job;
  std::optional<Pixels> kept;  // taken once already
};

}  // namespace

struct Decoder::State {
  State(plates::Headers& file_headers, int thread_count, uint64_t ahead_bytes, Notices& told, MemoryUse use,
        Spans* told_spans)
      : headers(file_headers),
        notices(told),
        threads(static_cast<size_t>(std::max(1, thread_count))),
        most_bytes(ahead_bytes),
        account(std::move(use), Owner::decoded),
        spans(told_spans),
        // One thread beyond the pool's serves the frame being rendered, so that it waits behind no
        // decode for a later one.
        scheduler(std::max(1, thread_count), 1, 1) {}

  plates::Headers& headers;
  Notices& notices;
  size_t threads;
  uint64_t most_bytes;
  std::map<plates::Source, Entry> under_way;
  struct Waiting {
    plates::Source source;
    int distance = 0;
    int takes = 1;
  };
  std::vector<Waiting> waiting;            // wanted, not yet under way; nearest first
  std::map<std::string, int64_t> opening;  // jobs for headers alone, by path
  Account account;                         // of what is under way, as far as it is known
  int unmeasured = 0;                      // of these the sources of unknown size
  DecoderStats stats;
  Spans* const spans;
  qv::io::DecodeScheduler scheduler;

  // What may be of any size starts only where there are fewer than threads.
  bool room_for(std::optional<uint64_t> more) const {
    return under_way.size() < threads || (unmeasured == 0 && more && account.bytes() + *more <= most_bytes);
  }

  // Another pass over a file costs more than the room for what this pass can bring along.
  bool fits_twice(std::optional<uint64_t> more) const {
    return more && account.bytes() + *more <= 2 * most_bytes;
  }

  void note_more(uint64_t more) {
    account.set(account.bytes() + more);
  }

  void add(const plates::Source& source, Entry entry) {
    if (entry.bytes) {
      note_more(*entry.bytes);
    } else {
      ++unmeasured;
    }
    if (entry.job) ++entry.job->wanted;
    under_way.emplace(source, std::move(entry));
  }

  void forget(std::map<plates::Source, Entry>::iterator entry) {
    if (entry->second.job) --entry->second.job->wanted;
    if (entry->second.bytes) {
      account.set(account.bytes() - *entry->second.bytes);
    } else {
      --unmeasured;
    }
    under_way.erase(entry);
  }

  // Counts the bytes of what was queued before its header was read.
  void measure() {
    for (auto& [source, entry] : under_way) {
      if (unmeasured == 0) return;
      if (entry.bytes) continue;
      const Size size = size_of(source);
      if (!size.known) continue;
      entry.bytes = size.bytes.value_or(0);
      note_more(*entry.bytes);
      --unmeasured;
    }
  }

  void drop(std::map<plates::Source, Entry>::iterator entry) {
    const auto& job = entry->second.job;
    if (job && job->wanted == 1) scheduler.cancel(job->id);
    forget(entry);
  }

  void make_urgent(Entry& entry, int distance) {
    if (entry.distance == distance) return;
    entry.distance = distance;
    if (entry.job) scheduler.reprioritize(entry.job->id, distance);
  }

  // Starts waiting sources while there is room; what is wanted of one file for one frame starts as one job.
  void pump() {
    measure();
    size_t at = 0;
    std::map<std::pair<std::string, int>, std::shared_ptr<FileJob>> jobs;
    for (; at < waiting.size(); ++at) {
      const Waiting& wanted = waiting[at];
      const Size size = size_of(wanted.source);
      if (size.known && !size.bytes) continue;  // whoever takes it is told
      const bool joins = jobs.count({wanted.source.path, wanted.distance}) > 0 && fits_twice(size.bytes);
      if (!joins && !room_for(size.bytes)) break;
      auto& job = jobs[{wanted.source.path, wanted.distance}];
      if (!job) job = new_job(wanted.source.path);
      job->sources.push_back(wanted.source);
      add(wanted.source, {wanted.distance, size.bytes, wanted.takes, job, {}});
    }
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(at));
    for (const auto& [place, job] : jobs) submit(job, place.second);
    open_waiting();
  }

  // Has the headers read of what must wait for room, so that nobody who asks for them opens a file.
  void open_waiting() {
    for (const Waiting& wanted : waiting) open(wanted.source.path, wanted.distance);
  }

  void open(const std::string& path, int distance) {
    if (headers.known(path) || opening.count(path) > 0) return;
    const auto read = [this, path, promise = headers.promise(path)](int, qv::io::DecodeResult&) {
      headers.read(path);
    };
    opening[path] = scheduler.submit(read, distance);
  }

  void stop_opening() {
    for (const auto& [path, id] : opening) scheduler.cancel(id);
    opening.clear();
  }

  // What a source needs when it is decoded; `known` without bytes where it cannot be read.
  struct Size {
    bool known = false;
    std::optional<uint64_t> bytes;
  };

  Size size_of(const plates::Source& source) const {
    const plates::HeaderPtr header = headers.known(source.path);
    if (!header) return {};
    try {
      const plates::Layer layer = headers.layer(source, *header);
      return {true, pixel_bytes(layer.extent.window, layer.half)};
    } catch (const std::runtime_error&) {
      return {true, std::nullopt};
    }
  }

  static std::shared_ptr<FileJob> new_job(const std::string& path) {
    auto job = std::make_shared<FileJob>();
    job->path = path;
    return job;
  }

  void submit(const std::shared_ptr<FileJob>& job, int distance) {
    // Ends with the decode, or with its place in the queue.
    std::shared_ptr<void> promise;
    if (!headers.known(job->path)) promise = headers.promise(job->path);
    const auto decode = [this, job, promise](int, qv::io::DecodeResult& out) {
      const Stopwatch watch(out.read_ms);
      const SpanOf span(spans, Work::decoding, job->path);
      try {
        job->read(headers, static_cast<int>(threads));
      } catch (const std::bad_alloc&) {
        throw std::runtime_error(job->path + ": out of memory");
      }
      out.status = qv::io::decode_done;
    };
    job->id = scheduler.submit(decode, distance);
  }

  // Waits for a job as one that the frame being rendered needs.
  void finish(FileJob& job) {
    if (std::exchange(job.taken, true)) return;
    scheduler.reprioritize(job.id, 0);
    const std::shared_ptr<qv::io::DecodeResult> result = scheduler.take(job.id, -1);
    if (!result) throw std::runtime_error(job.path + ": the decode was cancelled");
    stats.decode_ms += result->read_ms;
    job.error = result->error;
  }

  Pixels decoded(const plates::Source& source, FileJob& job) {
    finish(job);
    FileJob::Part& part = job.parts[source];
    for (const std::string& error : {job.error, part.error}) {
      if (!error.empty()) throw std::runtime_error(error);
    }
    ++stats.files;
    notices.add(part.pixels.notice);
    return std::exchange(part.pixels, Pixels());
  }

  // For the other nodes of the frame that want it.
  void keep(const plates::Source& source, const Entry& entry, const Pixels& pixels) {
    Entry kept;
    kept.distance = entry.distance;
    kept.bytes = pixels.bytes();
    kept.takes = entry.takes - 1;
    kept.kept = pixels;
    add(source, std::move(kept));
  }
};

Decoder::Decoder(plates::Headers& headers, int threads, uint64_t ahead_bytes, Notices& notices, MemoryUse use,
                 Spans* spans)
    : state_(std::make_unique<State>(headers, threads, ahead_bytes, notices, std::move(use), spans)) {}

Decoder::~Decoder() = default;

void Decoder::want(std::span<const Wanted> list) {
  std::map<plates::Source, State::Waiting> nearest;
  for (const Wanted& wanted : list) {
    const auto [place, added] =
        nearest.try_emplace(wanted.source, State::Waiting{wanted.source, wanted.distance, 1});
    if (added) continue;
    State::Waiting& known = place->second;
    if (wanted.distance == known.distance) ++known.takes;
    if (wanted.distance < known.distance) known = {wanted.source, wanted.distance, 1};
  }
  for (auto entry = state_->under_way.begin(); entry != state_->under_way.end();) {
    const auto here = entry++;
    if (!nearest.count(here->first)) state_->drop(here);
  }
  state_->waiting.clear();
  state_->stop_opening();
  for (const auto& [source, wanted] : nearest) {
    if (!source.pixels) {
      state_->open(source.path, wanted.distance);
      continue;
    }
    const auto entry = state_->under_way.find(source);
    if (entry != state_->under_way.end()) {
      state_->make_urgent(entry->second, wanted.distance);
      entry->second.takes = wanted.takes;
    } else {
      state_->waiting.push_back(wanted);
    }
  }
  std::stable_sort(state_->waiting.begin(), state_->waiting.end(),
                   [](const auto& a, const auto& b) { return a.distance < b.distance; });
  state_->pump();
}

Pixels Decoder::take(const plates::Source& source) {
  const auto place = state_->under_way.find(source);
  if (place != state_->under_way.end()) {
    const Entry entry = place->second;
    state_->forget(place);
    Pixels pixels = entry.kept ? *entry.kept : state_->decoded(source, *entry.job);
    if (entry.takes > 1) state_->keep(source, entry, pixels);
    state_->pump();
    return pixels;
  }
  const auto job = State::new_job(source.path);
  job->sources.push_back(source);
  state_->submit(job, 0);
  return state_->decoded(source, *job);
}

DecoderStats Decoder::stats() const {
  return state_->stats;
}

}  // namespace host::decode
