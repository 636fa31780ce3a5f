#include <qv/io/claim.h>
#include <qv/io/exr/codec.h>
#include <qv/io/exr/pixels.h>
#include <qv/io/exr/read.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace qv::io::exr {

namespace {

// Less than this, unpacked, is not worth a thread of its own.
constexpr int64_t bytes_a_thread = int64_t{1} << 18;

// Results from this size on are written past the caches.
constexpr double streamed_bytes = 32 << 20;

struct Range {
  int64_t begin = 0, end = 0;

  bool empty() const {
    return begin >= end;
  }
};

// The columns or rows of a part, from its first, that an image of `size` shows when it lies at `at`.
Range shown(int64_t at, int64_t size, int64_t part_size) {
  return {std::max<int64_t>(0, -at), std::min(part_size, size - at)};
}

Range within(const Range& range, int64_t begin, int64_t size) {
  return {std::max(range.begin, begin), std::min(range.end, begin + size)};
}

bool has_channel(const Layer& layer) {
  return std::any_of(layer.sources.begin(), layer.sources.end(),
                     [](const Source& source) { return source.kind == Source::Kind::channel; });
}

// What the largest chunk of a part has unpacked.
double bytes_of_chunk(const Part& part) {
  return static_cast<double>(std::min(part.chunk_width, part.width)) *
         static_cast<double>(std::min(part.chunk_height, part.height)) *
         static_cast<double>(part.pixel_bytes);
}

// A range of chunks that takes in all that the layers show.
struct Reach {
  Range across, down;
  int64_t chunks() const {
    return across.empty() || down.empty() ? 0 : (across.end - across.begin) * (down.end - down.begin);
  }
};

void widen_to(Range& reach, const Range& shown_range, int64_t chunk_size) {
  const Range chunks = {shown_range.begin / chunk_size, (shown_range.end - 1) / chunk_size + 1};
  reach =
      reach.empty() ? chunks : Range{std::min(reach.begin, chunks.begin), std::max(reach.end, chunks.end)};
}

Reach reach_of(const Part& part, std::span<const Layer> layers) {
  Reach reach;
  for (const Layer& layer : layers) {
    const Range x = shown(layer.x, layer.width, part.width), y = shown(layer.y, layer.height, part.height);
    if (x.empty() || y.empty() || !has_channel(layer)) continue;
    widen_to(reach.across, x, part.chunk_width);
    widen_to(reach.down, y, part.chunk_height);
  }
  return reach;
}

// The channels that any layer shows, as booleans.
std::vector<bool> wanted_channels(const Part& part, std::span<const Layer> layers) {
  std::vector<bool> wanted(part.channels.size());
  for (const Layer& layer : layers)
    for (const Source& source : layer.sources)
      if (source.kind == Source::Kind::channel) wanted[static_cast<size_t>(source.channel)] = true;
  return wanted;
}

// What all threads share of a call.
struct Work {
  const File& file;
  const Part& part;
  std::span<const Layer> layers;
  std::vector<bool> channels;
  Reach reach;
  bool past_caches = false;
  std::atomic<int64_t> next = 0;
  std::atomic<bool> good = true;
  std::atomic<int64_t> converting_ns = 0;
};

// One thread's part in it.
class Worker {
 public:
  explicit Worker(Work& work) : work_(work) {}

  void run() {
    const int64_t chunks = work_.reach.chunks();
    while (work_.good) {
      const int64_t index = work_.next++;
      if (index >= chunks) break;
      const int64_t across = work_.reach.across.end - work_.reach.across.begin;
      const Chunk chunk = chunk_at(work_.part, work_.reach.across.begin + index % across,
                                   work_.reach.down.begin + index / across);
      if (!decode(chunk)) work_.good = false;
    }
    finish_writing();
  }

 private:
  bool decode(const Chunk& chunk) {
    const std::optional<Range> rows = shown_rows(chunk);
    if (!rows) return true;
    const std::span<const uint8_t> packed = work_.file.read(work_.part, chunk, packed_);
    if (packed.empty()) return false;
    const auto width = static_cast<size_t>(chunk.width);
    const Wanted wanted = {width * static_cast<size_t>(work_.part.pixel_bytes),
                           static_cast<size_t>(rows->begin - chunk.y),
                           static_cast<size_t>(rows->end - chunk.y), stretches(width)};
    const size_t size = wanted.row_bytes * static_cast<size_t>(chunk.height);
    const Planes planes = unpacker_.unpack(work_.part.codec, packed, size, wanted);
    if (!planes.low) return false;
    const auto start = std::chrono::steady_clock::now();
    for (const Layer& layer : work_.layers) place(layer, chunk, planes);
    const auto end = std::chrono::steady_clock::now();
    work_.converting_ns += std::chrono::duration_cast<std::chrono::nanoseconds>(end - start).count();
    return true;
  }

  // The rows of a chunk that any layer shows, in the part; nothing when no layer shows any of it.
  std::optional<Range> shown_rows(const Chunk& chunk) const {
    Range rows;
    for (const Layer& layer : work_.layers) {
      const auto [x, y] = shown_of(layer, chunk);
      if (x.empty() || y.empty() || !has_channel(layer)) continue;
      rows = rows.empty() ? y : Range{std::min(rows.begin, y.begin), std::max(rows.end, y.end)};
    }
    return rows.empty() ? std::nullopt : std::optional(rows);
  }

