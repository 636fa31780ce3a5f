#include <qv/io/claim.h>
#include <qv/io/decode.h>
#include <qv/io/general/bands.h>
#include <qv/io/general/claim.h>
#include <qv/io/image_read.h>
#include <qv/io/layers.h>
#include <qv/io/pixel_memory.h>

#include "tests/io/documented.h"
#include "tests/io/files.h"
#include "tests/io/plans.h"
#include "tests/support/sanitizers.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <tuple>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using namespace qv::io;
using namespace qv::io::general;
using support::bytes_of;
using support::new_folder;
using support::write_bytes;

// Each case has a process of its own under ctest. No pool of threads exists there before the calls, and
// none may after them: with "exr_threads" at -1 that holds for OpenEXR files, too.
TEST(decode_plain, says_of_every_kind_what_it_is_and_has_its_pixels_on_the_calling_thread) {
  const std::filesystem::path folder = new_folder();
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  OIIO::attribute("exr_threads", -1);
  for (const Kind& kind : kinds()) {
    SCOPED_TRACE(kind.name);
    const std::string path = make(folder, kind, 300, 300);
    const auto before = threads();
    DecodeResult result;
    result.error = "left over";
    decode_plain(path, 1, result);
    std::vector<float> out(300 * 300 * 4);
    std::string err;
    const int last = static_cast<int>(kind.channels.size()) - 1;
    const bool loaded =
        load_layers(path, {{0, 0, last + 1, 0, 0, 300, 300}}, {{Slot{0, last, 0}, {}, {}, {}}}, 300, 300, 1,
                    {out.data()}, err, nullptr);
    EXPECT_EQ(threads(), before);
    EXPECT_EQ(loaded, !kind.deep) << err;
    EXPECT_EQ(result.status, kind.status);
    EXPECT_TRUE(result.has_mtime && result.mtime_ns > 1'000'000'000 * int64_t{1'700'000'000});
    EXPECT_EQ(result.error, "");
    const auto read = qv::oiio_read_float(path);
    EXPECT_EQ(read.error.empty(), !kind.deep) << read.error;
    EXPECT_EQ(read.channels, last + 1);
    const bool plain = kind.status == 2;
    ASSERT_TRUE(!result.pixels != plain && !result.spec != plain && result.width == (plain ? 300 : 0));
    if (!plain) continue;
    const std::vector<float> expected = whole(path, 0).value();
    EXPECT_EQ(std::memcmp(result.pixels.get(), expected.data(), expected.size() * sizeof(float)), 0);
    EXPECT_TRUE(read.pixels == expected);
    EXPECT_EQ(result.convert_ms > 0,
              result.spec->format == OIIO::TypeHalf && result.spec->channelformats.empty());
  }
}

TEST(opening, what_is_no_image_file_is_refused_with_a_text_and_at_once) {
  const std::filesystem::path folder = new_folder();
  ASSERT_EQ(::mkfifo((folder / "pipe.exr").c_str(), 0600), 0);
  for (const std::string& path :
       {(folder / "missing.exr").string(), (folder / "pipe.exr").string(), folder.string(), std::string(),
        std::string("/dev/zero"), write_bytes(folder / "empty.exr", ""),
        write_bytes(folder / "text.exr", "not an image"),
        write_bytes(folder / "\xff\xc0\xfe.exr", "v/1\1\2\0"), std::string("a\0b.exr", 7)}) {
    DecodeResult result;
    decode_plain(path, 1, result);
    EXPECT_TRUE(result.status == 4 && !result.error.empty()) << path;
    EXPECT_EQ(result.has_mtime, std::filesystem::exists(path.c_str())) << path;
    const auto read = qv::oiio_read_float(path);
    EXPECT_TRUE(!read.error.empty() && read.width == 0 && read.pixels.empty()) << path;
    std::string err;
    EXPECT_FALSE(load_layers(path, {}, {}, 0, 0, 1, {}, err, nullptr) || err.empty()) << path;
  }
}

TEST(bands, are_whole_blocks_within_every_limit) {
  for (const auto& [compression, height, threads, environment, tile, count, rows] :
       {std::tuple("zip", 1024, 0, "16", 0, 16, 64),
        {"dwab:45", 1024, 0, "16", 0, 2, 512},
        {"zip", 127, 0, "16", 0, 1, 127},
        {"zip", 1080, 2, "16", 0, 2, 544},
        {"zip", 1080, 1, "16", 0, 1, 1080},
        {"zip", 1080, 4, "16", 64, 1, 1080},
        {"zip", 1080, 0, "-3", 0, 1, 1080},
        {"zip", 1080, 0, "many", 0, 1, 1080},
        {"zip", 1080, 0, "3", 0, 3, 384},
        {"piz", 0x7fffffff, 0, "16", 0, 16, 134217728}}) {
    ::setenv("QUORVEL_NATIVE_IO_BANDS", environment, 1);
    OIIO::ImageSpec spec(8, height, 4, OIIO::TypeHalf);
    spec.tile_width = tile;
    spec.attribute("compression", compression);
    const Bands bands = bands_of(spec, threads);
    EXPECT_EQ(std::tuple(bands.count, bands.rows), std::tuple(count, rows)) << compression << " " << height;
  }
  ::unsetenv("QUORVEL_NATIVE_IO_BANDS");
}

