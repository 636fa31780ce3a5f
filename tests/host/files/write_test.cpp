#include "host/files/encode.h"
#include "host/files/image_writer.h"
#include "host/plates/headers.h"
#include "tests/host/render/scene.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

namespace {

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

WriteJob job_of(const OutputFile& file, const std::vector<float>& rgba) {
  const std::shared_ptr<float[]> pixels(new float[rgba.size()]);
  std::copy(rgba.begin(), rgba.end(), pixels.get());
  WriteJob job;
  job.file = file;
  const auto height = static_cast<int64_t>(rgba.size()) / 4 / width;
  job.extent = {{width, height, 1.0}, {0, 0, width, height}};
  job.rgba = pixels;
  return job;
}

WriteResult write(const OutputFile& file, const std::vector<float>& rgba) {
  WriteResult result;
  host::files::ImageWriter writer(1, 1, [&](const WriteResult& ended) { result = ended; });
  writer.put(job_of(file, rgba));
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

TEST(Writer, EveryKindOfFileHoldsWhatWasAsked) {
  int files = 0;
  for (const std::string ending : {".exr", ".png", ".tif"}) {
    for (const Depth depth :
         {Depth::automatic, Depth::half, Depth::float32, Depth::integer8, Depth::integer16}) {
      for (const Color color : {Color::automatic, Color::linear, Color::srgb}) {
        for (const bool alpha : {true, false}) {
          OutputFile file;
          file.path = (scene::folder() / ("w" + std::to_string(files) + ending)).string();
          file.depth = depth;
          file.color = color;
          file.alpha = alpha;
          const WriteResult result = write(file, picture);
          if (!host::files::wrong_setting(file).empty()) {
            EXPECT_NE(result.error, "");
            continue;
          }
          ++files;
          const std::string what = file.path + " depth " + std::to_string(static_cast<int>(depth)) +
                                   " color " + std::to_string(static_cast<int>(color)) + " alpha " +
                                   std::to_string(alpha);
          ASSERT_EQ(result.error, "") << what;
          const bool png = ending == ".png";
          const bool srgb = color == Color::srgb || (color == Color::automatic && png);
          EXPECT_EQ(host::plates::Headers().get(file.path)->color, srgb ? "sRGB" : "linear") << what;
          OIIO::ImageSpec raw;
          raw.attribute("oiio:UnassociatedAlpha", 1);
          const auto input = OIIO::ImageInput::open(file.path, &raw);
          ASSERT_TRUE(input) << what << OIIO::geterror();
          const auto channels = static_cast<size_t>(input->spec().nchannels);
          ASSERT_EQ(channels, alpha ? 4U : 3U) << what;
          std::vector<float> stored(picture.size() / 4 * channels);
          ASSERT_TRUE(input->read_image(0, 0, 0, static_cast<int>(channels), OIIO::TypeFloat, stored.data()))
              << what;
          const bool integers = !input->spec().format.is_floating_point();
          const double step = input->spec().format == OIIO::TypeUInt8    ? 0.51 / 255
                              : input->spec().format == OIIO::TypeUInt16 ? 0.51 / 65535
                              : input->spec().format == OIIO::TypeHalf   ? 0.0005
                                                                         : 1e-6;
          for (size_t i = 0; i < stored.size(); ++i) {
            double value = expected(&picture[i / channels * 4], i % channels, file, srgb, png);
            if (integers) value = std::clamp(value, 0.0, 1.0);
            EXPECT_NEAR(static_cast<double>(stored[i]), value, step) << what << " value " << i;
          }
        }
      }
    }
  }
  EXPECT_EQ(files, 6 * (3 + 3 + 4));
}

TEST(Writer, RefusesWhatAFileTypeDoesNotHave) {
  const struct {
    const char* path;
    Depth depth;
    const char* compression;
    const char* message;
  } cases[] = {
      {"a.exr", Depth::integer8, "",
       R"(knob "depth": .exr files have no "8"; they have "auto", "half", "float")"},
      {"a.png", Depth::half, "", R"(knob "depth": .png files have no "half"; they have "auto", "8", "16")"},
      {"a.tif", Depth::half, "", R"(they have "auto", "8", "16", "float")"},
      {"a.exr", Depth::half, "lzw",
       R"(knob "compression": .exr files have no "lzw"; they have "none", "rle", )"},
      {"a.exr", Depth::half, "piz:3", R"(.exr files have no "piz:3")"},
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
    const WriteResult result = write(file, picture);
    EXPECT_EQ(result.error.empty(), reason.empty()) << result.error;
    if (!reason.empty() || !*each.compression) continue;
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

}  // namespace
