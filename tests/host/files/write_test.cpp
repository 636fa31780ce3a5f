#include "host/plates/headers.h"
#include "host/writer/exr/part.h"
#include "host/writer/image_writer.h"
#include "tests/host/render/scene.h"
#include "tests/support/allocations.h"
#include "tests/support/files.h"
#include "tests/support/images.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using host::writer::OutputFile;
using host::writer::WriteJob;
using host::writer::WriteResult;
using Depth = OutputFile::Depth;

// Premultiplied: over nothing, at a quarter, at a half and whole; light without coverage at the end.
const std::vector<scene::Rgba> colors = {
    {0, 0, 0, 0},           {0.05F, 0.125F, 0.2F, 0.25F}, {0.001F, 0.25F, 0.5F, 0.5F}, {1, 0.75F, 0.5F, 1},
    {0.2F, 0.4F, 0.01F, 1}, {0.3F, 0.3F, 0.3F, 0.75F},    {0.1F, 0.2F, 0.3F, 0},       {0.9F, 0, 0.1F, 1}};
constexpr int block = 16;  // pixels of one colour, which JPEG keeps apart

double encoded(double x) {
  return x <= 0.0031308 ? x * 12.92 : 1.055 * std::pow(x, 1 / 2.4) - 0.055;
}

struct Kind {
  std::string ending, depth;
  int bits;        // of a channel
  double off = 0;  // how far values may be; 0: half a step of whole numbers
};
const std::vector<Kind> kinds = {{".exr", "auto", 16, 5e-4},
                                 {".exr", "float", 32, 1e-6},
                                 {".png", "auto", 8},
                                 {".png", "16", 16},
                                 {".tif", "auto", 16},
                                 {".tif", "8", 8},
                                 {".tif", "float", 32, 1e-6},
                                 {".dpx", "auto", 10, 1.0 / 1023},
                                 {".dpx", "8", 8},
                                 {".dpx", "12", 12, 1.0 / 4095},
                                 {".dpx", "16", 16},
                                 {".jpg", "auto", 8, 4.0 / 255}};

// What a file is to hold of a pixel's channel.
double expected(const scene::Rgba& pixel, size_t channel, bool has_alpha, bool srgb, bool png) {
  const double alpha = has_alpha ? static_cast<double>(pixel[3]) : 1.0;
  if (channel == 3) return alpha;
  const double cover = alpha != 0 ? alpha : 1.0;
  double value = static_cast<double>(pixel[channel]) / cover;
  if (srgb) value = encoded(value);
  return png ? value : value * cover;
}

void check_stored(const std::string& file, const Kind& kind, bool alpha, bool srgb) {
  SCOPED_TRACE(file);
  const std::string path = (scene::folder() / file).string();
  EXPECT_EQ(host::plates::Headers().get(path)->color.name, srgb ? "sRGB" : "linear");
  OIIO::ImageSpec as_stored;
  as_stored.attribute("oiio:UnassociatedAlpha", 1);
  const OIIO::ImageBuf image(path, 0, 0, nullptr, &as_stored);
  const OIIO::ImageSpec& spec = image.nativespec();
  EXPECT_EQ(OIIO::ImageInput::open(path)->spec().get_string_attribute("DateTime"), "");
  ASSERT_EQ(spec.nchannels, alpha ? 4 : 3);
  EXPECT_EQ(spec.get_int_attribute("oiio:BitsPerSample", static_cast<int>(spec.format.size()) * 8),
            kind.bits);
  const double off = kind.off > 0 ? kind.off : 0.51 / (std::exp2(kind.bits) - 1);
  for (int i = 0; i < 8 * spec.nchannels; ++i) {
    const int at = i / spec.nchannels, c = i % spec.nchannels;
    const auto& color = colors.at(static_cast<size_t>(at));
    double value = expected(color, static_cast<size_t>(c), alpha, srgb, kind.ending == ".png");
    if (!spec.format.is_floating_point()) value = std::clamp(value, 0.0, 1.0);
    const int x = at % 4 * block + block / 2, y = at / 4 * block + block / 2;
    EXPECT_NEAR(static_cast<double>(image.getchannel(x, y, 0, c)), value, off) << at << ", " << c;
  }
}

