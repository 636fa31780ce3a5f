#include <qv/io/decode.h>
#include <qv/io/exr_file.h>
#include <qv/io/general/subimages.h>
#include <qv/io/half.h>

#include "tests/io/files.h"
#include "tests/io/plans.h"
#include "tests/support/sanitizers.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

#include <gtest/gtest.h>

namespace {

using namespace qv::io;
using Random = std::mt19937;

int any(Random& random, int low, int high) {
  return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
}

template <class T>
const T& one_of(Random& random, const std::vector<T>& choices) {
  return choices[random() % choices.size()];
}

// Those that are not left to the general reader.
const std::vector<std::string> ours = {"none", "rle", "zips", "zip"};
const std::vector<std::string> others = {"piz", "pxr24", "b44", "b44a", "dwaa", "dwab"};

bool is_ours(const std::string& codec) {
  return std::find(ours.begin(), ours.end(), codec) != ours.end();
}

OIIO::ImageSpec any_spec(Random& random, const std::string& codec, bool plain, bool tiled) {
  std::vector<std::string> names = {"R",    "G",       "B",         "A",     "Z",   "id",    "n.x",
                                    "n.y",  "n.Z",     "a.R",       "a.G",   "b.A", "a.red", "x",
                                    "y",    "a.Alpha", "a.aa",      "a.B.z", "AR",  "b.Y",   "b.Z",
                                    "real", "b.imag",  "diffuse.g", "Depth", "a.Y", "c."};
  if (!plain) std::shuffle(names.begin(), names.end(), random);
  using OIIO::TypeHalf, OIIO::TypeFloat, OIIO::TypeUInt32;
  const std::vector<OIIO::TypeDesc> types = {TypeHalf, TypeHalf, TypeFloat, TypeUInt32};
  const int channels = plain ? 4 : any(random, 1, 13);
  OIIO::ImageSpec spec(any(random, 1, 700), any(random, 1, 70), channels, OIIO::TypeHalf);
  spec.channelnames = {names.begin(), names.begin() + channels};
  spec.format = one_of(random, types);
  if (any(random, 0, 2) == 0)
    for (int c = 0; c < channels; ++c) spec.channelformats.push_back(one_of(random, types));
  if (!plain) {
    spec.x = any(random, -60, 60);
    spec.y = any(random, -60, 60);
  }
  spec.full_width = plain ? spec.width : 300;  // the same for all parts of a file
  spec.full_height = plain ? spec.height : 200;
  if (!plain) spec.full_x = -7, spec.full_y = 5;
  spec.attribute("PixelAspectRatio", 2.0F);
  spec.attribute("ImageDescription", "of " + std::to_string(channels));
  if (tiled) spec.tile_width = any(random, 1, 90), spec.tile_height = any(random, 1, 90);
  spec.attribute("compression", codec);
  if (!tiled && any(random, 0, 3) == 0) spec.attribute("openexr:lineOrder", "decreasingY");
  return spec;
}

// Noise that no codec makes smaller, slopes, and one value, in turn down the image, with what is not finite.
std::vector<float> any_pixels(Random& random, const OIIO::ImageSpec& spec) {
  std::vector<float> pixels(spec.image_pixels() * static_cast<size_t>(spec.nchannels));
  for (size_t i = 0; i < pixels.size(); ++i) {
    const size_t stretch = i * 5 / pixels.size() % 3;
    pixels[i] = stretch == 1 ? static_cast<float>(i % 977) / 977 : 0.25f;
    if (stretch > 0) continue;
    pixels[i] = std::bit_cast<float>(static_cast<uint32_t>(random()));
    if (std::isnan(pixels[i])) pixels[i] = std::numeric_limits<float>::infinity();
  }
  return pixels;
}

// The number of parts.
size_t write_any(const std::string& path, Random& random, const std::string& codec) {
  std::vector<OIIO::ImageSpec> specs;
  const bool plain = any(random, 0, 2) == 0, tiled = any(random, 0, 2) == 0;
  const int parts = plain ? 1 : any(random, 1, 3);
  const bool mip = tiled && parts == 1 && any(random, 0, 2) == 0;
  for (int p = 0; p < parts; ++p) {
    specs.push_back(any_spec(random, codec, plain, tiled));
    specs.back().attribute("oiio:subimagename", "part" + std::to_string(p));
    if (mip) specs.back().attribute("textureformat", "Plain Texture");
  }
  OIIO::ImageSpec spec = specs[0];
  support::write_image(path, specs, [&](OIIO::ImageOutput& output, size_t part) {
    bool good = output.write_image(OIIO::TypeFloat, any_pixels(random, specs[part]).data());
    while (good && mip && (spec.width > 1 || spec.height > 1)) {
      spec.width = std::max(1, spec.width / 2);
      spec.height = std::max(1, spec.height / 2);
      good = output.open(path, spec, OIIO::ImageOutput::AppendMIPLevel) &&
             output.write_image(OIIO::TypeFloat, any_pixels(random, spec).data());
    }
    return good;
  });
  return specs.size();
}

// To the bit, but that a processor may change which NaN it is.
bool same(const float* a, const float* b, size_t n) {
  return std::equal(a, a + n, b, [](float x, float y) {
    return std::memcmp(&x, &y, sizeof x) == 0 || (std::isnan(x) && std::isnan(y));
  });
}

// Two changes in a header can make OpenImageIO 2.4 give up the process, so that there is one; the table of
// chunks and the heads of some are near the front, too.
void cut_or_change(std::string& bytes, Random& random, int how) {
  const size_t front = std::min<size_t>(bytes.size(), 2048);
  if (how == 0) {
    bytes.resize(random() % bytes.size());
  } else if (how == 1) {
    bytes[random() % front] ^= static_cast<char>(1u << random() % 8);
  } else if (front < bytes.size()) {
    for (int i = any(random, 1, 40); i > 0; --i)
      bytes[front + random() % (bytes.size() - front)] = static_cast<char>(random());
  }
}

// Every channel of a subimage, four an output.
void compare_layers(OIIO::ImageInput& input, const std::string& path, const Read& all,
                    const std::optional<std::vector<float>>& expected, bool damaged, Random& random) {
  const size_t count = static_cast<size_t>(all.chend), floats = size_t{4} * input.spec().image_pixels();
  std::vector<std::array<Slot, 4>> slots((count + 3) / 4);
  for (size_t c = 0; c < count; ++c) slots[c / 4][c % 4] = {0, static_cast<int>(c), 0};
  std::vector<std::vector<float>> pixels(slots.size(), std::vector<float>(floats, -1));
  std::vector<float*> outs;
  for (auto& each : pixels) outs.push_back(each.data());
  double ms = 0;
  const LayerPlan plan{{all}, slots, all.width, all.height, any(random, 1, 3), outs};
  const bool done = general::load_exr(input, path, plan, ms);
  ASSERT_TRUE(done || damaged || !is_ours(std::string(input.spec().get_string_attribute("compression"))));
  std::string err;
  const bool loaded = done || load_layers(path, {all}, slots, all.width, all.height, 1, outs, err, nullptr);
  ASSERT_TRUE(loaded == err.empty() && (loaded || damaged) && (!done || expected)) << err;
  // The general reader leaves of damaged blocks what its memory held.
  for (size_t i = 0; done && i < expected->size(); ++i) {
    const size_t c = i % count;
    ASSERT_TRUE(same(&pixels[c / 4][i / count * 4 + c % 4], &(*expected)[i], 1)) << "float " << i;
  }
}

// A part as it is said to be by the reader that does without the general one.
void compare_part(const ExrPart& part, const OIIO::ImageSpec& spec) {
  EXPECT_EQ(part.name, spec.get_string_attribute("oiio:subimagename"));
  EXPECT_EQ(part.compression, spec.get_string_attribute("compression"));
  EXPECT_EQ(part.pixel_aspect, spec.get_float_attribute("PixelAspectRatio", 1));
  EXPECT_EQ((std::array{part.x, part.y, part.width, part.height, part.tile_width, part.tile_height}),
            (std::array{spec.x, spec.y, spec.width, spec.height, spec.tile_width, spec.tile_height}));
  EXPECT_EQ((std::array{part.display_x, part.display_y, part.display_width, part.display_height}),
            (std::array{spec.full_x, spec.full_y, spec.full_width, spec.full_height}));
  ASSERT_EQ(static_cast<int>(part.channels.size()), spec.nchannels);
  for (int c = 0; c < spec.nchannels; ++c) {
    const ExrPart::Channel& channel = part.channels[static_cast<size_t>(c)];
    const std::array types = {OIIO::TypeUInt32, OIIO::TypeHalf, OIIO::TypeFloat};
    EXPECT_EQ(channel.name, spec.channel_name(c));
    EXPECT_EQ(types[static_cast<size_t>(channel.type)], spec.channelformat(c)) << channel.name;
  }
}

// Whatever is read without the general reader is what that has accepted, to the bit.
void compare_alone(const std::string& path, OIIO::ImageInput* input, const DecodeResult& general,
                   bool damaged) {
  const auto file = ExrFile::open(path);
  if (!input) return;
  bool common = true;  // OpenImageIO gives some parts another codec than it was asked for
  for (int part = 0; input->seek_subimage(part, 0); ++part)
    common = common && is_ours(std::string(input->spec().get_string_attribute("compression")));
  input->seek_subimage(0, 0);
  input->geterror();
  ASSERT_TRUE(damaged || (file != nullptr) == common);
  if (!file) return;
  DecodeResult result;
  file->decode_plain(2, result);
  ASSERT_TRUE(result.status == decode_other || result.status == general.status);
  ASSERT_TRUE(damaged || file->is_plain() == (general.status == decode_done));
  ASSERT_TRUE(result.status == general.status || damaged);
  if (result.status == decode_done) {
    ASSERT_EQ(std::pair(result.width, result.height), std::pair(general.width, general.height));
    const size_t floats = size_t{4} * general.spec->image_pixels();
    ASSERT_TRUE(same(result.pixels.get(), general.pixels.get(), floats));
  }
  const auto is_half = [](const ExrPart::Channel& channel) { return channel.type == ExrType::half; };
  const auto& channels_of_first = file->parts()[0].channels;
  const auto halves = file->decode_halves(2);
  ASSERT_EQ(halves != nullptr, result.status == decode_done &&
                                   std::all_of(channels_of_first.begin(), channels_of_first.end(), is_half));
  if (halves) {
    std::vector<float> widened(size_t{4} * general.spec->image_pixels());
    half_to_float(halves.get(), widened.data(), widened.size());
    ASSERT_TRUE(same(widened.data(), general.pixels.get(), widened.size()));
  }
  for (size_t p = 0; p < file->parts().size(); ++p) {
    const ExrPart& part = file->parts()[p];
    const auto index = static_cast<int>(p), channels = static_cast<int>(part.channels.size());
    const OIIO::ImageSpec spec = input->spec(index, 0);
    if (!damaged) {
      ASSERT_NO_FATAL_FAILURE(compare_part(part, spec));
      EXPECT_EQ(file->text(index, "comments"), "of " + std::to_string(channels));
      EXPECT_EQ(file->text(index, "channels") + file->text(index, "none") + file->text(-1, "comments"), "");
    }
    const auto expected = whole(path, index);
    if (spec.image_pixels() > 1 << 20 || spec.nchannels != channels) continue;
    std::vector<float> pixels(size_t{4} * spec.image_pixels());
    for (int c = 0; c < channels; ++c) {
      const Read read = {index, c, c + 1, 0, 0, part.width, part.height};
      const bool done = file->load_layers({read}, {{Slot{0, 0, 0}, {}, {}, {}}}, part.width, part.height, 2,
                                          {pixels.data()}, nullptr);
      ASSERT_TRUE(done || damaged);
      for (size_t i = 0; done && expected && i < spec.image_pixels(); ++i)
        ASSERT_TRUE(same(&pixels[4 * i],
                         &(*expected)[i * static_cast<size_t>(channels) + static_cast<size_t>(c)], 1));
    }
  }
}

// Whatever is read here has the general reader's pixels, and it says the same of the rest.
void compare(const std::string& path, bool damaged, Random& random) {
  const auto input = OIIO::ImageInput::open(path);
  OIIO::geterror();
  // Only where the general reader is not asked: tsan does not see into its pool.
  const bool read_here =
      input && !damaged && is_ours(std::string(input->spec().get_string_attribute("compression")));
  const int threads = read_here || !support::thread_sanitizer ? any(random, 1, 3) : 1;
  DecodeResult result;
  decode_plain(path, threads, result);
  ASSERT_EQ(result.status == 4, !input);
  ASSERT_NO_FATAL_FAILURE(compare_alone(path, input.get(), result, damaged));
  if (!input) return;
  std::vector<Part> parts;
  for (int s = 0; input->seek_subimage(s, 0); ++s) {
    const OIIO::ImageSpec spec = input->spec();
    if (spec.deep || spec.image_pixels() > 1 << 20 || spec.depth != 1) continue;
    const Read all = {s, 0, spec.nchannels, 0, 0, spec.width, spec.height};
    // By a reader that no earlier failure can have left in disorder.
    const auto expected = whole(path, s);
    ASSERT_TRUE(result.status != 2 ||
                (expected && (damaged || same(result.pixels.get(), expected->data(), expected->size()))));
    compare_layers(*input, path, all, expected, damaged, random);
    if (expected) parts.push_back({spec.width, spec.height, spec.nchannels, *expected});
  }
  input->geterror();
  if (!damaged) check_random_plan(path, parts, threads, random);
}

constexpr int files_a_codec = support::address_sanitizer || support::thread_sanitizer ? 2 : 6;

TEST(Reading, gives_what_the_general_reader_gives_of_whole_and_damaged_files) {
  const std::filesystem::path folder = support::new_folder();
  Random random{5};
  OIIO::attribute("exr_threads", -1);  // no thread but ours: tsan does not see into others'
  std::vector<std::string> codecs = others;
  for (int i = 0; i < 4; ++i) codecs.insert(codecs.end(), ours.begin(), ours.end());
  for (int round = 0; round < files_a_codec; ++round)
    for (const std::string& codec : codecs) {
      const std::string path = (folder / "any.exr").string();
      const size_t parts = write_any(path, random, codec);
      SCOPED_TRACE(testing::Message() << "round " << round << ": " << codec << " of " << parts << " parts");
      ASSERT_NO_FATAL_FAILURE(compare(path, false, random));
      if (!is_ours(codec)) continue;
      const std::string bytes = support::bytes_of(path);
      for (int how = 0; how < 12; ++how) {
        // OpenEXR gives up all parts when the front of one is damaged; here the others are read.
        if (how % 3 == 1 && parts > 1) continue;
        std::string changed = bytes;
        cut_or_change(changed, random, how % 3);
        const std::string damaged = support::write_bytes(folder / "damaged.exr", changed);
        ASSERT_NO_FATAL_FAILURE(compare(damaged, true, random)) << "damage " << how;
        // Who looks ahead is to hear of a file that was cut before its pixels.
        const bool cut = how % 3 == 0, refused = !OIIO::ImageInput::open(damaged);
        OIIO::geterror();
        ASSERT_TRUE(!cut || !refused || !ExrFile::open(damaged)) << "damage " << how;
      }
    }
}

}  // namespace