// Of every depth in strips and tiles that no block of rows is a multiple of, and as an OpenEXR file of
// blocks.
TEST(load_layers, has_the_floats_of_one_read_image_call_from_every_tiff) {
  const std::filesystem::path folder = new_folder();
  std::mt19937 random(13);
  constexpr int width = 20, height = 193, channels = 5;  // the last of three bands has a single row
  std::vector<float> pixels(width * height * channels);
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<float>(i % 127 + 1) / 128;
  for (const char* depth : {"uint8", "int8", "uint16", "int16", "uint32", "int32", "half", "float", "double"})
    for (const char* planes : {"contig", "separate"})
      for (const int strip : {1, 7, 32, height, 0}) {  // 0: tiles
        // From such tiles OpenImageIO 2.4 returns memory that it never set, whoever asks.
        if (std::string(depth) + planes == "doublecontig" && strip == 0) continue;
        OIIO::ImageSpec spec(width, height, channels, OIIO::TypeDesc(depth));
        spec.attribute("planarconfig", planes);
        spec.attribute("tiff:RowsPerStrip", strip);
        spec.attribute("compression", "piz");
        if (strip == 0) spec.tile_width = spec.tile_height = 16;
        for (const char* name : {"depth.tif", "depth.exr"}) {
          SCOPED_TRACE(std::string(depth) + " " + planes + " " + std::to_string(strip) + " " + name);
          const std::string path = support::write_image(folder / name, spec, pixels);
          for (const int threads : {1, 3, 3})
            ASSERT_NO_FATAL_FAILURE(check_random_plan(
                path, {{width, height, channels, whole(path, 0).value()}}, threads, random));
        }
      }
}

TEST(load_layers, refuses_plans_that_do_not_fit) {
  const std::filesystem::path folder = new_folder();
  const std::string zip = make(folder, kinds()[1]);
  const Read good = {0, 0, 4, 0, 0, 40, 130};
  const char* misfit = "plan does not match the file";
  std::vector<float> out(8 * 8 * 4);
  // The size and the number of outputs last.
  const std::tuple<const char*, Read, Slot, int, int, size_t> rows[] = {
      {"", good, {0, 3, 0}, 8, 8, 1},
      {"bad plan", good, {0, 0, 0}, -1, 8, 1},
      {"bad plan", good, {0, 0, 0}, 1, -1, 1},
      {"bad plan", good, {0, 0, 0}, 8, 8, 0},
      {"bad slot", good, {1, 0, 0}, 8, 8, 1},
      {"bad slot", good, {0, 4, 0}, 8, 8, 1},
      {"bad slot", good, {0, -1, 0}, 8, 8, 1},
      {"bad slot", {0, 4, -2147483647, 0, 0, 40, 130}, {0, 0, 0}, 8, 8, 1},
      {misfit, {0, 3, 1, 0, 0, 40, 130}, {-1, 9, 0}, 8, 8, 1},
      {misfit, {0, -1, 1, 0, 0, 40, 130}, {0, 0, 0}, 8, 8, 1},
      {misfit, {0, 0, 5, 0, 0, 40, 130}, {0, 0, 0}, 8, 8, 1},
      {misfit, {1, 0, 4, 0, 0, 40, 130}, {0, 0, 0}, 8, 8, 1},
      {misfit, {-1, 0, 4, 0, 0, 40, 130}, {0, 0, 0}, 8, 8, 1},
      {misfit, {0, 0, 4, 0, 0, 39, 130}, {0, 0, 0}, 8, 8, 1},
      {misfit, {0, 0, 4, 0, 0, 40, 131}, {0, 0, 0}, 8, 8, 1}};
  for (const auto& [expected, read, slot, width, height, count] : rows) {
    std::string err = "left over";
    const std::vector<float*> outs(count, out.data());
    EXPECT_EQ(load_layers(zip, {read}, {{slot, {}, {}, {}}}, width, height, 2, outs, err, nullptr),
              *expected == 0);
    EXPECT_EQ(err, expected);
  }
}

