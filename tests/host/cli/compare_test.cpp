#include "host/decode/difference.h"
#include "tests/host/cli/process.h"
#include "tests/support/images.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <tuple>

#include <OpenImageIO/imagebuf.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using host::decode::ChannelDifference;

constexpr float infinity = std::numeric_limits<float>::infinity();

// A window of noise in a format of 24 x 16, among it what is not finite.
void write_noise(std::mt19937& random, const std::string& file, const std::vector<std::string>& names,
                 OIIO::TypeDesc type) {
  const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  OIIO::ImageSpec spec(4 + below(20), 4 + below(12), static_cast<int>(names.size()), type);
  std::tie(spec.x, spec.y, spec.full_width, spec.full_height) =
      std::tuple(below(12) - 6, below(12) - 6, 24, 16);
  spec.channelnames = names;
  std::vector<float> values(static_cast<size_t>(spec.image_pixels() * names.size()));
  const float odd[] = {std::nanf(""), infinity, -infinity};
  for (float& value : values) value = below(9) > 0 ? static_cast<float>(below(4)) / 4 : odd[below(3)];
  support::write_image(file, spec, values);
}

ChannelDifference by_hand(const OIIO::ImageBuf& a, const OIIO::ImageBuf& b, const std::string& name) {
  const int from = a.spec().channelindex(name), to = b.spec().channelindex(name);
  ChannelDifference result{name};
  for (int y = -6; y < 32; ++y) {
    for (int x = -6; x < 40; ++x) {
      if (!OIIO::roi_union(a.roi(), b.roi()).contains(x, y)) continue;
      ++result.pixels;
      const float u = a.getchannel(x, y, 0, from), v = b.getchannel(x, y, 0, to);
      if (u == v || (std::isnan(u) && std::isnan(v))) continue;
      const float by = std::isfinite(u - v) ? std::fabs(u - v) : infinity;
      result.largest = std::fmax(result.largest, double{by});
      result.over += by > 0.3F ? 1 : 0;
    }
  }
  return result;
}

TEST(Compare, FindsWhatLoopsOverThePixelsFind) {
  std::mt19937 random(8);
  const fs::path folder = process::new_folder();
  for (int round = 0; round < 40; ++round) {
    const std::string number = std::to_string(round) + ".exr";
    const std::string a = (folder / ("a" + number)).string(), b = (folder / ("b" + number)).string();
    write_noise(random, a, {"R", "G", "left.Z"}, round % 4 ? OIIO::TypeHalf : OIIO::TypeFloat);
    write_noise(random, b, {"G", "R", "id"}, OIIO::TypeFloat);
    const OIIO::ImageBuf one(a), other(b);
    const auto found = host::decode::difference(a, b, 0.3, false);
    ASSERT_EQ(found.channels.size(), 2U);
    for (const size_t c : {0U, 1U}) {
      const ChannelDifference& channel = found.channels[c];
      const ChannelDifference expected = by_hand(one, other, c ? "G" : "R");
      ASSERT_EQ(std::tie(channel.name, channel.largest, channel.over, channel.pixels),
                std::tie(expected.name, expected.largest, expected.over, expected.pixels));
    }
    EXPECT_EQ(found.only_in_first, std::vector<std::string>{"left.Z"});
    EXPECT_EQ(found.only_in_second, std::vector<std::string>{"id"});
    EXPECT_TRUE(host::decode::difference(a, a, 0, false).same());
  }
}

TEST(Compare, EndsWithWhetherTheyDifferAndSaysWhere) {
  const fs::path folder = process::new_folder();
  for (int frame = 1; frame <= 3; ++frame) {
    OIIO::ImageBuf image(OIIO::ImageSpec(8, 4, 3, OIIO::TypeHalf));
    const std::vector<float> spot = {0, frame == 2 ? 0.5F : 0, 0};
    image.setpixel(6, 1, spot);
    ASSERT_TRUE(image.write((folder / ("p." + std::to_string(frame) + ".exr")).string()));
  }
  OIIO::ImageBuf(OIIO::ImageSpec(9, 4, 3, OIIO::TypeHalf)).write((folder / "wide.exr").string());
  OIIO::ImageSpec ids(2, 1, 1, OIIO::TypeUInt32);
  for (const uint32_t id : {4000000000U, 4000000001U}) {
    support::write_image(folder / ("id" + std::to_string(id % 10) + ".exr"), ids,
                         std::vector<uint32_t>{7, id}, OIIO::TypeUInt32);
  }
  process::check_calls(R"(
compare p.1.exr p.3.exr | 0 | p.1.exr and p.3.exr are the same
compare p.1.exr p.2.exr | 1 | G  largest 0.5 at 6, 2; mean 0.015625; 1 of 32 pixels over
compare p.1.exr p.2.exr --tolerance 0.5 | 0 | p.1.exr and p.2.exr are near enough
compare p.#.exr p.1.exr | 1 | 1 of 3 frames differ
compare p.#.exr p.1.exr -f 3 | 0 | the same
compare p.#.exr p.1.exr -f 4 | 1 | p.4.exr
compare p.1.exr wide.exr | 1 | formats 8 x 4 and 9 x 4
compare id0.exr id1.exr | 1 | largest 1 at 1, 0
compare p.#.exr p.1.exr --picture d.exr | 2 | every frame would go to this file
compare p.1.exr p.2.exr --picture d.xyz | 2 | --picture
compare p.1.exr p.2.exr --tolerance -1 | 2 | --tolerance
compare nix.#.exr p.1.exr | 2 | nix.#.exr: no such file
compare p.1.exr p.2.exr --picture d.exr | 1 | differ
)",
                       folder);
  const OIIO::ImageBuf picture((folder / "d.exr").string());
  EXPECT_EQ(picture.getchannel(6, 1, 0, 1), 0.5F);
  EXPECT_EQ(picture.getchannel(5, 1, 0, 1), 0.0F);
}

}  // namespace
