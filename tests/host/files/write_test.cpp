#include "host/files/exr/write.h"

#include "host/files/container.h"
#include "host/files/encode.h"
#include "host/files/exr/part.h"
#include "host/files/image_writer.h"
#include "host/plates/headers.h"
#include "tests/host/render/scene.h"
#include "tests/support/allocations.h"
#include "tests/support/files.h"
#include "tests/support/images.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <span>
#include <tuple>

#include <OpenImageIO/imagebuf.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using host::files::OutputFile;
using host::files::WriteJob;
using host::files::WriteResult;
using Depth = OutputFile::Depth;
using Color = OutputFile::Color;

constexpr int width = 4;

// Premultiplied: over nothing, at a quarter, at a half and whole; light without coverage at the end.
const std::vector<float> picture = {0,    0,     0,     0,    0.05F, 0.125F, 0.2F, 0.25F, 0.001F, 0.25F, 0.5F,
                                    0.5F, 1,     0.75F, 0.5F, 1,     0.2F,   0.4F, 0.01F, 1,      0.3F,  0.3F,
                                    0.3F, 0.75F, 0.1F,  0.2F, 0.3F,  0,      0.9F, 0,     0.1F,   1};

WriteResult write(const OutputFile& file, const std::vector<float>& rgba) {
  WriteJob job;
  job.file = file;
  const auto height = static_cast<int64_t>(rgba.size()) / 4 / width;
  job.extent = {{width, height, 1.0}, {0, 0, width, height}};
  job.rgba = {rgba.data(), [](const float*) {}};
  WriteResult result;
  host::files::ImageWriter writer(1, 1, [&](const WriteResult& ended) { result = ended; });
  writer.put(std::move(job));
  writer.finish();
  return result;
}

double encoded(double x) {
  return x <= 0.0031308 ? x * 12.92 : 1.055 * std::pow(x, 1 / 2.4) - 0.055;
}

// What a file of this kind is to hold of a pixel's channel.
double expected(const float* pixel, size_t channel, const OutputFile& file, bool srgb, bool png) {
  const double alpha = file.alpha ? static_cast<double>(pixel[3]) : 1.0;
  if (channel == 3) return alpha;
  const double cover = alpha != 0 ? alpha : 1.0;
  double value = static_cast<double>(pixel[channel]) / cover;
  if (srgb) value = encoded(value);
  return png ? value : value * cover;
}

// Writes the picture, reads it with another reader, and says which of its values are off.
void check_stored(const OutputFile& file) {
  SCOPED_TRACE(testing::Message() << file.path << " depth " << static_cast<int>(file.depth) << " color "
                                  << static_cast<int>(file.color) << " alpha " << file.alpha);
  ASSERT_EQ(write(file, picture).error, "");
  const bool png = file.path.ends_with(".png");
  const bool srgb = file.color == Color::srgb || (file.color == Color::automatic && png);
  EXPECT_EQ(host::plates::Headers().get(file.path)->color.name, srgb ? "sRGB" : "linear");
  OIIO::ImageSpec raw;
  raw.attribute("oiio:UnassociatedAlpha", 1);
  const auto input = OIIO::ImageInput::open(file.path, &raw);
  ASSERT_TRUE(input) << OIIO::geterror();
  const OIIO::TypeDesc type = input->spec().format;
  const auto channels = static_cast<size_t>(input->spec().nchannels);
  ASSERT_EQ(channels, file.alpha ? 4U : 3U);
  std::vector<float> stored(picture.size() / 4 * channels);
  ASSERT_TRUE(input->read_image(0, 0, 0, static_cast<int>(channels), OIIO::TypeFloat, stored.data()));
  const double step = type == OIIO::TypeUInt8    ? 0.51 / 255
                      : type == OIIO::TypeUInt16 ? 0.51 / 65535
                      : type == OIIO::TypeHalf   ? 0.0005
                                                 : 1e-6;
  for (size_t i = 0; i < stored.size(); ++i) {
    double value = expected(&picture[i / channels * 4], i % channels, file, srgb, png);
    if (!type.is_floating_point()) value = std::clamp(value, 0.0, 1.0);
    EXPECT_NEAR(static_cast<double>(stored[i]), value, step) << "value " << i;
  }
}

