#include <qv/io/bands.h>
#include <qv/io/decode.h>
#include <qv/io/image_read.h>
#include <qv/io/layers.h>
#include <qv/io/pixel_memory.h>
#include <qv/io/scheduler.h>

#include "tests/io/files.h"

#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using namespace qv::io;

std::vector<float> whole(const std::string& path, int subimage, OIIO::ImageSpec& spec) {
  const auto input = OIIO::ImageInput::open(path);
  spec = input->spec(subimage, 0);
  std::vector<float> pixels(spec.image_pixels() * static_cast<size_t>(spec.nchannels));
  EXPECT_TRUE(input->read_image(subimage, 0, 0, spec.nchannels, OIIO::TypeFloat, pixels.data()));
  return pixels;
}

TEST(decode_plain, says_of_every_kind_what_it_is_and_has_its_pixels) {
  const Files files;
  for (const Kind& kind : kinds()) {
    const std::string path = make(files, kind);
    DecodeResult result;
    result.error = "left over";
    decode_plain(path, 1, result);
    EXPECT_EQ(result.status, kind.status) << kind.name;
    EXPECT_TRUE(result.has_mtime && result.mtime_ns > 1'000'000'000 * int64_t{1'700'000'000});
    EXPECT_EQ(result.error, "");
    const auto read = qv::oiio_read_float(path);
    EXPECT_EQ(read.error.empty(), !kind.deep) << read.error;
    EXPECT_EQ(read.channels, static_cast<int>(kind.channels.size()));
    if (result.status != 2) {
      EXPECT_TRUE(!result.pixels && !result.spec && result.width == 0) << kind.name;
      continue;
    }
    OIIO::ImageSpec spec;
    const std::vector<float> expected = whole(path, 0, spec);
    ASSERT_TRUE(result.pixels && result.spec && result.width == 40 && result.height == 130) << kind.name;
    EXPECT_EQ(std::memcmp(result.pixels.get(), expected.data(), expected.size() * sizeof(float)), 0)
        << kind.name;
    EXPECT_EQ(read.pixels, expected) << kind.name;
    EXPECT_EQ(result.convert_ms > 0, spec.format == OIIO::TypeHalf && spec.channelformats.empty())
        << kind.name;
  }
}

TEST(opening, what_is_no_image_file_is_refused_with_a_text_and_at_once) {
  const Files files;
  ASSERT_EQ(::mkfifo(files.path("pipe.exr").c_str(), 0600), 0);
  const std::vector<std::string> paths = {files.path("missing.exr"),
                                          files.path("pipe.exr"),
                                          files.path(""),
                                          "",
                                          "/dev/zero",
                                          files.write("empty.exr", ""),
                                          files.write("text.exr", "not an image"),
                                          files.write("\xff\xc0\xfe.exr", "v/1\1\2\0"),
                                          std::string("a\0b.exr", 7)};
  for (const std::string& path : paths) {
    DecodeResult result;
    decode_plain(path, 1, result);
    EXPECT_EQ(result.status, 4) << path;
    EXPECT_FALSE(result.error.empty()) << path;
    EXPECT_EQ(result.has_mtime, std::filesystem::exists(path.c_str())) << path;
    const auto read = qv::oiio_read_float(path);
    EXPECT_TRUE(!read.error.empty() && read.width == 0 && read.pixels.empty()) << path;
    std::string err;
    EXPECT_FALSE(load_layers(path, {}, {}, 0, 0, 1, {}, err, nullptr)) << path;
    EXPECT_FALSE(err.empty()) << path;
  }
}

TEST(sizes, that_do_not_fit_are_noticed_before_anything_is_allocated) {
  constexpr int64_t most = 0x7fffffff;
  EXPECT_EQ(float_count(3, 5, 7), 105u);
  EXPECT_EQ(float_count(most, 0, most), 0u);
  EXPECT_EQ(float_count(most, most / 4, 1), static_cast<size_t>(most * (most / 4)));
  for (const auto& [w, h, c] : {std::array{most, most, int64_t{4}},
                                {most, most, most},
                                {int64_t{-1}, most, int64_t{4}},
                                {int64_t{0}, int64_t{-1}, int64_t{4}}})
    EXPECT_FALSE(float_count(w, h, c)) << w << " " << h << " " << c;
}

