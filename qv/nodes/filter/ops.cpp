#include <qv/nodes/filter/ops.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace qv::nodes::filter {

namespace {

// Truncates towards 0; NaN gives 0 and what Int cannot hold its nearest end.
template <class Int>
Int to_integer(double x) {
  // Both bounds are powers of two, so they are exact as doubles for any width of Int.
  constexpr auto least = static_cast<double>(std::numeric_limits<Int>::min());
  if (std::isnan(x)) return 0;
  if (x < least) return std::numeric_limits<Int>::min();
  if (x >= -least) return std::numeric_limits<Int>::max();
  return static_cast<Int>(x);
}

int64_t floor_divide(int64_t x, int64_t divisor) {
  return x / divisor - (x % divisor < 0 ? 1 : 0);
}

int64_t ceil_divide(int64_t x, int64_t divisor) {
  return x / divisor + (x % divisor > 0 ? 1 : 0);
}

// end - begin held to 1 .. the largest int; their difference may be beyond 64 bits.
int cell_count(int64_t begin, int64_t end) {
  if (end <= begin) return 1;
  const uint64_t count = static_cast<uint64_t>(end) - static_cast<uint64_t>(begin);
  return static_cast<int>(std::min<uint64_t>(count, std::numeric_limits<int>::max()));
}

// Integral of the triangle of half width w and area 1 from minus infinity to t.
double ramp(double t, double w) {
  if (t <= -w) return 0;
  if (t >= w) return 1;
  if (t < 0) return (w + t) * (w + t) / (2 * w * w);
  return 1 - (w - t) * (w - t) / (2 * w * w);
}

// The values of a pass; a list in braces would copy each of them once more.
template <class... Values>
std::vector<Uni> values(Values&&... each) {
  std::vector<Uni> list;
  list.reserve(sizeof...(each));
  (list.push_back(std::forward<Values>(each)), ...);
  return list;
}

struct Box {
  int64_t x0 = 0;
  int64_t y0 = 0;
  int64_t x1 = 0;
  int64_t y1 = 0;
};

struct Blur {
  double sx = 0;
  double sy = 0;
  int filter = 0;
  int limit = 0;
  Box box;
};

using Params = std::span<const double>;

Box box_at(Params p, size_t first) {
  return {to_integer<int64_t>(p[first]), to_integer<int64_t>(p[first + 1]), to_integer<int64_t>(p[first + 2]),
          to_integer<int64_t>(p[first + 3])};
}

// The eight parameters with which every filter that blurs begins.
Blur leading_blur(Params p) {
  return {p[0], p[1], to_integer<int>(p[2]), to_integer<int>(p[3]), box_at(p, 4)};
}

int add_separable_blur(Plan& plan, int source, double sx, double sy, int filter) {
  int current = source;
  const auto add_axis = [&](const char* program, double size) {
    const int r = radius(size, filter);
    if (r == 0) return;
    current = plan.pass(program, current, values(U("u_size", size), U("u_radius", r), U("u_filter", filter)),
                        {}, 0, 0);
  };
  add_axis("blur_v.frag", sy);
  add_axis("blur_h.frag", sx);
  return current;
}

// Adds a blur of slot `source` and returns the slot with the result: the source where nothing is
// to be done. A blur beyond its limit goes through cells of fx x fy pixels, counted from pixel 0 so
// that they lie still when the box moves.
int add_blur(Plan& plan, int source, const Blur& blur) {
  const int fx = factor(blur.sx, blur.limit);
  const int fy = factor(blur.sy, blur.limit);
  if (fx == 1 && fy == 1) return add_separable_blur(plan, source, blur.sx, blur.sy, blur.filter);

  const int64_t cx0 = floor_divide(blur.box.x0, fx);
  const int64_t cy0 = floor_divide(blur.box.y0, fy);
  const int64_t cx1 = ceil_divide(blur.box.x1, fx);
  const int64_t cy1 = ceil_divide(blur.box.y1, fy);
  const auto real = [](int64_t x) { return static_cast<double>(x); };
  const std::vector<Uni> unis =
      values(U2("u_factor", fx, fy),
             U4("u_bbox", real(blur.box.x0), real(blur.box.y0), real(blur.box.x1), real(blur.box.y1)),
             U2("u_cell", real(cx0), real(cy0)));
  const int down =
      plan.pass("blur_downrez.frag", source, unis, {}, cell_count(cx0, cx1), cell_count(cy0, cy1));
  const int blurred = add_separable_blur(plan, down, blur.sx / fx, blur.sy / fy, blur.filter);
  return plan.pass("blur_uprez.frag", blurred, unis, {}, plan.w(source), plan.h(source));
}

int build_blur(Plan& plan, Params p) {
  return add_blur(plan, 0, leading_blur(p));
}

int build_glow(Plan& plan, Params p) {
  const int bright = plan.pass("glow_prep.frag", 0, values(U("u_tolerance", p[8])), {}, 0, 0);
  const int blurred = add_blur(plan, bright, leading_blur(p));
  return plan.pass("glow_add.frag", 0,
                   values(U3("u_tint", p[9], p[10], p[11]), U("u_brightness", p[12]),
                          U("u_saturation", p[13]), U("u_effect_only", p[14] != 0 ? 1 : 0)),
                   {{"u_glow", blurred}}, 0, 0);
}

int build_sharpen(Plan& plan, Params p) {
  const int blurred = add_blur(plan, 0, leading_blur(p));
  if (blurred == 0) return 0;
  return plan.pass("sharpen.frag", 0, values(U("u_amount", p[8]), U("u_min", p[9]), U("u_max", p[10])),
                   {{"u_blur", blurred}}, 0, 0);
}

int build_dilate(Plan& plan, Params p) {
  const double reach = std::abs(p[0]);
  const double n = std::floor(reach);
  // An infinite reach has no fraction, where the difference would be NaN.
  const double frac = n == reach ? 0 : reach - n;
  const double max = p[0] > 0 ? 1 : 0;
  int current = 0;
  for (const int axis : {0, 1}) {
    current = plan.pass("dilate.frag", current,
                        values(U("u_n", n), U("u_frac", frac), U("u_max", max), U("u_axis", axis)), {}, 0, 0);
  }
  return current;
}

int build_filter_erode(Plan& plan, Params p) {
  const double size = 2 * std::abs(p[0]) + 1;
  const int filter = to_integer<int>(p[1]);
  const int r = radius(size, filter);
  const double flag = p[0] > 0 ? 1 : 0;
  const auto add_axis = [&](int source, double axis, double in, double out) {
    return plan.pass("filter_erode.frag", source,
                     values(U("u_size", size), U("u_radius", r), U("u_filter", filter), U("u_axis", axis),
                            U("u_in", in), U("u_out", out)),
                     {}, 0, 0);
  };
  // The flag swaps minimum and maximum by complementing on the way in and on the way out.
  return add_axis(add_axis(0, 0, flag, 0), 1, 0, flag);
}

int build_erode(Plan& plan, Params p) {
  const double amount = p[0];
  const double soft = p[1];
  const int limit = to_integer<int>(p[2]);
  const Box box = box_at(p, 3);
  int current = 0;
  if (amount != 0) {
    const double size = 2 * std::abs(amount);
    const int blurred = add_blur(plan, current, {size, size, 1, limit, box});
    double scale = 0;
    double offset = 0;
    erode_ramp(amount, &scale, &offset);
    current = plan.pass("erode_blur.frag", blurred,
                        values(U("u_a", scale), U("u_b", offset), U("u_grow", amount > 0 ? 1 : 0)), {}, 0, 0);
  }
  // The edge is moved with the triangle that the ramp is made for, but softened by a Gaussian.
  if (soft > 0) current = add_blur(plan, current, {soft, soft, 3, limit, box});
  return current;
}

int build_edgeblur(Plan& plan, Params p) {
  const int blurred = add_blur(plan, 0, leading_blur(p));
  return plan.pass("edgeblur.frag", 0,
                   values(U("u_matte_ch", p[8]), U("u_edge_mult", p[9]), U3("u_tint", p[10], p[11], p[12]),
                          U("u_brightness", p[13]), U("u_amount_only", 0)),
                   {{"u_blur", blurred}, {"u_matte", 1}}, 0, 0);
}

int build_disc(Plan& plan, Params p) {
  const double rx = p[0];
  const double ry = p[1];
  const bool direct = p[2] != 0;
  constexpr double tile = 64;
  if (!(rx >= 0.5 || ry >= 0.5)) return 0;
  int prefix = 0;
  if (plan.slots.size() > 1) {
    prefix = 1;
  } else if (!direct) {
    prefix = plan.pass("row_prefix.frag", 0, values(U("u_tile", tile)), {}, 0, 0);
  }
  return plan.pass("disc_blur.frag", 0,
                   values(U2("u_radius", rx, ry), U("u_tile", tile), U("u_direct", direct ? 1 : 0)),
                   {{"u_prefix", prefix}}, 0, 0);
}

struct Op {
  std::string_view name;
  size_t params;
  size_t inputs;
  bool blurs;  // draws with the four blur programs, before its own
  std::vector<const char*> frags;
  // Adds the passes and returns the slot with the result; slot 0 when there is nothing to do.
  int (*build)(Plan&, Params);
};

const std::vector<Op>& ops() {
  static const std::vector<Op> table = {
      {"blur", 8, 1, true, {}, build_blur},
      {"glow", 15, 1, true, {"glow_prep.frag", "glow_add.frag"}, build_glow},
      {"sharpen", 11, 1, true, {"sharpen.frag"}, build_sharpen},
      {"dilate", 1, 1, false, {"dilate.frag"}, build_dilate},
      {"filter_erode", 2, 1, false, {"filter_erode.frag"}, build_filter_erode},
      {"erode", 7, 1, true, {"erode_blur.frag"}, build_erode},
      {"edgeblur", 14, 2, true, {"edgeblur.frag"}, build_edgeblur},
      {"disc", 3, 1, false, {"row_prefix.frag", "disc_blur.frag"}, build_disc},
  };
  return table;
}

const Op* find_op(std::string_view name) {
  const auto at = std::find_if(ops().begin(), ops().end(), [name](const Op& op) { return op.name == name; });
  return at == ops().end() ? nullptr : &*at;
}

}  // namespace

