#include "host/files/sources.h"

#include <qv/io/scheduler.h>

#include "host/files/layer_queue.h"
#include "host/files/read_layers.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace host::files {
namespace {

// A source on its way: a job of the decode scheduler, or a part of a layer job.
struct Entry {
  int distance = 0;
  uint64_t bytes = 0;
  int takes = 1;  // nodes of the nearest frame that want it
  int64_t plain_id = 0;
  std::shared_ptr<LayerJob> job;
  std::optional<Pixels> kept;  // taken once already
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
        plain(std::max(1, thread_count), 1, 1),
        layers(std::max(1, thread_count)) {}

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
  qv::io::DecodeScheduler plain;
  LayerQueue layers;

  bool room_for(uint64_t more) const {
    return under_way.size() < threads || bytes + more <= most_bytes;
  }

  void forget(std::map<Source, Entry>::iterator entry) {
    bytes -= entry->second.bytes;
    under_way.erase(entry);
  }

  void drop(std::map<Source, Entry>::iterator entry) {
    if (entry->second.plain_id) {
      plain.cancel(entry->second.plain_id);
    } else if (entry->second.job && entry->second.job.use_count() <= 2) {
      // Held by this entry and the queue alone: no other layer of the file is wanted.
      layers.drop(entry->second.job);
    }
    forget(entry);
  }

  void make_urgent(Entry& entry, int distance) {
    if (entry.distance == distance) return;
    entry.distance = distance;
    if (entry.plain_id) {
      plain.reprioritize(entry.plain_id, distance);
    } else if (entry.job) {
      layers.set_distance(*entry.job, distance);
    }
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
        entry.plain_id = plain.submit(wanted.source.path, wanted.distance);
      } else {
        auto& job = jobs[{wanted.source.path, wanted.distance}];
        if (!job) job = new_job(wanted.source.path, wanted.distance);
        add(*job, wanted.source, *layer);
        entry.job = job;
      }
      bytes += entry.bytes;
      under_way.emplace(wanted.source, std::move(entry));
    }
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(at));
    for (auto& [place, job] : jobs) layers.submit(std::move(job));
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

  static std::shared_ptr<LayerJob> new_job(const std::string& path, int distance) {
    auto job = std::make_shared<LayerJob>();
    job->path = path;
    job->layered = false;
    job->distance = distance;
    return job;
  }

  void add(LayerJob& job, const Source& source, const Layer& layer) {
    job.layered =
        job.layered || headers.get(source.path).contents.layers.size() > 1 || !source.channels.empty();
    job.sources.push_back(source);
    job.layers.push_back(layer);
  }

  Pixels take_plain(const Source& source, const Layer& layer, int64_t id) {
    const std::shared_ptr<qv::io::DecodeResult> result = plain.take(id, -1);
    if (!result) throw std::runtime_error(source.path + ": the decode was cancelled");
    stats.decode_ms += result->read_ms + result->convert_ms;
    if (result->status == 4) throw std::runtime_error(source.path + ": " + result->error);
    if (result->status == 2) {
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
    layers.finish(job);
    stats.decode_ms += std::exchange(job->decode_ms, 0.0);
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
    entry.plain_id = state_->plain.submit(source.path, 0);
  } else {
    entry.job = State::new_job(source.path, 0);
    state_->add(*entry.job, source, layer);
    state_->layers.submit(entry.job);
  }
  return state_->decoded(source, layer, entry);
}

DecoderStats Decoder::stats() const {
  return state_->stats;
}

}  // namespace host::files
