#include "host/files/sources.h"

#include <qv/io/scheduler.h>

#include "host/files/layer_queue.h"
#include "host/files/read_layers.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <stdexcept>
#include <utility>
#include <vector>

namespace host::files {
namespace {

// A source on its way: a job of the decode scheduler, or a part of a layer job.
struct Entry {
  int distance = 0;
  uint64_t bytes = 0;
  int64_t plain_id = 0;
  std::shared_ptr<LayerJob> job;
};

uint64_t bytes_of(const Layer& layer) {
  return uint64_t{16} * static_cast<uint64_t>(box_width(layer.extent.window)) *
         static_cast<uint64_t>(box_height(layer.extent.window));
}

}  // namespace

struct Decoder::State {
  State(Headers& file_headers, int thread_count, uint64_t ahead_bytes)
      : headers(file_headers),
        threads(static_cast<size_t>(std::max(1, thread_count))),
        most_bytes(ahead_bytes),
        // One thread beyond the pool's serves the frame being rendered, so that it waits behind no
        // decode for a later one.
        plain(std::max(1, thread_count), 1, 1),
        layers(std::max(1, thread_count)) {}

  Headers& headers;
  size_t threads;
  uint64_t most_bytes;
  std::map<Source, Entry> under_way;
  std::vector<Wanted> waiting;  // wanted, not yet under way; nearest first
  uint64_t bytes = 0;           // of what is under way
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
    } else if (entry->second.job.use_count() <= 2) {
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
    } else {
      layers.set_distance(*entry.job, distance);
    }
  }

  // Starts waiting sources while there is room; layers of one file and frame start as one job.
  void pump() {
    size_t at = 0;
    std::map<std::pair<std::string, int>, std::shared_ptr<LayerJob>> jobs;
    for (; at < waiting.size(); ++at) {
      const Wanted& wanted = waiting[at];
      const Header& header = headers.get(wanted.source.path);
      const Layer* layer = header.find(wanted.source.layer);
      if (!layer) continue;
      if (!room_for(bytes_of(*layer))) break;
      Entry entry;
      entry.distance = wanted.distance;
      entry.bytes = bytes_of(*layer);
      if (header.plain) {
        entry.plain_id = plain.submit(wanted.source.path, wanted.distance);
      } else {
        auto& job = jobs[{wanted.source.path, wanted.distance}];
        if (!job) job = new_job(wanted.source.path, header, wanted.distance);
        job->layers.push_back(*layer);
        entry.job = job;
      }
      bytes += entry.bytes;
      under_way.emplace(wanted.source, std::move(entry));
    }
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(at));
    for (auto& [place, job] : jobs) layers.submit(std::move(job));
  }

  static std::shared_ptr<LayerJob> new_job(const std::string& path, const Header& header, int distance) {
    auto job = std::make_shared<LayerJob>();
    job->path = path;
    job->layered = header.layers.size() > 1;
    job->distance = distance;
    return job;
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
      return {layer.extent, {result, result->pixels.get()}};
    }
    return read_layers(source.path, {layer}, false, static_cast<int>(threads)).at(0);
  }

  Pixels take_layer(const Source& source, const std::shared_ptr<LayerJob>& job) {
    layers.finish(job);
    stats.decode_ms += std::exchange(job->decode_ms, 0.0);
    if (!job->error.empty()) throw std::runtime_error(job->error);
    return std::exchange(job->results[source.layer], Pixels());
  }
};

Decoder::Decoder(Headers& headers, int threads, uint64_t ahead_bytes)
    : state_(std::make_unique<State>(headers, threads, ahead_bytes)) {}

Decoder::~Decoder() = default;

void Decoder::want(std::span<const Wanted> list) {
  std::map<Source, int> nearest;
  for (const Wanted& wanted : list) {
    const auto [place, added] = nearest.try_emplace(wanted.source, wanted.distance);
    if (!added) place->second = std::min(place->second, wanted.distance);
  }
  for (auto entry = state_->under_way.begin(); entry != state_->under_way.end();) {
    const auto here = entry++;
    if (!nearest.count(here->first)) state_->drop(here);
  }
  state_->waiting.clear();
  for (const auto& [source, distance] : nearest) {
    const auto entry = state_->under_way.find(source);
    if (entry != state_->under_way.end()) {
      state_->make_urgent(entry->second, distance);
    } else {
      state_->waiting.push_back({source, distance});
    }
  }
  std::stable_sort(state_->waiting.begin(), state_->waiting.end(),
                   [](const Wanted& a, const Wanted& b) { return a.distance < b.distance; });
  state_->pump();
}

Pixels Decoder::take(const Source& source) {
  const Header& header = state_->headers.get(source.path);
  if (!header.error.empty()) throw std::runtime_error(header.error);
  const Layer* found = header.find(source.layer);
  if (!found) throw std::runtime_error(source.path + ": has no layer \"" + source.layer + "\"");
  const Layer layer = *found;
  ++state_->stats.files;
  const auto place = state_->under_way.find(source);
  if (place != state_->under_way.end()) {
    const Entry entry = place->second;
    state_->forget(place);
    Pixels pixels =
        entry.job ? state_->take_layer(source, entry.job) : state_->take_plain(source, layer, entry.plain_id);
    state_->pump();
    return pixels;
  }
  if (header.plain) return state_->take_plain(source, layer, state_->plain.submit(source.path, 0));
  const auto job = State::new_job(source.path, header, 0);
  job->layers.push_back(layer);
  state_->layers.submit(job);
  return state_->take_layer(source, job);
}

DecoderStats Decoder::stats() const {
  return state_->stats;
}

}  // namespace host::files
