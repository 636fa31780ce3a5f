#include "host/files/sources.h"

#include <qv/io/scheduler.h>

#include "host/base/stopwatch.h"
#include "host/files/read_layers.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace host::files {
namespace {

// Layers of one file that are read together, as one job of the scheduler.
struct LayerJob {
  std::string path;
  std::vector<Source> sources;  // of this file
  std::vector<Layer> layers;    // one a source
  bool layered = false;         // read through the layer reader
  int64_t id = 0;
  int wanted = 0;  // sources under way that are parts of it

  // Filled by the job, looked at once that has been taken out of the scheduler.
  std::map<Source, Pixels> results;  // each is taken out once
  bool taken = false;
  std::string error;

  void read(int threads) {
    try {
      std::vector<Pixels> pixels = read_layers(path, layers, layered, threads);
      for (size_t i = 0; i < pixels.size(); ++i) results[sources[i]] = std::move(pixels[i]);
    } catch (const std::bad_alloc&) {
      throw std::runtime_error(path + ": out of memory");
    }
  }
};

// A source on its way: a plain file, a part of a layer job, or what is kept.
struct Entry {
  int distance = 0;
  uint64_t bytes = 0;
  int takes = 1;  // nodes of the nearest frame that want it
  int64_t plain_id = 0;
  std::shared_ptr<LayerJob> job;
  std::optional<Pixels> kept;  // taken once already

  // Of its job in the scheduler; 0 for none.
  int64_t id() const {
    return job ? job->id : plain_id;
  }
};

uint64_t bytes_of(const Layer& layer) {
  return uint64_t{16} * static_cast<uint64_t>(box_width(layer.extent.window)) *
         static_cast<uint64_t>(box_height(layer.extent.window));
}

}  // namespace

struct Decoder::State {
  State(Headers& file_headers, int thread_count, uint64_t ahead_bytes, Notices& told)
      : headers(file_headers),
        notices(told),
        threads(static_cast<size_t>(std::max(1, thread_count))),
        most_bytes(ahead_bytes),
        // One thread beyond the pool's serves the frame being rendered, so that it waits behind no
        // decode for a later one.
        scheduler(std::max(1, thread_count), 1, 1) {}

  Headers& headers;
  Notices& notices;
  size_t threads;
  uint64_t most_bytes;
  std::map<Source, Entry> under_way;
  struct Waiting {
    Source source;
    int distance = 0;
    int takes = 1;
  };
  std::vector<Waiting> waiting;           // wanted, not yet under way; nearest first
  std::map<std::string, int> sources_of;  // of those wanted, by path
  uint64_t bytes = 0;                     // of what is under way
  DecoderStats stats;
  qv::io::DecodeScheduler scheduler;

  bool room_for(uint64_t more) const {
    return under_way.size() < threads || bytes + more <= most_bytes;
  }

  void forget(std::map<Source, Entry>::iterator entry) {
    if (entry->second.job) --entry->second.job->wanted;
    bytes -= entry->second.bytes;
    under_way.erase(entry);
  }

  void drop(std::map<Source, Entry>::iterator entry) {
    const bool last = !entry->second.job || entry->second.job->wanted == 1;
    if (last) scheduler.cancel(entry->second.id());
    forget(entry);
  }

  void make_urgent(Entry& entry, int distance) {
    if (entry.distance == distance) return;
    entry.distance = distance;
    scheduler.reprioritize(entry.id(), distance);
  }