TEST(Writer, EveryKindOfFileHoldsWhatWasAsked) {
  int files = 0;
  for (int kind = 0; kind < 3 * 7 * 3 * 2; ++kind) {
    OutputFile file;
    const char* const endings[] = {".exr", ".png", ".tif"};
    file.path = (scene::folder() / ("w" + std::to_string(files) + endings[kind % 3])).string();
    file.depth = static_cast<Depth>(kind / 3 % 7);
    file.color = static_cast<Color>(kind / 21 % 3);
    file.alpha = kind / 63 == 0;
    const bool refused = !host::files::wrong_setting(file).empty();
    if (refused) {
      EXPECT_NE(write(file, picture).error, "");
    } else {
      ASSERT_NO_FATAL_FAILURE(check_stored(file));
    }
    files += !refused;
  }
  EXPECT_EQ(files, 6 * (3 + 3 + 4));
}

TEST(Writer, RefusesWhatAFileTypeDoesNotHave) {
  const struct {
    const char* path;
    Depth depth;
    const char *compression, *message;
  } cases[] = {
      {"a.png", Depth::half, "", R"(knob "depth": .png files have no "half"; they have "auto", "8", "16")"},
      {"a.tif", Depth::half, "", R"(they have "auto", "8", "16", "float")"},
      {"a.exr", Depth::half, "lzw",
       R"(knob "compression": .exr files have no "lzw"; they have "none", "rle", )"},
      {"a.exr", Depth::half, "piz:3", R"(.exr files have no "piz:3")"},
      {"a.exr", Depth::half, "zip:10", R"("zip:1" (fast) to "zip:9" (small) choose how hard it packs)"},
      {"a.exr", Depth::half, "zips:0", R"(.exr files have no "zips:0")"},
      {"a.tif", Depth::integer16, "jpeg", R"(they have "none", "lzw", "zip", "deflate", "packbits")"},
      {"a.png", Depth::integer8, "dwaa", R"(.png files have no "dwaa")"},
      {"a.exr", Depth::half, "dwaa:45", ""},
      {"a.exr", Depth::half, "zips", ""},
      {"a.tif", Depth::float32, "zip:9", ""},
  };
  for (const auto& each : cases) {
    OutputFile file;
    file.path = (scene::folder() / each.path).string();
    file.depth = each.depth;
    file.compression = each.compression;
    const std::string reason = host::files::wrong_setting(file);
    EXPECT_NE(reason.find(each.message), std::string::npos) << reason;
    EXPECT_EQ(reason.empty(), *each.message == 0) << reason;
    EXPECT_EQ(write(file, picture).error.empty(), reason.empty()) << reason;
    if (!reason.empty()) continue;
    const std::string asked = each.compression;
    EXPECT_EQ(OIIO::ImageInput::open(file.path)->spec().get_string_attribute("compression"),
              asked.substr(0, asked.find(':')));
  }
}