int run_op(std::string_view op, std::span<const Tex> inputs, std::span<const double> params, const Tex& out,
           uint32_t restore) {
  const Op* const found = find_op(op);
  if (found == nullptr || inputs.size() < found->inputs || params.size() < found->params) return -1;
  Plan plan(inputs);
  return plan.run(found->build(plan, params), out, restore);
}

std::vector<std::string> op_frags(std::string_view op) {
  const Op* const found = find_op(op);
  if (found == nullptr) return {};
  std::vector<std::string> files;
  if (found->blurs) files = {"blur_v.frag", "blur_h.frag", "blur_downrez.frag", "blur_uprez.frag"};
  files.insert(files.end(), found->frags.begin(), found->frags.end());
  return files;
}

int radius(double size, int filter) {
  if (!(size > 0)) return 0;
  double r = 0;
  switch (filter) {
    case 0:
      r = std::ceil((size - 1) * 0.5 - 1e-9);
      break;
    case 1:
      r = std::ceil(size - 1e-9) - 1;
      break;
    default:
      r = std::floor(size * 1.5 + 1e-9);
      break;
  }
  return static_cast<int>(std::clamp(r, 0.0, 4096.0));
}

int factor(double size, int limit) {
  if (limit < 1 || !(limit < size)) return 1;
  return std::max(1, to_integer<int>(std::ceil(size / limit - 1e-9)));
}

void erode_ramp(double amount, double* scale, double* offset) {
  const double a = std::abs(amount);
  const double w = 2 * a;
  const double low = ramp(a - 0.5, w);
  const double high = ramp(a + 0.5, w);
  *scale = 1 / std::max(1e-6, high - low);
  *offset = -low * *scale;
}

}  // namespace qv::nodes::filter