TEST(bands, are_whole_blocks_within_every_limit) {
  struct Row {
    const char* compression;
    int height, threads;
    const char* environment;
    int tile, count, rows;
  };
  for (const Row& row : {Row{"zip", 1024, 0, nullptr, 0, 16, 64},
                         {"dwab", 1024, 0, nullptr, 0, 2, 512},
                         {"dwab:45", 511, 0, nullptr, 0, 1, 511},
                         {"zip", 127, 0, nullptr, 0, 1, 127},
                         {"zip", 130, 0, nullptr, 0, 2, 96},
                         {"zip", 1080, 2, nullptr, 0, 2, 544},
                         {"zip", 1080, 1, nullptr, 0, 1, 1080},
                         {"zip", 1080, 4, nullptr, 64, 1, 1080},
                         {"zip", 1080, 0, "0", 0, 1, 1080},
                         {"zip", 1080, 0, "-3", 0, 1, 1080},
                         {"zip", 1080, 0, "many", 0, 1, 1080},
                         {"zip", 1080, 0, "3", 0, 3, 384},
                         {"piz", 0x7fffffff, 0, nullptr, 0, 16, 134217728},
                         {"zip", 0x7fffffff, 1, nullptr, 0, 1, 0x7fffffff}}) {
    row.environment ? ::setenv("QUORVEL_NATIVE_IO_BANDS", row.environment, 1)
                    : ::unsetenv("QUORVEL_NATIVE_IO_BANDS");
    OIIO::ImageSpec spec(8, row.height, 4, OIIO::TypeHalf);
    spec.tile_width = row.tile;
    spec.attribute("compression", row.compression);
    const Bands bands = bands_of(spec, row.threads);
    EXPECT_TRUE(bands.count == row.count && bands.rows == row.rows)
        << row.compression << " " << row.height << ": " << bands.count << " of " << bands.rows;
  }
  ::unsetenv("QUORVEL_NATIVE_IO_BANDS");
}

// A random plan over one file against reading everything and picking pixel by pixel.
void check_random_plan(const std::string& path, const Kind& kind, int threads, std::mt19937& random) {
  const auto any = [&](int low, int high) {
    return static_cast<int>(random() % static_cast<unsigned>(high - low + 1)) + low;
  };
  const int w = any(0, 1) ? 300 : any(0, 60), h = w == 300 ? 240 : any(0, 150),
            channels = static_cast<int>(kind.channels.size());
  std::vector<Read> reads(static_cast<size_t>(any(1, 4)));
  std::vector<std::vector<float>> layers;
  for (Read& read : reads) {
    const int begin = any(0, channels - 1);
    read = {any(0, kind.parts - 1), begin, any(begin + 1, channels), any(-50, 50), any(-140, 140), 40, 130};
    OIIO::ImageSpec spec;
    layers.push_back(whole(path, read.subimage, spec));
  }
  std::vector<std::array<Slot, 4>> slots(static_cast<size_t>(any(1, 3)));
  for (auto& output : slots)
    for (Slot& slot : output) {
      slot = {any(-1, static_cast<int>(reads.size()) - 1), 0, static_cast<float>(any(0, 9))};
      if (slot.read >= 0)
        slot.channel = any(0, reads[static_cast<size_t>(slot.read)].chend -
                                  reads[static_cast<size_t>(slot.read)].chbegin - 1);
    }
  std::vector<std::vector<float>> pixels(slots.size(),
                                         std::vector<float>(static_cast<size_t>(w * h * 4), -1));
  std::vector<float*> outs;
  for (auto& each : pixels) outs.push_back(each.data());
  std::string err;
  Stats stats;
  ASSERT_TRUE(load_layers(path, reads, slots, w, h, threads, outs, err, &stats)) << kind.name << ": " << err;
  for (size_t o = 0; o < slots.size(); ++o)
    for (int i = 0; i < w * h * 4; ++i) {
      const Slot& slot = slots[o][static_cast<size_t>(i % 4)];
      float expected = slot.value;
      if (slot.read >= 0) {
        const Read& read = reads[static_cast<size_t>(slot.read)];
        const int x = i / 4 % w - read.x, y = i / 4 / w - read.y;
        const bool inside = x >= 0 && x < 40 && y >= 0 && y < 130;
        expected = inside ? layers[static_cast<size_t>(slot.read)]
                                  [static_cast<size_t>((y * 40 + x) * channels + read.chbegin + slot.channel)]
                          : 0;
      }
      ASSERT_EQ(pixels[o][static_cast<size_t>(i)], expected)
          << kind.name << " output " << o << " float " << i << " of " << w << " x " << h;
    }
}

TEST(load_layers, places_every_kind_as_a_naive_reader_does) {
  const Files files;
  std::mt19937 random(11);
  for (const Kind& kind : kinds()) {
    if (kind.deep) continue;
    const std::string path = make(files, kind);
    for (int round = 0; round < 12; ++round)
      ASSERT_NO_FATAL_FAILURE(check_random_plan(path, kind, round % 3, random));
  }
}

