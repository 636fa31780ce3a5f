#include <qv/nodes/merge/merge.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace qv::nodes::merge {

namespace {

// The order is what the merge program switches on: a row may be added at the end only.
constexpr std::array<std::string_view, 30> operations = {
    "atop",       "average",       "color-burn", "color-dodge", "conjoint-over", "copy",
    "difference", "disjoint-over", "divide",     "exclusion",   "from",          "geometric",
    "hard-light", "hypot",         "in",         "mask",        "matte",         "max",
    "min",        "minus",         "multiply",   "out",         "over",          "overlay",
    "plus",       "screen",        "soft-light", "stencil",     "under",         "xor"};

static_assert(operations[merge_over] == "over");

constexpr std::array<std::string_view, 12> operations_with_own_alpha = {
    "atop",  "conjoint-over", "copy", "disjoint-over", "in",    "mask",
    "matte", "out",           "over", "stencil",       "under", "xor"};

std::string stripped_or_none(std::string_view chans) {
  chans = strip(chans);
  return std::string(chans.empty() ? "none" : chans);
}

}  // namespace

std::span<const std::string_view> merge_operations() {
  return operations;
}

int merge_op_index(std::string_view op) {
  const auto row = std::find(operations.begin(), operations.end(), op);
  return row == operations.end() ? merge_over : static_cast<int>(row - operations.begin());
}

bool merge_alpha_masking(std::string_view op, bool wanted) {
  const auto& own = operations_with_own_alpha;
  return wanted && std::find(own.begin(), own.end(), op) == own.end();
}

MergeOut merge_output(std::string_view text) {
  text = strip(text);
  MergeOut out;
  if (text == "none") {
    out.none = true;
  } else if (text == "rgb") {
    out.chans = "rgba";
    out.mask = {1, 1, 1, 0};
  } else if (text == "alpha") {
    out.chans = "rgba";
    out.mask = {0, 0, 0, 1};
  } else {
    out.chans = text.empty() ? "rgba" : text;
  }
  return out;
}

MergeSetup merge_setup(std::string_view op, std::string_view a, std::string_view b, std::string_view out,
                       std::string_view mask, double mix, bool alpha_masking, bool second_flag) {
  MergeOut output = merge_output(out);
  MergeSetup setup;
  setup.a_chans = stripped_or_none(a);
  setup.b_chans = stripped_or_none(b);
  setup.mask_chans = strip(mask);
  setup.out_none = output.none;
  setup.out_chans = std::move(output.chans);
  setup.out_mask = output.mask;
  setup.op = static_cast<float>(merge_op_index(op));
  setup.alpha_masking = merge_alpha_masking(op, alpha_masking) ? 1.0F : 0.0F;
  setup.second_flag = second_flag ? 1.0F : 0.0F;
  setup.mix = mix;
  return setup;
}

int switch_index(double x, int n) {
  if (n < 1 || !std::isfinite(x)) return 0;
  const double input = std::floor(x);
  if (input <= 0) return 0;
  if (input >= n - 1) return n - 1;
  return static_cast<int>(input);
}

Pick dissolve_pick(double x, int n) {
  if (n < 2) return {0, 0, 0.0};
  const int last = n - 1;
  // 0 comes first in max: it wins over -0.0, and t is never -0.0.
  const double position = std::isnan(x) ? 0.0 : std::max(0.0, std::min<double>(x, last));
  const int input = static_cast<int>(position);
  if (input >= last) return {last, last, 0.0};
  return {input, input + 1, position - input};
}

std::array<float, 4> constant_color(double r, double g, double b, double a, std::string_view chans) {
  const double colour_factor = chans == "alpha" || chans == "none" ? 0.0 : 1.0;
  const double alpha_factor = chans == "rgb" || chans == "none" ? 0.0 : 1.0;
  return {static_cast<float>(colour_factor * r), static_cast<float>(colour_factor * g),
          static_cast<float>(colour_factor * b), static_cast<float>(alpha_factor * a)};
}

}  // namespace qv::nodes::merge