  std::pair<Range, Range> shown_of(const Layer& layer, const Chunk& chunk) const {
    return {within(shown(layer.x, layer.width, work_.part.width), chunk.x, chunk.width),
            within(shown(layer.y, layer.height, work_.part.height), chunk.y, chunk.height)};
  }

  // The bytes of a row of `width` pixels that the wanted channels take.
  std::span<const Stretch> stretches(size_t width) {
    if (width == width_) return stretches_;
    width_ = width;
    stretches_.clear();
    for (size_t c = 0; c < work_.channels.size(); ++c) {
      if (!work_.channels[c]) continue;
      const Channel& channel = work_.part.channels[c];
      const size_t begin = static_cast<size_t>(channel.before) * width;
      const size_t end = begin + static_cast<size_t>(channel.bytes) * width;
      if (!stretches_.empty() && stretches_.back().end == begin) {
        stretches_.back().end = end;
      } else {
        stretches_.push_back({begin, end});
      }
    }
    return stretches_;
  }

  void place(const Layer& layer, const Chunk& chunk, const Planes& planes) const {
    const auto [x, y] = shown_of(layer, chunk);
    if (x.empty() || !has_channel(layer)) return;
    for (int64_t row = y.begin; row < y.end; ++row) {
      const int64_t to = ((layer.y + row) * layer.width + layer.x + x.begin) * 4;
      place_row(layer, chunk, planes, row - chunk.y, {x.begin - chunk.x, x.end - chunk.x}, to);
    }
  }

  // To the value of the layer's image that is number `at`.
  void place_row(const Layer& layer, const Chunk& chunk, const Planes& planes, int64_t row,
                 const Range& columns, int64_t at) const {
    std::array<Run, 4> runs;
    std::array<Component, 4> components;
    const auto n = static_cast<size_t>(columns.end - columns.begin);
    bool whole = true;
    for (size_t c = 0; c < 4; ++c) {
      const Source& source = layer.sources[c];
      if (source.kind == Source::Kind::untouched) whole = false;
      components[c].value = source.value;
      if (source.kind != Source::Kind::channel) continue;
      const Channel& channel = work_.part.channels[static_cast<size_t>(source.channel)];
      const int64_t begin = (row * work_.part.pixel_bytes + channel.before) * chunk.width;
      runs[c] = {planes, static_cast<size_t>(begin + columns.begin * channel.bytes), channel.type};
      components[c].run = &runs[c];
    }
    if (layer.halves) {
      write_halves(runs, n, layer.halves + at);
      return;
    }
    float* const to = layer.pixels + at;
    if (whole) {
      write_pixels(components, n, to, work_.past_caches);
      return;
    }
    for (size_t c = 0; c < 4; ++c) {
      if (components[c].run) write_component(runs[c], n, to + c, 4);
      if (layer.sources[c].kind != Source::Kind::value) continue;
      for (size_t i = 0; i < n; ++i) to[4 * i + c] = layer.sources[c].value;
    }
  }

  Work& work_;
  Unpacker unpacker_;
  Bytes packed_;
  size_t width_ = 0;
  std::vector<Stretch> stretches_;
};

void work_on(Work& work) {
  try {
    Worker(work).run();
  } catch (const std::exception&) {
    work.good = false;
  }
}

// The calling thread and `others`; where the system refuses one, those that there are.
void work_together(Work& work, int64_t others) {
  std::vector<std::thread> threads;
  try {
    threads.reserve(static_cast<size_t>(others));
    for (int64_t i = 0; i < others; ++i) threads.emplace_back([&work] { work_on(work); });
  } catch (const std::exception&) {
  }
  work_on(work);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

bool decode_layers(const File& file, const Part& part, std::span<const Layer> layers, int threads,
                   double& converting_ms) {
  const Reach reach = reach_of(part, layers);
  const int64_t chunks = reach.chunks();
  if (chunks == 0) return true;
  double result_bytes = 0;
  for (const Layer& layer : layers)
    result_bytes += static_cast<double>(layer.width) * static_cast<double>(layer.height) * 16;
  const double chunk_bytes = bytes_of_chunk(part);
  const auto useful = static_cast<int64_t>(
      std::min(1e9, static_cast<double>(chunks) * chunk_bytes / static_cast<double>(bytes_a_thread)));
  const int64_t used = std::clamp<int64_t>(std::min(useful, chunks), 1, std::max(1, threads));
  // Packed and unpacked.
  const double buffers = 2 * chunk_bytes * static_cast<double>(used);
  if (buffers > 1e15 || !fits_memory(static_cast<uint64_t>(buffers))) return false;
  Work work{file, part, layers, wanted_channels(part, layers), reach, result_bytes >= streamed_bytes};
  work_together(work, used - 1);
  converting_ms += static_cast<double>(work.converting_ns) * 1e-6 / static_cast<double>(used);
  return work.good;
}

}  // namespace qv::io::exr