TEST(load_layers, refuses_plans_that_do_not_fit) {
  const Files files;
  const std::string zip = make(files, kinds()[1]), deep = make(files, kinds().back());
  struct Row {
    const char* err;
    Read read;
    Slot slot;
    int width = 8, height = 8;
  };
  const Read good = {0, 0, 4, 0, 0, 40, 130};
  const char* misfit = "plan does not match the file";
  std::vector<float> out(8 * 8 * 4);
  for (const Row& row : {Row{"", good, {0, 3, 0}},
                         {"bad plan", good, {0, 0, 0}, -1},
                         {"bad plan", good, {0, 0, 0}, 1, -1},
                         {"bad slot", good, {1, 0, 0}},
                         {"bad slot", good, {0, 4, 0}},
                         {"bad slot", good, {0, -1, 0}},
                         {"bad slot", {0, 4, -2147483647, 0, 0, 40, 130}, {0, 0, 0}},
                         {misfit, {0, 3, 1, 0, 0, 40, 130}, {-1, 9, 0}},
                         {misfit, {0, -1, 1, 0, 0, 40, 130}, {0, 0, 0}},
                         {misfit, {0, 0, 5, 0, 0, 40, 130}, {0, 0, 0}},
                         {misfit, {1, 0, 4, 0, 0, 40, 130}, {0, 0, 0}},
                         {misfit, {-1, 0, 4, 0, 0, 40, 130}, {0, 0, 0}},
                         {misfit, {0, 0, 4, 0, 0, 39, 130}, {0, 0, 0}},
                         {misfit, {0, 0, 4, 0, 0, 40, 131}, {0, 0, 0}}}) {
    std::string err = "left over";
    EXPECT_EQ(load_layers(zip, {row.read}, {{row.slot, {}, {}, {}}}, row.width, row.height, 2, {out.data()},
                          err, nullptr),
              *row.err == 0);
    EXPECT_EQ(err, row.err);
  }
  std::string err;
  EXPECT_FALSE(load_layers(zip, {good}, {{}}, 8, 8, 2, {}, err, nullptr));
  EXPECT_EQ(err, "bad plan");
  EXPECT_FALSE(load_layers(deep, {good}, {{}}, 8, 8, 2, {out.data()}, err, nullptr));
  EXPECT_FALSE(err.empty());
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

// Every damage is tried; under asan, which makes each try some twenty times as dear, every seventh.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t damage_step = 7;
#elif defined(__has_feature)
constexpr size_t damage_step = __has_feature(address_sanitizer) ? 7 : 1;
#else
constexpr size_t damage_step = 1;
#endif

class DamagedFiles : public testing::TestWithParam<Kind> {};

TEST_P(DamagedFiles, always_end_in_a_documented_result) {
  const Files files;
  std::mt19937 random(17);
  const Kind& kind = GetParam();
  const std::string bytes = bytes_of(make(files, kind));
  const int last = static_cast<int>(kind.channels.size());
  std::vector<float> out(40 * 130 * 4);
  OIIO::attribute("limits:imagesize_MB", 1);  // what passes below that is quick to fill
  OIIO::attribute("exr_threads", -1);         // tiny blocks would only be handed from thread to thread
  for (size_t i = 0; i < 564; ++i) {
    SCOPED_TRACE(i);
    const std::string content = damaged(bytes, i, random);
    if (i % damage_step != 0) continue;
    const std::string path = files.write("damaged_" + kind.name, content);
    DecodeResult result;
    decode_plain(path, 2, result);
    ASSERT_TRUE(result.status >= 2 && result.status <= 4);
    ASSERT_EQ(result.status == 4, !result.error.empty());
    ASSERT_EQ(result.status == 2, result.pixels && result.spec);
    const auto read = qv::oiio_read_float(path);
    ASSERT_TRUE(!read.error.empty() ||
                read.pixels.size() == float_count(read.width, read.height, read.channels));
    std::string err;
    std::vector<Read> reads = {{0, 0, 1, 0, 0, 40, 130}};
    if (last > 1) reads.push_back({0, last - 1, last, 0, 0, 40, 130});
    const bool loaded = load_layers(path, reads, {{}}, 40, 130, 2, {out.data()}, err, nullptr);
    ASSERT_EQ(loaded, err.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(, DamagedFiles, testing::ValuesIn(kinds()), [](const auto& each) {
  return std::filesystem::path(each.param.name).stem().string();
});

// Each case has a process of its own under ctest, so no pool exists here before the calls.
TEST(threads, one_means_that_no_other_is_started) {
  const Files files;
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  for (const Kind& kind : kinds()) {
    if (kind.name.ends_with(".exr")) continue;
    const std::string path = make(files, kind, 300, 300);
    std::vector<float> out(300 * 300 * 4);
    DecodeResult result;
    std::string err;
    const auto before = threads();
    decode_plain(path, 1, result);
    EXPECT_TRUE(load_layers(path, {{0, 0, 4, 0, 0, 300, 300}}, {{Slot{0, 0, 0}, {}, {}, {}}}, 300, 300, 1,
                            {out.data()}, err, nullptr))
        << err;
    EXPECT_EQ(threads(), before) << kind.name;
  }
}

TEST(scheduler, decodes_real_files) {
  const Files files;
  DecodeScheduler scheduler(1, 1, 1);
  const int64_t plain = scheduler.submit(make(files, kinds()[1]), 1),
                missing = scheduler.submit(files.path("none"), 0);
  const auto taken = scheduler.take(plain, -1), failed = scheduler.take(missing, 1e300);
  ASSERT_TRUE(taken && failed);
  EXPECT_TRUE(taken->status == 2 && taken->pixels && taken->width == 40);
  EXPECT_TRUE(failed->status == 4 && !failed->error.empty());
}

}  // namespace
