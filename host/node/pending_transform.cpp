#include "host/node/pending_transform.h"

#include <qv/xform/motion_blur.h>

#include "host/node/render_context.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace host::node {
namespace {

namespace xform = qv::xform;
using xform::Matrix;

// Times at which a moving chain is looked at to find its way: enough that what a turn by 90 degrees
// bulges out between two of them is less than the pixel that moving windows are grown by.
constexpr int path_times = 33;

bool moves(std::span<const TransformLink> links, const Shutter& shutter) {
  return shutter.width > 0 &&
         std::any_of(links.begin(), links.end(), [](const TransformLink& link) { return bool(link.at); });
}

// Only such a link may clip.
bool reformats(const TransformLink& link) {
  return !link.step.empty() && link.step[0] == 1;
}

std::vector<xform::Total> totals_over(std::span<const TransformLink> links, const Format& format,
                                      const Shutter& shutter) {
  if (!moves(links, shutter)) return {total_of(links, format)};
  std::vector<xform::Total> totals;
  totals.reserve(path_times);
  for (int i = 0; i < path_times; ++i) {
    totals.push_back(total_of(links, format, shutter.time(i / (path_times - 1.0))));
  }
  return totals;
}

// The matrix with whole numbers made exact, when it takes pixels to whole pixels: moves by whole
// pixels, mirrors and quarter turns, however many links they are made of.
std::optional<Matrix> whole(const Matrix& matrix) {
  Matrix exact = matrix;
  for (size_t i = 0; i < exact.size(); ++i) {
    exact[i] = std::nearbyint(matrix[i]);
    if (!(std::abs(exact[i] - matrix[i]) < (i == 2 || i == 5 ? 1e-6 : 1e-9))) return std::nullopt;
  }
  const bool upright = std::abs(exact[0]) == 1 && exact[1] == 0 && exact[3] == 0 && std::abs(exact[4]) == 1;
  const bool turned = exact[0] == 0 && std::abs(exact[1]) == 1 && std::abs(exact[3]) == 1 && exact[4] == 0;
  const bool affine = exact[6] == 0 && exact[7] == 0 && exact[8] == 1;
  return affine && (upright || turned) ? std::optional(exact) : std::nullopt;
}

// How far beyond an image's edge the filter sees its pixels, in pixels of the image.
int64_t reach(Resampling filter) {
  constexpr int64_t reaches[] = {0, 1, 2};
  return reaches[static_cast<size_t>(filter)];
}

double area(const Box& box) {
  return static_cast<double>(box_width(box)) * static_cast<double>(box_height(box));
}

Box held_to_format(const Box& window, const Format& format, const Box& source) {
  const double most = std::max(4e6, 4 * std::max(area(format_box(format)), area(source)));
  if (area(window) <= most) return window;
  const int64_t x = format.width / 2;
  const int64_t y = format.height / 2;
  return intersection(window, {-x, -y, format.width + x, format.height + y});
}

Format format_of(const xform::Total& total) {
  return {total.width, total.height, 1};
}

// What the whole chain amounts to, with only the clips that count.
xform::Total chain_total(const PendingTransform& chain, std::optional<double> time = std::nullopt) {
  const std::span<const TransformLink> links = chain.links;
  xform::Total total = total_of(links, chain.source.format, time);
  if (chain.clip_from == 0) return total;
  const xform::Total before = total_of(links.first(chain.clip_from), chain.source.format, time);
  total.clip = total_of(links.subspan(chain.clip_from), format_of(before), time).clip;
  return total;
}

// From pixels of the target's texture to texels of the source's; both have their rows downwards.
Matrix texel_matrix(const Matrix& to_source, const Box& target, const Box& source) {
  const Matrix from_pixels = {1, 0, static_cast<double>(target[0]), 0, -1, static_cast<double>(target[3]), 0,
                              0, 1};
  const Matrix to_texels = {1, 0, -static_cast<double>(source[0]), 0, -1, static_cast<double>(source[3]), 0,
                            0, 1};
  return xform::product(to_texels, xform::product(to_source, from_pixels));
}

// Whether a pixel of the target covers more than one and a half texels somewhere. A projective map
// shrinks most in a corner.
bool shrinks(const Matrix& m, const Box& target) {
  const auto width = static_cast<double>(box_width(target));
  const auto height = static_cast<double>(box_height(target));
  for (const auto& [x, y] : {std::pair(0.0, 0.0), {width, 0.0}, {0.0, height}, {width, height}}) {
    const double w = m[6] * x + m[7] * y + m[8];
    if (!(w > 0)) return true;
    const double u = (m[0] * x + m[1] * y + m[2]) / w;
    const double v = (m[3] * x + m[4] * y + m[5]) / w;
    for (const size_t axis : {size_t{0}, size_t{1}}) {
      if (std::hypot(m[axis] - u * m[6 + axis], m[3 + axis] - v * m[6 + axis]) >= 1.5 * w) return true;
    }
  }
  return false;
}

const char* program(const Matrix& texels, bool exact, Resampling filter, const Box& target) {
  // Pixels that fall on pixels need no weights, which would let a neighbour that is not finite in.
  if (exact || filter == Resampling::nearest) return "resample_nearest.frag";
  if (shrinks(texels, target)) return "resample_mean.frag";
  return filter == Resampling::bilinear ? "resample_bilinear.frag" : "resample_cubic.frag";
}

// Draws the image as it lies at one time, times a weight. False where it cannot be drawn.
bool draw_at(const xform::Total& total, const Image& image, double weight, const Image& result,
             RenderContext& context, Blend blend) {
  if (!total.matrix) return false;
  const auto exact = whole(*total.matrix);
  const auto to_source = xform::inverse(exact.value_or(*total.matrix));
  if (!to_source) return false;
  const PendingTransform& chain = *image.pending;
  const Box& target = result.extent.window;
  const Box& clip = total.clip ? *total.clip : target;
  const Matrix m = texel_matrix(*to_source, target, chain.source.window);
  const auto from_left = [&](int64_t x) { return static_cast<double>(x - target[0]); };
  const auto from_top = [&](int64_t y) { return static_cast<double>(target[3] - y); };
  const Uniform uniforms[] = {
      {"u_row_x", {m[0], m[1], m[2]}},
      {"u_row_y", {m[3], m[4], m[5]}},
      {"u_row_w", {m[6], m[7], m[8]}},
      {"u_clip", {from_left(clip[0]), from_top(clip[3]), from_left(clip[2]), from_top(clip[1])}},
      {"u_filter", static_cast<double>(chain.filter)},
      {"u_weight", weight}};
  const Image source{chain.source, image.texture, nullptr, image.coverage};
  const Input images[] = {{"u_image", source}};
  context.draw(program(m, exact.has_value(), chain.filter, target), result, uniforms, images, blend);
  return true;
}

Image still(const Image& image, RenderContext& context) {
  const PendingTransform& chain = *image.pending;
  const xform::Total total = chain_total(chain);
  const auto exact = total.matrix ? whole(*total.matrix) : std::nullopt;
  if (exact && (*exact)[0] == 1 && (*exact)[4] == 1) {
    Image moved{{image.extent.format, *xform::h_bbox(chain.source.window, *exact, 0)},
                image.texture,
                nullptr,
                image.coverage};
    Box window = intersection(moved.extent.window, image.extent.window);
    if (total.clip) window = intersection(window, *total.clip);
    return context.windowed(moved, window);
  }
  Image result = context.make(image.extent);
  const bool drawn = draw_at(total, image, 1, result, context, Blend::replace);
  return drawn ? result : context.make({image.extent.format, {}});
}

int64_t sample_count(const PendingTransform& chain) {
  const Format& format = chain.source.format;
  if (!moves(chain.links, chain.shutter)) return 0;
  std::vector<std::optional<Matrix>> path;
  for (const xform::Total& total : totals_over(chain.links, format, chain.shutter)) {
    path.push_back(total.matrix);
  }
  return xform::mblur_samples(chain.shutter.quality, path, format.width, format.height);
}

}  // namespace