TEST(Writer, HoldsHalvesAtTheirLimitAndCountsWhatIsNoNumber) {
  constexpr float inf = std::numeric_limits<float>::infinity();
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<float> extreme = {65504, 1, 1, 1, 65505, 70000, 1, 1, -1e30F, 0, 0, 1, inf, -inf, nan, 1};
  OutputFile file;
  file.path = (scene::folder() / "extreme.exr").string();
  WriteResult result = write(file, extreme);
  ASSERT_EQ(result.error, "");
  EXPECT_EQ(result.notice, file.path +
                               ": 2 pixels lie beyond 65504, the most that a half holds, and are held there; "
                               "1 pixel is infinite; 1 pixel is not a number");
  std::vector<float> stored(16);
  const auto input = OIIO::ImageInput::open(file.path);
  ASSERT_TRUE(input->read_image(0, 0, 0, 4, OIIO::TypeFloat, stored.data()));
  const std::vector<float> held = {65504, 1, 1, 1, 65504, 65504, 1, 1, -65504, 0, 0, 1, inf, -inf};
  EXPECT_EQ(std::vector<float>(stored.begin(), stored.begin() + 14), held);
  EXPECT_TRUE(std::isnan(stored[14]));

  file.depth = Depth::float32;
  result = write(file, extreme);
  EXPECT_EQ(result.notice, file.path + ": 1 pixel is infinite; 1 pixel is not a number");
  EXPECT_EQ(write(file, picture).notice, "");
}

// A picture in memory, and the file that OpenImageIO's writer makes of what is to be stored of it.
struct Plate {
  WriteJob job;
  std::vector<float> stored;  // rows of the window that a file has
  host::Box window;
};

Plate plate_of(const host::Extent& extent, bool overscan, bool noise) {
  Plate plate;
  plate.job.extent = extent;
  plate.job.file.overscan = overscan;
  plate.window =
      overscan ? extent.window : host::intersection(extent.window, host::format_box(extent.format));
  const int64_t across = host::box_width(extent.window), down = host::box_height(extent.window);
  const std::shared_ptr<float[]> pixels(new float[static_cast<size_t>(across * down * 4)]);
  std::mt19937 random(7);
  for (int64_t row = 0, i = 0; row < down; ++row) {
    for (int64_t x = 0; x < across; ++x) {
      for (int64_t c = 0; c < 4; ++c, ++i) {
        // Noise: any number that a half has room for, in the bits of a float.
        const float wild =
            std::ldexp(static_cast<float>(random()) * 0x1p-32F - 0.5F, static_cast<int>(random() % 40) - 24);
        pixels[i] = noise ? wild : 0.3F + 0.001F * static_cast<float>(x * c + row);
        const int64_t y = extent.window[3] - 1 - row, column = extent.window[0] + x;
        const host::Box& kept = plate.window;
        if (column >= kept[0] && column < kept[2] && y >= kept[1] && y < kept[3])
          plate.stored.push_back(pixels[i]);
      }
    }
  }
  plate.job.rgba = pixels;
  return plate;
}

void write_reference(const Plate& plate, const OutputFile& file, const std::string& path) {
  const host::Box& window = plate.window;
  const host::Format& format = plate.job.extent.format;
  const auto integer = [](int64_t value) { return static_cast<int>(value); };
  OIIO::ImageSpec spec(integer(host::box_width(window)), integer(host::box_height(window)),
                       file.alpha ? 4 : 3, file.depth == Depth::float32 ? OIIO::TypeFloat : OIIO::TypeHalf);
  std::tie(spec.x, spec.y) = std::pair(integer(window[0]), integer(format.height - window[3]));
  std::tie(spec.full_width, spec.full_height) = std::pair(integer(format.width), integer(format.height));
  spec.attribute("PixelAspectRatio", static_cast<float>(format.pixel_aspect));
  spec.attribute("Software", file.scale == 1 ? "quorvel" : "quorvel, scale 0.5");
  spec.attribute("compression", file.compression.empty() ? "zip" : file.compression);
  support::write_image(path, {spec}, [&](OIIO::ImageOutput& output, size_t) {
    return output.write_image(OIIO::TypeFloat, plate.stored.data(), 4 * sizeof(float));
  });
}

std::vector<std::byte> samples_of(const std::string& path) {
  const auto input = OIIO::ImageInput::open(path);
  if (!input) return {};
  const OIIO::ImageSpec& spec = input->spec();
  std::vector<std::byte> bytes(spec.image_bytes(true));
  if (!input->read_image(0, 0, 0, spec.nchannels, spec.format, bytes.data())) return {};
  return bytes;
}

