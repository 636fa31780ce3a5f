#include <qv/io/general/scatter.h>
#include <qv/io/half.h>

#include <algorithm>

#include <OpenImageIO/parallel.h>

namespace qv::io::general {

namespace {

constexpr int64_t least_parallel_pixels = 65536;
constexpr int64_t rows_a_chunk = 8;

void fill(float* row, int64_t begin, int64_t end, float value) {
  for (int64_t x = begin; x < end; ++x) row[4 * x] = value;
}

// Every `channels`th value into every fourth, through a block for half_to_float.
void copy(const uint16_t* from, int64_t channels, int64_t count, float* to) {
  constexpr int64_t block = 512;
  uint16_t halves[block];
  float floats[block];
  for (int64_t begin = 0; begin < count; begin += block) {
    const int64_t n = std::min(block, count - begin);
    for (int64_t i = 0; i < n; ++i, from += channels) halves[i] = *from;
    half_to_float(halves, floats, static_cast<size_t>(n));
    for (int64_t i = 0; i < n; ++i, to += 4) *to = floats[i];
  }
}

void copy(const float* from, int64_t channels, int64_t count, float* to) {
  for (int64_t i = 0; i < count; ++i, from += channels, to += 4) *to = *from;
}

// One component of an output row: `row` points at that component of the first pixel.
void fill_component(const Read& read, const Layer& layer, int32_t channel, int64_t y, int64_t width,
                    float* row) {
  const int64_t layer_y = y - read.y;
  const int64_t begin = std::max<int64_t>(read.x, 0);
  const int64_t end = std::min<int64_t>(width, int64_t{read.x} + read.width);
  if (layer_y < 0 || layer_y >= read.height || begin >= end) {
    fill(row, 0, width, 0);
    return;
  }
  const int64_t channels = int64_t{read.chend} - read.chbegin;
  const int64_t first = (begin - read.x + read.width * layer_y) * channels + channel;
  fill(row, 0, begin, 0);
  if (layer.halves) {
    copy(layer.halves.get() + first, channels, end - begin, row + 4 * begin);
  } else {
    copy(layer.floats.get() + first, channels, end - begin, row + 4 * begin);
  }
  fill(row, end, width, 0);
}

}  // namespace

void scatter(const std::vector<Read>& reads, const LayerPixels& layers,
             const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
             const std::vector<float*>& outs) {
  if (width == 0) return;  // outputs may then be null
  const auto fill_rows = [&](int64_t begin, int64_t end) {
    for (int64_t y = begin; y < end; ++y) {
      for (size_t out = 0; out < outs.size(); ++out) {
        for (size_t component = 0; component < 4; ++component) {
          const Slot& slot = slots[out][component];
          float* row = outs[out] + y * width * 4 + component;
          if (slot.read < 0) {
            fill(row, 0, width, slot.value);
          } else {
            const auto index = static_cast<size_t>(slot.read);
            fill_component(reads[index], layers[index], slot.channel, y, width, row);
          }
        }
      }
    }
  };
  if (threads == 1 || int64_t{width} * height < least_parallel_pixels) {
    fill_rows(0, height);
  } else {
    OIIO::parallel_for_chunked(0, height, rows_a_chunk, fill_rows,
                               OIIO::paropt(threads, OIIO::paropt::SplitDir::Y, 1));
  }
}

}  // namespace qv::io::general
