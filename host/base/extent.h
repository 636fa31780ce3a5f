#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

namespace host {

// Where images lie. One coordinate system for every node and knob: pixels, x to the right, y UP,
// the origin at the lower left corner of the format. Only memory runs the other way: rows of a
// texture or a buffer stand top to bottom, so row j of a window holds the pixels with
// y = window[3] - 1 - j.

// The frame that a composition is about. Sizes in pixels, at least 1; pixel_aspect is a pixel's
// width over its height, above 0.
struct Format {
  int64_t width = 1;
  int64_t height = 1;
  double pixel_aspect = 1.0;
  bool operator==(const Format&) const = default;
};

// Half-open pixel box (x0, y0, x1, y1); empty when x1 <= x0 or y1 <= y0.
using Box = std::array<int64_t, 4>;

inline int64_t box_width(const Box& box) {
  return std::max<int64_t>(0, box[2] - box[0]);
}

inline int64_t box_height(const Box& box) {
  return std::max<int64_t>(0, box[3] - box[1]);
}

inline bool is_empty(const Box& box) {
  return box[2] <= box[0] || box[3] <= box[1];
}

inline Box format_box(const Format& format) {
  return {0, 0, format.width, format.height};
}

// Bytes of RGBA pixels all over a box: as floats, or as halves.
inline uint64_t pixel_bytes(const Box& box, bool half = false) {
  return (half ? uint64_t{8} : uint64_t{16}) * static_cast<uint64_t>(box_width(box)) *
         static_cast<uint64_t>(box_height(box));
}

// The box grown by `by` pixels on every side; an empty box stays empty.
inline Box grown(const Box& box, int64_t by) {
  return is_empty(box) ? Box{} : Box{box[0] - by, box[1] - by, box[2] + by, box[3] + by};
}

inline Box intersection(const Box& a, const Box& b) {
  const Box box{std::max(a[0], b[0]), std::max(a[1], b[1]), std::min(a[2], b[2]), std::min(a[3], b[3])};
  return is_empty(box) ? Box{} : box;
}

// The smallest box that covers both; an empty box adds nothing.
inline Box hull(const Box& a, const Box& b) {
  if (is_empty(a)) return is_empty(b) ? Box{} : b;
  if (is_empty(b)) return a;
  return {std::min(a[0], b[0]), std::min(a[1], b[1]), std::max(a[2], b[2]), std::max(a[3], b[3])};
}

// What is known of an image before it has pixels: the frame it is meant for, and the window that it
// has pixels in. Outside the window an image is transparent black, so a small element stays small.
struct Extent {
  Format format;
  Box window{};
  bool operator==(const Extent&) const = default;
};

}  // namespace host