// What a program says of a file, but for the lines that tell its name and the time.
std::string told(const std::string& program, const std::string& path) {
  const std::string out = (scene::folder() / "told").string();
  const std::string line = program + " " + path + " >" + out +
                           " 2>&1 && sed -i '/^capDate/d; /^dwaCompressionLevel .*: 45$/d; \\|" + path +
                           "|d' " + out;
  const int status = std::system(line.c_str());
  return (status == 0 ? "" : "failed: ") + support::bytes_of(out);
}

// Every way to store an EXR, by one, two and three threads, against the files of OpenImageIO's writer.
TEST(Writer, ExrIsWhatOpenImageIoMakesOfItWhateverTheThreads) {
  std::vector<std::string> compressions = {"", "zip:1", "zip:9", "zips:6", "dwaa:100"};
  compressions.insert(compressions.end(), host::files::exr::codec_names.begin(),
                      host::files::exr::codec_names.end());
  const struct {
    const char* name;
    host::Extent extent;
    bool overscan, noise;
  } plates[] = {
      {"all", {{33, 71, 1.0}, {0, 0, 33, 71}}, false, false},
      {"cut", {{40, 50, 2.0}, {-7, -3, 41, 66}}, false, false},
      {"over", {{40, 50, 0.5}, {-9, -5, 20, 290}}, true, false},
      {"noise", {{37, 60, 1.0}, {2, 3, 37, 59}}, true, true},
      {"pixel", {{9, 9, 1.0}, {3, 4, 4, 5}}, false, false},
  };
  std::vector<WriteJob> jobs;
  for (const auto& each : plates) {
    const Plate plate = plate_of(each.extent, each.overscan, each.noise);
    for (const Depth depth : {Depth::automatic, Depth::float32}) {
      for (const std::string& compression : compressions) {
        WriteJob& job = jobs.emplace_back(plate.job);
        job.file.depth = depth;
        job.file.compression = compression;
        job.file.alpha = compression != "piz";
        job.file.scale = compression == "rle" ? 0.5 : 1;
        job.file.path =
            std::string(each.name) + (depth == Depth::float32 ? "_float_" : "_half_") + compression + ".exr";
        write_reference(plate, job.file, (scene::folder() / job.file.path).string());
      }
    }
  }
  const auto running = [] { return std::distance(fs::directory_iterator("/proc/self/task"), {}); };
  std::map<std::string, std::string> first;  // contents by name
  for (const int threads : {1, 2, 3}) {
    const auto before = running();
    host::files::ImageWriter writer(4, threads, [&](const WriteResult& ended) {
      EXPECT_EQ(ended.error, "");
      EXPECT_LE(running(), before + threads) << "others than the writer's own";
    });
    const auto ours = [threads](const WriteJob& job) {
      return (scene::folder() / ("by" + std::to_string(threads)) / job.file.path).string();
    };
    for (WriteJob job : jobs) {
      job.file.path = ours(job);
      writer.put(std::move(job));
    }
    writer.finish();
    for (const WriteJob& job : jobs) {
      const auto [known, is_first] = first.try_emplace(job.file.path, support::bytes_of(ours(job)));
      EXPECT_TRUE(is_first || support::bytes_of(ours(job)) == known->second) << ours(job);
    }
  }
  for (const WriteJob& job : jobs) {
    const std::string ours = (scene::folder() / "by1" / job.file.path).string();
    const std::string reference = (scene::folder() / job.file.path).string();
    const std::vector<std::byte> samples = samples_of(ours);
    EXPECT_FALSE(samples.empty()) << ours;
    EXPECT_TRUE(samples == samples_of(reference)) << ours;
    EXPECT_EQ(told("exrheader", ours), told("exrheader", reference)) << ours;
    EXPECT_EQ(told("exrinfo -s", ours).find("failed"), std::string::npos) << told("exrinfo -s", ours);
  }
  const auto size = [&first](const std::string& name) { return first.at(name + ".exr").size(); };
  EXPECT_LT(size("all_half_zip:9"), size("all_half_zip:1"));
  EXPECT_EQ(size("all_half_"), size("all_half_zip"));
  // Nothing makes noise smaller: it is stored as it is, in fewer chunks than without compression.
  EXPECT_LE(size("noise_float_zip"), size("noise_float_none"));
}

