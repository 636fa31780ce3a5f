// What a colour node hands to its program: packed uniforms, spliced text, widened LUTs.
#include <qv/nodes/color/pack.h>
#include <qv/nodes/ocio/splice.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>

#include <gtest/gtest.h>

namespace {

size_t allocations = 0;

}  // namespace

void* operator new(size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size + 1)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}

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
  for (const size_t count : {0, 17}) check(gain, std::vector<Source>(count), "uniform u: 1..16 components");
  for (const Source& bad : {Source{input, 64}, Source{input, -1}, Source{knob, 2}, Source{knob, -1},
                            Source{knob, 1, 1}, Source{knob, 0, -1}, Source{knob_switch, 0, 2},
                            Source{knob_switch, -1, 0}, Source{knob_switch, 2, 0}})
    check(gain, {{knob, 0, 1}, bad}, "uniform u: source out of range");
  EXPECT_EQ(check(gain, {{input, 63}, {input, 2}, {SourceKind{9}, -5, 99}}, ""), 64);
}

TEST(Pack, FillsEveryComponentAndNothingElse) {
  std::mt19937 generator(81);
  const auto below = [&](uint32_t limit) { return static_cast<int32_t>(generator() % limit); };
  const auto values = [&](int32_t count) {
    std::vector<float> result(static_cast<size_t>(count));
    for (float& value : result) value = std::array{0.0F, -0.0F, 1.5F, NAN}[generator() % 4];
    return result;
  };
  for (int round = 0; round < 500; ++round) {
    Spec spec;
    std::vector<float> knobs;  // the defaults of all, one after the other
    for (int32_t i = 0, length = 0; i < 5; ++i) {
      length = 1 + below(16);
      spec.knobs.push_back({"k", length, values(length)});
      knobs.insert(knobs.end(), spec.knobs.back().defaults.begin(), spec.knobs.back().defaults.end());
    }
    for (int32_t i = below(9); i > 0; --i) {
      spec.uniforms.push_back({"u", std::vector<Source>(size_t(1 + below(16)))});
      for (Source& source : spec.uniforms.back().sources) {
        source = {SourceKind(below(5)), below(5), below(5), 9};
        if (source.kind == knob) source.component %= spec.knobs[size_t(source.index)].length;
      }
    }
    ASSERT_TRUE(spec.finish(nullptr));
    const auto inputs = values(spec.input_count);
    std::vector<Packed> packed(spec.uniforms.size(), Packed{-1, -1, {7, 7, 7}}), expected(packed);
    const size_t before = allocations;
    pack(spec, knobs.data(), inputs.data(), packed.data());
    ASSERT_EQ(allocations, before);

    const auto of = [&](int32_t k, int32_t c) { return spec.knobs.at(size_t(k)).defaults.at(size_t(c)); };
    for (size_t i = 0; i < packed.size(); ++i) {
      expected[i].uniform = static_cast<int32_t>(i);
      expected[i].count = 0;
      for (const Source& source : spec.uniforms[i].sources) {
        float& value = expected[i].values.at(size_t(expected[i].count++));
        value = source.kind == constant ? source.value : 0;
        if (source.kind == knob) value = of(source.index, source.component);
        if (source.kind == input) value = inputs.at(size_t(source.index));
        if (source.kind == knob_switch && of(source.index, 0) != 0) value = of(source.component, 0);
      }
      ASSERT_EQ(std::memcmp(&packed[i], &expected[i], sizeof packed[i]), 0) << i << ", round " << round;
    }
  }
}

TEST(Splice, OnlyWholeLinesAndExactCallsOnce) {
  EXPECT_EQ(splice("//@OCIO\na\n //@OCIO\n", "G"), "//@OCIO\na\n //@OCIO\n");
  EXPECT_EQ(splice("a\n//@OCIO\nb\n//@OCIO\n", "\n//@OCIO\n"), "a\n\n//@OCIO\n\nb\n\n//@OCIO\n\n");
  std::string source = "texture(lut,p) + texture(lut3d, p) + texture(lut, texture(lut, p))";
  EXPECT_TRUE(patch_lut3d(source, "lut") && !patch_lut3d(source, "lut"));
  EXPECT_EQ(source,
            "texture(lut,p) + texture(lut3d, p) + qv_lut3d_trilinear(lut, qv_lut3d_trilinear(lut, p))");
}

TEST(Lut, WidensBitByBitAtAnyAlignment) {
  std::mt19937 generator(82);
  for (const size_t n : {0, 1, 2, 3, 4, 5, 7, 8, 15, 16, 17, 33, 1 << 20})
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