// Claims of over 1 GiB: only facts of the header and of the machine speak against one, no habit of files.
TEST(sizes, are_refused_only_where_the_codec_or_the_memory_cannot_hold_them) {
  constexpr int beyond = 1 << 30;  // 256 TiB of floats
  const char *no_room = "in 1000 bytes of this compression",
             *no_memory = "larger than the memory that is free";
  // Format, compression, width (of four halves in 16384 rows, 1 GiB of floats is 4096), height, size, text.
  const std::tuple<const char*, const char*, int, int, uint64_t, const char*> rows[] = {
      {"openexr", "dwab:45", 4097, 16384, 12600, ""},  // black, at 42,600 to one
      {"openexr", "piz", 4097, 16384, 1000, ""},
      {"openexr", "zip", 4097, 16384, 0, ""},  // of a file whose size nobody told
      {"openexr", "zip", 4097, 16384, 520'500, ""},
      {"openexr", "none", 4097, 16384, 537'001'984, ""},
      {"openexr", "zip", 4096, 16384, 1000, ""},
      {"tiff", "zip", 4097, 16384, 1000, ""},
      {"openexr", "zip", 4097, 16384, 1000, no_room},
      {"openexr", "none", 4097, 16384, 1000, no_room},
      {"openexr", "rle", 8'000'000, 8, 1000, no_room},
      {"openexr", "dwab:45", beyond, 16384, 0, no_memory},
      {"tiff", "none", beyond, 16384, 0, no_memory}};
  for (const auto& [format, compression, width, height, file_bytes, expected] : rows) {
    OIIO::ImageSpec spec(width, height, 4, OIIO::TypeHalf);
    spec.attribute("compression", compression);
    const std::string text = refusal(spec, format, {file_bytes > 0, 0, file_bytes, false});
    const bool fits = fits_memory(uint64_t{16384} * 16 * static_cast<uint64_t>(width));
    EXPECT_TRUE(*expected ? text.ends_with(expected) : text.empty() || !fits)
        << format << " " << compression << " " << width << ": " << text;
  }
}

// A window of 1 Mi columns, 2 GiB of pixels, which OpenImageIO's own limit would let through.
TEST(sizes, that_no_file_so_small_can_hold_are_refused_and_those_that_overflow_noticed) {
  const std::filesystem::path folder = new_folder();
  std::string bytes = bytes_of(make(folder, kinds()[1]));
  const int32_t last_column = (1 << 20) - 1;
  for (const char* window : {"dataWindow", "displayWindow"})
    std::memcpy(&bytes[bytes.find(window) + std::strlen(window) + 11 + 8], &last_column, 4);
  const std::string path = write_bytes(folder / "wide.exr", bytes);
  DecodeResult result;
  decode_plain(path, 1, result);
  const auto read = qv::oiio_read_float(path);
  EXPECT_TRUE(read.pixels.empty());
  if (result.status == decode_failed) {  // newer readers refuse it themselves
    EXPECT_TRUE(result.error.find("claims") < read.error.size());
  } else {
    EXPECT_TRUE(result.status == decode_other && result.error.empty() && result.read_ms == 0);
    EXPECT_TRUE(read.error.ends_with("bytes of this compression") && read.width == 1 << 20);
  }
  constexpr int64_t most = 0x7fffffff;
  EXPECT_EQ(float_count(most, most / 4, 1), static_cast<size_t>(most * (most / 4)));
  EXPECT_FALSE(float_count(most, most, 4) || float_count(-1, most, 4) || float_count(0, -1, 4));
}

// The file cut at 50 places, then with flipped bits, every other one in the first kilobyte, where
// headers are, then with windows of absurd sizes, which OpenEXR keeps as four 32-bit integers.
std::string damaged(std::string bytes, size_t how, std::mt19937& random) {
  const int32_t claims[] = {-2, 0, 1 << 16, 1 << 22, 1 << 27, 0x7ffffffe, 0x7fffffff};
  if (how < 50) {
    bytes.resize(bytes.size() * how / 50);
  } else if (how < 550) {
    bytes[random() % (how % 2 ? bytes.size() : std::min<size_t>(bytes.size(), 1024))] ^=
        static_cast<char>(1u << random() % 8);
  } else {
    for (const char* window : {"dataWindow", "displayWindow"}) {
      const size_t name = bytes.find(window);
      const size_t corner = name + std::strlen(window) + 11 + (how % 2 ? 8 : 12);
      if (name != std::string::npos) std::memcpy(&bytes[corner], &claims[(how - 550) / 2], 4);
    }
  }
  return bytes;
}

// Every third damage, and every claim; under asan, which makes each try some twenty times as dear, fewer.
constexpr size_t damage_step = support::address_sanitizer ? 7 : 3;

class DamagedFiles : public testing::TestWithParam<Kind> {};

TEST_P(DamagedFiles, always_end_in_a_documented_result) {
  const std::filesystem::path folder = new_folder();
  std::mt19937 random(17);
  const std::string bytes = bytes_of(make(folder, GetParam()));
  const int last = static_cast<int>(GetParam().channels.size()) - 1;
  OIIO::attribute("limits:imagesize_MB", 1);  // what passes below that is quick to fill
  OIIO::attribute("exr_threads", -1);         // tiny blocks would only be handed from thread to thread
  for (size_t i = 0; i < 564; ++i) {
    const std::string content = damaged(bytes, i, random);
    if (i < 550 && i % damage_step != 0) continue;
    const std::string path = write_bytes(folder / ("damaged_" + GetParam().name), content);
    const std::vector<Read> reads = {{0, 0, 1, 0, 0, 40, 130}, {0, last, last + 1, 0, 0, 40, 130}};
    ASSERT_TRUE(ends_as_documented(path, reads, 40, 130, 2)) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(, DamagedFiles, testing::ValuesIn(kinds()), [](const auto& each) {
  return std::filesystem::path(each.param.name).stem().string();
});

}  // namespace
