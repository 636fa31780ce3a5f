#include <qv/integers.h>
#include <qv/nodes/filter/ops.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

namespace qv::nodes::filter {

namespace {

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
  return {truncated<int64_t>(p[first]), truncated<int64_t>(p[first + 1]), truncated<int64_t>(p[first + 2]),
          truncated<int64_t>(p[first + 3])};
}

// The eight parameters with which every filter that blurs begins.
Blur leading_blur(Params p) {
  return {p[0], p[1], truncated<int>(p[2]), truncated<int>(p[3]), box_at(p, 4)};
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
  const int filter = truncated<int>(p[1]);
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
  const int limit = truncated<int>(p[2]);
  const Box box = box_at(p, 3);
  int current = 0;
  if (amount != 0) {
    const double size = 2 * std::abs(amount);
    const int blurred = add_blur(plan, current, {size, size, kernel_triangle, limit, box});
    double scale = 0;
    double offset = 0;
    erode_ramp(amount, &scale, &offset);
    current = plan.pass("erode_blur.frag", blurred,
                        values(U("u_a", scale), U("u_b", offset), U("u_grow", amount > 0 ? 1 : 0)), {}, 0, 0);
  }
  // The edge is moved with the triangle that the ramp is made for, but softened by a Gaussian.
  if (soft > 0) current = add_blur(plan, current, {soft, soft, kernel_gaussian, limit, box});
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

using Name = std::string_view;

// A filter that blurs begins with the parameters of the blur.
template <class... Names>
constexpr std::array<Name, 8 + sizeof...(Names)> after_blur(Names... names) {
  return {"size_x", "size_y", "kernel", "limit", "x0", "y0", "x1", "y1", names...};
}
constexpr auto blur_params = after_blur();
constexpr auto glow_params =
    after_blur("tolerance", "tint_r", "tint_g", "tint_b", "brightness", "saturation", "effect_only");
constexpr auto sharpen_params = after_blur("amount", "least", "most");
constexpr std::array<Name, 1> dilate_params = {"amount"};
constexpr std::array<Name, 2> filter_erode_params = {"amount", "kernel"};
constexpr std::array<Name, 7> erode_params = {"amount", "soft", "limit", "x0", "y0", "x1", "y1"};
constexpr auto edgeblur_params =
    after_blur("matte_channel", "edge_multiplier", "tint_r", "tint_g", "tint_b", "brightness");
constexpr std::array<Name, 3> disc_params = {"radius_x", "radius_y", "direct"};

constexpr std::array<Operation, 8> table = {{
    {"blur", blur_params, 1},
    {"glow", glow_params, 1},
    {"sharpen", sharpen_params, 1},
    {"dilate", dilate_params, 1},
    {"filter_erode", filter_erode_params, 1},
    {"erode", erode_params, 1},
    {"edgeblur", edgeblur_params, 2},
    {"disc", disc_params, 1},
}};

// How each is drawn.
struct Drawing {
  bool blurs;  // with the four blur programs, before its own
  std::array<const char*, 2> frags;
  // Adds the passes and returns the slot with the result; slot 0 when there is nothing to do.
  int (*build)(Plan&, Params);
};

constexpr std::array<Drawing, table.size()> drawings = {{
    {true, {}, build_blur},
    {true, {"glow_prep.frag", "glow_add.frag"}, build_glow},
    {true, {"sharpen.frag"}, build_sharpen},
    {false, {"dilate.frag"}, build_dilate},
    {false, {"filter_erode.frag"}, build_filter_erode},
    {true, {"erode_blur.frag"}, build_erode},
    {true, {"edgeblur.frag"}, build_edgeblur},
    {false, {"row_prefix.frag", "disc_blur.frag"}, build_disc},
}};

// Its row in both tables.
std::optional<size_t> find_op(std::string_view name) {
  const auto at =
      std::find_if(table.begin(), table.end(), [name](const Operation& op) { return op.name == name; });
  if (at == table.end()) return std::nullopt;
  return static_cast<size_t>(at - table.begin());
}

}  // namespace

int run_op(std::string_view op, std::span<const Tex> inputs, std::span<const double> params, const Tex& out,
           uint32_t restore) {
  const auto found = find_op(op);
  if (!found || inputs.size() < table[*found].inputs || params.size() < table[*found].params.size())
    return run_bad;
  Plan plan(inputs);
  return plan.run(drawings[*found].build(plan, params), out, restore);
}

std::span<const Operation> operations() {
  return table;
}

std::vector<std::string> op_frags(std::string_view op) {
  const auto found = find_op(op);
  if (!found) return {};
  const Drawing& drawing = drawings[*found];
  std::vector<std::string> files;
  if (drawing.blurs) files = {"blur_v.frag", "blur_h.frag", "blur_downrez.frag", "blur_uprez.frag"};
  for (const char* const frag : drawing.frags)
    if (frag) files.emplace_back(frag);
  return files;
}

int radius(double size, int filter) {
  if (!(size > 0)) return 0;
  double r = 0;
  switch (filter) {
    case kernel_box:
      r = std::ceil((size - 1) * 0.5 - 1e-9);
      break;
    case kernel_triangle:
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
  return std::max(1, truncated<int>(std::ceil(size / limit - 1e-9)));
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
