// What a colour node hands to its program: packed uniforms and widened LUTs.
#include <qv/gpu/registry.h>
#include <qv/nodes/color/pack.h>
#include <qv/nodes/ocio/splice.h>

#include "tests/support/allocations.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

namespace {

using namespace qv::nodes::color;
using namespace qv::nodes::ocio;
using enum SourceKind;

TEST(Pack, FaultsAreNamed) {
  const Knob gain{"gain", 2, {1, 1}};
  const auto check = [](const Knob& first, const std::vector<Source>& sources, const std::string& expected) {
    Spec spec{{first, {"on", 1, {0}}}, {{"u", sources}}};
    std::string error;
    EXPECT_EQ(spec.finish(&error) && spec.finish(nullptr), expected.empty());
    EXPECT_EQ(error, expected);
    return spec.input_count;
  };
  for (const Knob& bad : {Knob{"k", 17, std::vector<float>(17)}, {"k", 0, {}}, {"k", -1, {}}, {"k", 2, {1}}})
    check(bad, {}, "knob k: length / default mismatch");
  for (const size_t count : {0U, 17U}) check(gain, std::vector<Source>(count), "uniform u: 1..16 components");
  for (const Source& bad : {Source{input, 64}, Source{input, -1}, Source{knob, 2}, Source{knob, -1},
                            Source{knob, 1, 1}, Source{knob, 0, -1}, Source{knob_switch, 0, 2},
                            Source{knob_switch, -1, 0}, Source{knob_switch, 2, 0}})
    check(gain, {{knob, 0, 1}, bad}, "uniform u: source out of range");
  EXPECT_EQ(check(gain, {{input, 63}, {input, 2}, {SourceKind{9}, -5, 99}}, ""), 64);
}

TEST(Pack, FillsEveryComponentAndNothingElse) {
  std::mt19937 generator(81);
  const auto below = [&](uint32_t limit) { return static_cast<int32_t>(generator() % limit); };
  const auto values = [&](size_t count) {
    std::vector<float> result(count);
    for (float& value : result) value = std::array{0.0F, -0.0F, 1.5F, NAN}[generator() % 4];
    return result;
  };
  for (int round = 0; round < 1000; ++round) {
    const std::vector<std::vector<float>> knobs = {values(3), values(1), values(16)};
    Spec spec{{{"a", 3, knobs[0]}, {"b", 1, knobs[1]}, {"c", 16, knobs[2]}}, {}};
    std::vector<float> flat;
    for (const auto& each : knobs) flat.insert(flat.end(), each.begin(), each.end());
    const auto inputs = values(64);
    std::vector<Packed> expected;
    for (int32_t i = 0, count = below(9); i < count; ++i) {
      expected.push_back({i, 1 + below(16), {}});
      expected.back().values.fill(7);
      spec.uniforms.push_back({"u", {}});
      for (size_t j = 0; j < size_t(expected.back().count); ++j) {
        const auto k = generator() % 3, other = generator() % 3, component = generator() % knobs[k].size();
        const std::pair<Source, float> choices[] = {
            {{knob, int32_t(k), int32_t(component)}, knobs[k][component]},
            {{input, int32_t(component)}, inputs[component]},
            {{constant, -1, -1, 9}, 9},
            {{knob_switch, int32_t(k), int32_t(other)}, knobs[k][0] != 0 ? knobs[other][0] : 0},
            {{SourceKind{4}, 0, 0, 9}, 0}};
        std::tie(spec.uniforms.back().sources.emplace_back(), expected.back().values[j]) = choices[below(5)];
      }
    }
    ASSERT_TRUE(spec.finish(nullptr));
    std::vector<Packed> packed(spec.uniforms.size());
    for (Packed& each : packed) each.values.fill(7);
    const size_t before = support::allocations.made;
    pack(spec, flat.data(), inputs.data(), packed.data());
    std::array<qv::gpu::Pending, 8> pending;
    std::array<int32_t, 8> locations;
    std::iota(locations.begin(), locations.end(), -1);
    pack(spec, flat.data(), inputs.data(), locations.data(), pending.data());
    for (size_t i = 0; i < packed.size(); ++i)
      ASSERT_TRUE(pending[i].location == locations[i] && pending[i].count == packed[i].count &&
                  !std::memcmp(pending[i].values, packed[i].values.data(),
                               sizeof(float) * static_cast<size_t>(packed[i].count)));
    ASSERT_EQ(support::allocations.made, before);
    ASSERT_TRUE(packed.empty() ||
                !std::memcmp(packed.data(), expected.data(), packed.size() * sizeof packed[0]));
  }
}

TEST(Lut, WidensBitByBitAtAnyAlignment) {
  std::mt19937 generator(82);
  for (const size_t n : {0U, 1U, 2U, 3U, 4U, 5U, 8U, 9U, 17U, 33U, 1U << 20})
    for (size_t shift = 0; shift < 4; ++shift) {
      // Of exactly this size: the address sanitizer sees a read or write too far.
      std::vector<float> rgb(shift + 3 * n), rgba(shift + 4 * n, 7), expected(rgba);
      for (float& each : rgb) each = std::bit_cast<float>(uint32_t(generator()));  // NaNs of every kind too
      for (size_t i = 0; i < n; ++i) {
        std::memcpy(&expected[shift + 4 * i], &rgb[shift + 3 * i], 3 * sizeof(float));
        expected[shift + 4 * i + 3] = 1;
      }
      rgb_to_rgba(rgb.data() + shift, n, rgba.data() + shift);
      ASSERT_TRUE(rgba.empty() || !std::memcmp(rgba.data(), expected.data(), rgba.size() * sizeof(float)))
          << n << " at " << shift;
    }
}

}  // namespace