  // Starts waiting sources while there is room; layers of one file and frame start as one job.
  void pump() {
    size_t at = 0;
    std::map<std::pair<std::string, int>, std::shared_ptr<LayerJob>> jobs;
    for (; at < waiting.size(); ++at) {
      const Waiting& wanted = waiting[at];
      const auto layer = readable(wanted.source);
      if (!layer) continue;
      if (!room_for(bytes_of(*layer))) break;
      Entry entry;
      entry.distance = wanted.distance;
      entry.takes = wanted.takes;
      entry.bytes = bytes_of(*layer);
      if (is_plain(wanted.source, *layer) && sources_of[wanted.source.path] == 1) {
        entry.plain_id = scheduler.submit(wanted.source.path, wanted.distance);
      } else {
        auto& job = jobs[{wanted.source.path, wanted.distance}];
        if (!job) job = new_job(wanted.source.path);
        add(*job, wanted.source, *layer);
        ++job->wanted;
        entry.job = job;
      }
      bytes += entry.bytes;
      under_way.emplace(wanted.source, std::move(entry));
    }
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(at));
    for (const auto& [place, job] : jobs) submit(job, place.second);
  }

  std::optional<Layer> readable(const Source& source) {
    try {
      return headers.layer(source);
    } catch (const std::runtime_error&) {
      return std::nullopt;  // whoever takes it is told
    }
  }

  bool is_plain(const Source& source, const Layer& layer) {
    return headers.get(source.path).plain && layer.channels == std::array{0, 1, 2, 3};
  }

  static std::shared_ptr<LayerJob> new_job(const std::string& path) {
    auto job = std::make_shared<LayerJob>();
    job->path = path;
    return job;
  }

  void submit(const std::shared_ptr<LayerJob>& job, int distance) {
    const auto decode = [job, count = static_cast<int>(threads)](int, qv::io::DecodeResult& out) {
      const Stopwatch watch(out.read_ms);
      job->read(count);
      out.status = qv::io::decode_done;
    };
    job->id = scheduler.submit(decode, distance);
  }

  // Waits for a job as one that the frame being rendered needs.
  std::shared_ptr<qv::io::DecodeResult> finish(const std::string& path, int64_t id) {
    scheduler.reprioritize(id, 0);
    std::shared_ptr<qv::io::DecodeResult> result = scheduler.take(id, -1);
    if (!result) throw std::runtime_error(path + ": the decode was cancelled");
    stats.decode_ms += result->read_ms + result->convert_ms;
    return result;
  }

  void add(LayerJob& job, const Source& source, const Layer& layer) {
    job.layered =
        job.layered || headers.get(source.path).contents.layers.size() > 1 || !source.channels.empty();
    job.sources.push_back(source);
    job.layers.push_back(layer);
  }

  Pixels take_plain(const Source& source, const Layer& layer, int64_t id) {
    const std::shared_ptr<qv::io::DecodeResult> result = finish(source.path, id);
    if (result->status == qv::io::decode_failed) throw std::runtime_error(source.path + ": " + result->error);
    if (result->status == qv::io::decode_done) {
      if (result->width != box_width(layer.extent.window) ||
          result->height != box_height(layer.extent.window)) {
        throw std::runtime_error(source.path + ": the file changed while it was being read");
      }
      return {layer.extent, {result, result->pixels.get()}, {}};
    }
    return read_layers(source.path, {layer}, false, static_cast<int>(threads)).at(0);
  }

  Pixels decoded(const Source& source, const Layer& layer, const Entry& entry) {
    ++stats.files;
    Pixels pixels = entry.job ? take_layer(source, entry.job) : take_plain(source, layer, entry.plain_id);
    notices.add(pixels.notice);
    return pixels;
  }

  // For the other nodes of the frame that want it.
  void keep(const Source& source, const Entry& entry, const Pixels& pixels) {
    Entry kept;
    kept.distance = entry.distance;
    kept.bytes = entry.bytes;
    kept.takes = entry.takes - 1;
    kept.kept = pixels;
    bytes += kept.bytes;
    under_way.emplace(source, std::move(kept));
  }

  Pixels take_layer(const Source& source, const std::shared_ptr<LayerJob>& job) {
    if (!job->taken) job->error = finish(source.path, job->id)->error;
    job->taken = true;
    if (!job->error.empty()) throw std::runtime_error(job->error);
    return std::exchange(job->results[source], Pixels());
  }
};

Decoder::Decoder(Headers& headers, int threads, uint64_t ahead_bytes, Notices& notices)
    : state_(std::make_unique<State>(headers, threads, ahead_bytes, notices)) {}

Decoder::~Decoder() = default;

void Decoder::want(std::span<const Wanted> list) {
  std::map<Source, State::Waiting> nearest;
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
  state_->sources_of.clear();
  for (const auto& [source, wanted] : nearest) {
    ++state_->sources_of[source.path];
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

Pixels Decoder::take(const Source& source) {
  const Layer layer = state_->headers.layer(source);
  const auto place = state_->under_way.find(source);
  if (place != state_->under_way.end()) {
    const Entry entry = place->second;
    state_->forget(place);
    Pixels pixels = entry.kept ? *entry.kept : state_->decoded(source, layer, entry);
    if (entry.takes > 1) state_->keep(source, entry, pixels);
    state_->pump();
    return pixels;
  }
  Entry entry;
  if (state_->is_plain(source, layer)) {
    entry.plain_id = state_->scheduler.submit(source.path, 0);
  } else {
    entry.job = State::new_job(source.path);
    state_->add(*entry.job, source, layer);
    state_->submit(entry.job, 0);
  }
  return state_->decoded(source, layer, entry);
}

DecoderStats Decoder::stats() const {
  return state_->stats;
}

}  // namespace host::files