// Does everything itself.
struct Alone final : host::files::exr::Crew {
  size_t threads() const override {
    return 1;
  }
  double share(host::files::exr::Work& work, host::files::exr::Packer& own) override {
    work.run(own);
    return 0;
  }
};

// The second frame of a size finds all the memory that it needs.
TEST(Writer, AllocatesNothingForTheNextFrame) {
  Alone alone;
  host::files::Encoder encoder;
  host::files::exr::Packer packer;
  Plate plate = plate_of({{300, 200, 1.0}, {0, 0, 300, 200}}, false, true);
  plate.job.file.path = "a.exr";
  (void)encoder.encode(plate.job, packer, alone);
  EXPECT_GT(support::allocations.largest.exchange(0), 300000U);
  EXPECT_GT(encoder.encode(plate.job, packer, alone).content.size(), 300000U);
  EXPECT_LT(support::allocations.largest, 4096U);
}

TEST(Writer, PartsHaveTheirOwnWindowsTypesAndCodecs) {
  using namespace host::files::exr;
  std::vector<float> values(60 * 50);
  for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i % 2001) / 2;
  const float* const first = values.data();
  const Window format = {0, 0, 70, 60};
  std::vector<Part> parts(3);
  parts[0] = {"beauty", format, {5, -4, 30, 40}, 1, Codec::zip, -1, {{"view", "string", {}, {"left"}}}, {}};
  parts[0].channels = {{"A", Type::half, first + 3, 2, 60}, {"Z", Type::real, first, 2, 60}};
  parts[1] = {"depth", format, {0, 0, 60, 50}, 1, Codec::piz, -1, {}, {{"Z", Type::real, first, 1, 60}}};
  parts[2] = {"matte", format, {69, 59, 1, 1}, 1, Codec::dwaa, -1, {}, {{"A", Type::half, first, 1, 60}}};
  Alone alone;
  Packer packer;
  Memory memory;
  (void)write(parts, packer, alone, memory);
  const std::string path =
      support::write_bytes(scene::folder() / "parts.exr",
                           {reinterpret_cast<const char*>(memory.content.data()), memory.content.size()});
  EXPECT_EQ(told("exrinfo -s", path).find("failed"), std::string::npos);
  for (int i = 0; i < 3; ++i) {
    const Part& part = parts[static_cast<size_t>(i)];
    const OIIO::ImageBuf stored(path, i, 0);
    const OIIO::ImageSpec& spec = stored.nativespec();
    EXPECT_EQ(spec.get_string_attribute("name"), part.name);
    ASSERT_EQ(std::tie(spec.x, spec.y, spec.width, spec.height),
              std::tie(part.data.x, part.data.y, part.data.width, part.data.height));
    ASSERT_EQ(spec.channelnames.size(), part.channels.size());
    for (const Channel& channel : part.channels) {
      const int c = spec.channelindex(channel.name);
      EXPECT_EQ(spec.channelformat(c), channel.type == Type::half ? OIIO::TypeHalf : OIIO::TypeFloat);
      for (int y = 0; y < spec.height; ++y)
        for (int x = 0; x < spec.width; ++x)
          ASSERT_EQ(stored.getchannel(spec.x + x, spec.y + y, 0, c),
                    channel.first[y * channel.row + x * channel.pixel]);
    }
  }
}

}  // namespace