xform::Total total_of(std::span<const TransformLink> links, const Format& format,
                      std::optional<double> time) {
  std::vector<std::vector<double>> steps;
  for (const TransformLink& link : links) steps.push_back(time && link.at ? link.at(*time) : link.step);
  return xform::total(steps, format.width, format.height);
}

Fit fit(std::span<const TransformLink> links, const Extent& source, const Shutter& shutter) {
  const xform::Total now = total_of(links, source.format);
  const bool moving = moves(links, shutter);
  Fit result;
  result.exact = !moving && now.matrix && whole(*now.matrix) && !is_empty(source.window);
  if (std::none_of(links.begin(), links.end(), reformats)) return result;
  for (const xform::Total& total : moving ? totals_over(links, source.format, shutter) : std::vector{now}) {
    if (!total.matrix || !total.clip || is_empty(source.window)) continue;
    const auto lies = xform::h_bbox(source.window, *total.matrix, 0);
    result.cuts |= !lies || intersection(*lies, *total.clip) != *lies;
  }
  return result;
}

Box placement(std::span<const TransformLink> links, const Extent& source, Resampling filter,
              const Shutter& shutter) {
  const Box& window = source.window;
  const std::vector<xform::Total> totals = totals_over(links, source.format, shutter);
  const bool still = totals.size() == 1;
  Box result{};
  for (const xform::Total& total : totals) {
    if (!total.matrix || is_empty(window)) continue;
    const Format format = format_of(total);
    const bool spreads = !still || (filter != Resampling::nearest && !whole(*total.matrix));
    const Box spread = spreads ? grown(window, reach(filter)) : window;
    Box box = xform::h_bbox(spread, *total.matrix, spreads ? 1 : 0).value_or(format_box(format));
    if (total.clip) box = intersection(box, *total.clip);
    result = hull(result, held_to_format(box, format, window));
  }
  return result;
}

namespace {

Image drawn(const Image& image, RenderContext& context) {
  if (is_empty(image.extent.window)) return context.make(image.extent);
  const PendingTransform& chain = *image.pending;
  const int64_t samples = sample_count(chain);
  if (samples < 2) return still(image, context);
  Image result = context.solid(image.extent, {0, 0, 0, 0});
  for (int64_t i = 0; i < samples; ++i) {
    const double part = static_cast<double>(i) / static_cast<double>(samples - 1);
    const xform::Total total = chain_total(chain, chain.shutter.time(part));
    draw_at(total, image, 1.0 / static_cast<double>(samples), result, context, Blend::add);
  }
  return result;
}

}  // namespace

Image settle(const Image& image, RenderContext& context) {
  if (!image.pending) return image;
  Image result = drawn(image, context);
  result.coverage = image.coverage;
  return result;
}

}  // namespace host::node