// As another reader sees it; the time of day would make the same image another file.
TEST(Writer, EveryKindOfFileHoldsWhatWasAsked) {
  scene::Plate plate{4 * block, 2 * block};
  for (int i = 0; i < plate.width * plate.height; ++i) {
    const int x = i % plate.width, y = i / plate.width;
    const auto& color = colors.at(static_cast<size_t>(y / block * 4 + x / block));
    plate.pixels.insert(plate.pixels.end(), color.begin(), color.end());
  }
  scene::write_plate("colors.exr", plate);
  std::string nodes =
      scene::read_plate("colors.exr", "c") + scene::node("p", "c", "metadata", R"("drop": "*")");
  std::vector<std::function<void()>> checks;
  for (const Kind& kind : kinds) {
    const bool shown = kind.ending == ".png" || kind.ending == ".jpg";
    for (const std::string channels : {"rgba", "rgb"}) {
      for (const std::string color : {"auto", "linear", "srgb"}) {
        const bool alpha = channels == "rgba", srgb = color == "srgb" || (shown && color == "auto");
        if (alpha && kind.ending == ".jpg") continue;
        const std::string file = kind.depth + channels + color + kind.ending;
        nodes += scene::write_node("p", file,
                                   R"("depth": ")" + kind.depth + R"(", "channels": ")" + channels +
                                       R"(", "color": ")" + color + '"');
        checks.emplace_back([=] { check_stored(file, kind, alpha, srgb); });
      }
    }
  }
  nodes += scene::write_node("p", "small.jpeg", R"("channels": "rgb", "quality": 20)") +
           scene::write_node("p", "none.tif", R"("compression": "none")") +
           scene::node("matte", "p", "range_key", R"("channel": "alpha", "output": "matte")") +
           scene::write_node("matte", "matte.png", R"("color": "linear")");
  scene::render(nodes, plate.width, plate.height);
  for (const auto& check : checks) check();
  const auto size = [](const char* file) { return fs::file_size(scene::folder() / file); };
  EXPECT_LT(size("small.jpeg"), size("autorgbauto.jpg"));
  EXPECT_GT(size("none.tif"), size("autorgbaauto.tif"));
  // What is no coverage divides nothing: the matte is stored as it is, and multiplied by itself when it is
  // read.
  const OIIO::ImageBuf matte((scene::folder() / "matte.png").string());
  const float alpha = matte.getchannel(2 * block, 0, 0, 3);
  EXPECT_LT(alpha, 1.0F);
  EXPECT_NEAR(matte.getchannel(2 * block, 0, 0, 0), alpha * alpha, 0.01);
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

// Every way to store an EXR, by one, two and three threads, against the files of OpenImageIO's writer.
TEST(Writer, ExrIsWhatOpenImageIoMakesOfItWhateverTheThreads) {
  std::vector<std::string> compressions = {"", "zip:1", "zip:9", "zips:6", "dwaa:100"};
  compressions.insert(compressions.end(), host::writer::exr::codec_names.begin(),
                      host::writer::exr::codec_names.end());
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
    host::writer::ImageWriter writer(4, threads, [&](const WriteResult& ended) {
      EXPECT_EQ(ended.error + ended.notice, "");
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
    using OIIO::ImageBufAlgo::computePixelHashSHA1;
    EXPECT_EQ(computePixelHashSHA1(OIIO::ImageBuf(ours)), computePixelHashSHA1(OIIO::ImageBuf(reference)));
    const std::vector<std::string> other = {"capDate", "dwaCompressionLevel (type float): 45"};
    EXPECT_EQ(scene::told("exrheader", ours, other), scene::told("exrheader", reference, other));
    scene::told("exrinfo -s", ours);
  }
  const auto size = [&first](const std::string& name) { return first.at(name + ".exr").size(); };
  EXPECT_LT(size("all_half_zip:9"), size("all_half_zip:1"));
  EXPECT_EQ(size("all_half_"), size("all_half_zip"));
  // Nothing makes noise smaller: it is stored as it is, in fewer chunks than without compression.
  EXPECT_LE(size("noise_float_zip"), size("noise_float_none"));
}

// The second frame of a size finds all the memory that it needs, but for what the file's stream has.
TEST(Writer, AllocatesNothingForTheNextFrame) {
  Plate plate = plate_of({{300, 200, 1.0}, {0, 0, 300, 200}}, false, true);
  plate.job.file.path = (scene::folder() / "next.exr").string();
  std::vector<size_t> largest;
  host::writer::ImageWriter writer(1, 1, [&](const WriteResult& ended) {
    EXPECT_GT(ended.bytes, 300000U);
    largest.push_back(support::allocations.largest.exchange(0));
  });
  for (int frame = 0; frame < 2; ++frame) writer.put(plate.job);
  writer.finish();
  EXPECT_GT(largest.at(0), 300000U);
  EXPECT_LE(largest.at(1), 8192U);
}

TEST(Writer, HoldsHalvesAtTheirLimitAndCountsWhatIsNoNumber) {
  constexpr float inf = std::numeric_limits<float>::infinity();
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<float> extreme = {65504, 1, 1, 1, 65505, 70000, 1, 1, -1e30F, 0, 0, 1, inf, -inf, nan, 1};
  WriteJob job;
  job.extent = {{4, 1, 1.0}, {0, 0, 4, 1}};
  job.rgba = {extreme.data(), [](const float*) {}};
  job.file.path = (scene::folder() / "extreme.exr").string();
  std::vector<std::string> notices;
  host::writer::ImageWriter writer(1, 1, [&](const WriteResult& ended) { notices.push_back(ended.notice); });
  for (const Depth depth : {Depth::float32, Depth::half}) {
    job.file.depth = depth;
    writer.put(job);
  }
  writer.finish();
  const std::string odd = "1 pixel is infinite; 1 pixel is not a number";
  const std::string held = "2 pixels lie beyond 65504, the most that a half holds, and are held there; ";
  EXPECT_EQ(notices, (std::vector{job.file.path + ": " + odd, job.file.path + ": " + held + odd}));
  const OIIO::ImageBuf stored(job.file.path);
  const std::vector<float> values = {65504, 1, 1, 1, 65504, 65504, 1, 1, -65504, 0, 0, 1, inf, -inf};
  for (int i = 0; i < 14; ++i)
    EXPECT_EQ(stored.getchannel(i / 4, 0, 0, i % 4), values.at(static_cast<size_t>(i)));
  EXPECT_TRUE(std::isnan(stored.getchannel(3, 0, 0, 2)));
}

}  // namespace
