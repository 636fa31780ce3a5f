#include "host/decode/sources.h"
#include "tests/host/render/scene.h"
#include "tests/support/error.h"
#include "tests/support/files.h"
#include "tests/support/images.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include <OpenImageIO/deepdata.h>
#include <gtest/gtest.h>

// What is read of a file, against files made by the image library itself.

namespace {

using host::decode::Decoder;
using host::decode::Pixels;
using host::plates::Headers;
using host::plates::Source;
using Rgba = std::array<float, 4>;

struct Part {
  std::string name;
  std::vector<std::string> channels;
};

// Parts of one row; channel c of part p has 100 p + 10 + c in its first pixel.
std::string write_parts(const std::string& name, const std::vector<Part>& parts) {
  std::vector<OIIO::ImageSpec> specs;
  for (const Part& part : parts) {
    specs.emplace_back(3, 1, static_cast<int>(part.channels.size()), OIIO::TypeFloat);
    specs.back().channelnames = part.channels;
    if (!part.name.empty()) specs.back().attribute("oiio:subimagename", part.name);
  }
  return support::write_image(scene::folder() / name, specs, [&](OIIO::ImageOutput& output, size_t p) {
    std::vector<float> pixels;
    for (int i = 0; i < 3 * specs[p].nchannels; ++i)
      pixels.push_back(static_cast<float>(p) * 100 + 10 + static_cast<float>(i));
    return output.write_image(OIIO::TypeFloat, pixels.data());
  });
}

struct Read {
  Rgba first{};
  bool coverage = false;
  std::string error;
};

Read read(const Source& source) {
  Headers headers;
  host::Notices notices;
  Decoder decoder(headers, 2, 1 << 20, notices);
  Read result;
  result.error = support::error_of([&] {
    const Pixels pixels = decoder.take(source);
    std::copy_n(pixels.rgba.get(), 4, result.first.begin());
    result.coverage = headers.layer(source).coverage;
  });
  return result;
}

// A white file of which so many bytes at the end are missing, or are more.
std::string write_white(const std::string& name, const std::string& compression, int more) {
  OIIO::ImageSpec spec(64, 64, 3, OIIO::TypeUInt8);
  if (!compression.empty()) spec.attribute("compression", compression);
  const std::string path =
      support::write_image(scene::folder() / name, spec, std::vector<float>(64 * 64 * 3, 1.0F));
  std::string bytes = support::bytes_of(path);
  bytes.resize(bytes.size() + static_cast<size_t>(more), 'x');
  support::write_bytes(path, bytes);
  return path;
}

// Every way to read: plain files through the scheduler, layers through the layer reader, the rest through the
// general one. What the file has no channel for stays what it is.
TEST(Layers, AreFoundByPartByLayerAndByChannel) {
  const std::string eyes = write_parts("eyes.exr", {{"right", {"R", "G", "B", "A", "Z"}},
                                                    {"left", {"R", "G", "B", "A", "Z", "N.X", "N.Y", "N.Z"}},
                                                    {"ids", {"id.p", "id.q"}}});
  const std::string views = write_parts(
      "views.exr", {{"rgba", {"R", "G", "B", "A", "Z", "left.A", "left.B", "left.G", "left.R", "left.Z"}}});
  const std::string late = write_parts("late.exr", {{"depth", {"Z"}}, {"beauty", {"R", "G", "B"}}});
  const auto one = [](const std::vector<std::string>& channels) {
    return write_parts("one " + testing::PrintToString(channels) + ".exr", {{"", channels}});
  };
  const std::string many = one({"R", "G", "B", "A", "depth.Z", "key.B", "key.G", "key.R"});
  const struct {
    std::string path, layer;
    std::vector<std::string> channels;
    Rgba first;
    bool coverage;
    std::string error = "";
  } cases[] = {
      {eyes, "", {}, {10, 11, 12, 13}, true, ""},
      {eyes, "left", {}, {110, 111, 112, 113}, true, ""},
      {eyes, "left.Z", {}, {114, 114, 114, 1}, false, ""},
      {eyes, "N", {}, {115, 116, 117, 1}, false, ""},
      {eyes, "left.N", {}, {115, 116, 117, 1}, false, ""},
      {eyes, "ids", {}, {210, 211, 0, 1}, false, ""},
      {eyes, "id", {}, {210, 211, 0, 1}, false, ""},
      {eyes, "Z", {}, {}, false, R"(layer "Z" may be any of "right.Z", "left.Z")"},
      {eyes, "Y", {}, {}, false, R"(no layer "Y"; it has "right", "right.Z", "left", "left.N", )"},
      {eyes, "", {"N.Z"}, {117, 117, 117, 1}, false, ""},
      {eyes, "", {"left.Z"}, {114, 114, 114, 1}, false, ""},
      {eyes, "left", {"Z", "R"}, {114, 110, 0, 1}, false, ""},
      {eyes, "left", {"B", "G", "R", "A"}, {112, 111, 110, 113}, true, ""},
      {eyes, "left", {"R", "G", "B", "Z"}, {110, 111, 112, 114}, false, ""},
      {eyes, "", {"R"}, {}, false, R"(channel "R" may be any of "right.R", "left.R")"},
      {eyes, "left", {"W"}, {}, false, R"(has no channel "W"; it has "left.R", )"},
      {eyes, "", {"right.R", "left.R"}, {}, false, "lie in several parts"},
      {views, "", {}, {10, 11, 12, 13}, true, ""},
      {views, "left", {}, {18, 17, 16, 15}, true, ""},
      {views, "Z", {}, {14, 14, 14, 1}, false, ""},
      {views, "", {"left.Z"}, {19, 19, 19, 1}, false, ""},
      {late, "", {}, {110, 111, 112, 1}, false, ""},
      {late, "depth", {}, {10, 10, 10, 1}, false, ""},
      {one({"R", "G", "B", "A"}), "", {}, {10, 11, 12, 13}, true, ""},
      {one({"R", "G", "B"}), "", {}, {10, 11, 12, 1}, false, ""},
      {one({"Y"}), "", {}, {10, 10, 10, 1}, false, ""},
      {one({"Y", "A"}), "", {}, {10, 10, 10, 11}, true, ""},
      {one({"A"}), "", {}, {10, 10, 10, 10}, false, ""},
      {many, "key", {}, {17, 16, 15, 1}, false, ""},
      {many, "depth", {}, {14, 14, 14, 1}, false, ""},
      {one({"R", "G", "B", "key.A"}), "key", {}, {13, 13, 13, 13}, false, ""},
      {one({"R", "v.X", "v.Y", "v.Z", "v.W"}), "v", {}, {11, 12, 13, 1}, false, ""},
      {one({"sun.R", "sun.G", "sun.B", "air.R", "air.G", "air.B"}), "", {}, {13, 14, 15, 1}, false, ""},
      {write_white("more.jpg", "", 50), "", {}, {1, 1, 1, 1}, false, ""},
      {write_white("more.tif", "zip", 50), "", {}, {1, 1, 1, 1}, false, ""},
      {write_white("cut.jpg", "", -10), "", {}, {}, false, "cut.jpg: ends before its image does"},
      {write_white("zip.tif", "zip", -10), "", {}, {}, false, "zip.tif: ends before its image does"},
      {write_white("lzw.tif", "lzw", -10), "", {}, {}, false, "lzw.tif: ends before its image does"},
      {write_white("none.tif", "none", -10), "", {}, {}, false, "none.tif: ends before its image does"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.path + " " + each.layer + " " + testing::PrintToString(each.channels));
    const Read found = read({each.path, each.layer, each.channels});
    EXPECT_NE(found.error.find(each.error), std::string::npos) << found.error;
    EXPECT_EQ(found.error.empty(), each.error.empty()) << found.error;
    // The reader orders channels as colour first; names, not places, must lead to them.
    EXPECT_EQ(found.first, each.first);
    EXPECT_EQ(found.coverage, each.coverage);
  }
}

std::string write_deep() {
  OIIO::ImageSpec spec(2, 1, 2, OIIO::TypeFloat);
  spec.channelnames = {"A", "Z"};
  spec.deep = true;
  OIIO::DeepData pixels(spec);
  pixels.set_samples(0, 2);
  return support::write_image(scene::folder() / "deep.exr", {spec}, [&](OIIO::ImageOutput& output, size_t) {
    return output.write_deep_image(pixels);
  });
}

TEST(Layers, ThatCannotBeReadSaySoByTheHeaderAlone) {
  EXPECT_NE(read({write_deep(), "", {}}).error.find("deep.exr: its image is deep"), std::string::npos);
  const std::string fits = write_parts("fits.exr", {{"", {"R", "G", "B"}}});
  Headers wide, narrow;
  wide.hold_to(3);
  narrow.hold_to(2);
  EXPECT_EQ(wide.layer({fits, "", {}}).channels[2], 2);
  EXPECT_EQ(support::error_of([&] {
              narrow.layer({fits, "", {}});
            }),
            fits + ": an image of 3 x 1 pixels is larger than the device's textures");
}

TEST(Ids, AreTheNumbersThemselvesAndSayWhereAFloatEnds) {
  const std::vector<uint32_t> ids = {0, 1, 7, 8388609, 16777215, 16777216, 16777217, 4294967295};
  OIIO::ImageSpec spec(8, 1, 1, OIIO::TypeUInt32);
  spec.channelnames = {"id"};
  const std::string path = support::write_image(scene::folder() / "ids.exr", spec, ids, OIIO::TypeUInt32);
  Headers headers;
  host::Notices notices;
  Decoder decoder(headers, 1, 1 << 20, notices);
  const Pixels pixels = decoder.take({path, "", {}});
  for (size_t i = 0; i < ids.size(); ++i) {
    EXPECT_EQ(pixels.rgba.get()[i * 4], static_cast<float>(ids[i]));
    EXPECT_EQ(pixels.rgba.get()[i * 4 + 3], 1.0F);
  }
  EXPECT_FALSE(headers.layer({path, "", {}}).coverage);
  EXPECT_EQ(notices.take(), std::vector<std::string>{
                                path + ": 2 pixels hold whole numbers above 16777216, which are rounded"});
}

TEST(Colors, AreSrgbInWholeNumbersUnlessTheFileSaysOtherwise) {
  const struct {
    const char *name, *color;
    OIIO::TypeDesc type = OIIO::TypeUInt8;
    const char *attribute = "", *value = "";
  } cases[] = {
      {"c8.tif", "sRGB"},
      {"c.tga", "sRGB"},
      {"c.dpx", "sRGB"},
      {"l.dpx", "linear", OIIO::TypeUInt16, "dpx:Transfer", "Linear"},
      {"k.dpx", "KodakLog", OIIO::TypeUInt16, "oiio:ColorSpace", "KodakLog"},
      {"c.png", "sRGB"},
      {"l.png", "linear", OIIO::TypeUInt8, "oiio:ColorSpace", "Linear"},
      {"g.png", "sRGB", OIIO::TypeUInt8, "oiio:ColorSpace", "Gamma2.2"},
      {"c.exr", "linear", OIIO::TypeHalf},
  };
  for (const auto& each : cases) {
    OIIO::ImageSpec spec(4, 4, 3, each.type);
    if (*each.attribute) spec.attribute(each.attribute, each.value);
    if (std::string(each.value) == "Gamma2.2") spec.attribute("oiio:Gamma", 2.2F);
    const std::string path =
        support::write_image(scene::folder() / each.name, spec, std::vector<float>(48, 0.5F));
    EXPECT_EQ(Headers().get(path)->color.name, each.color) << each.name;
  }
}

TEST(Decoder, DecodesOnceWhatSeveralNodesWant) {
  const std::string plain = write_parts("plain.exr", {{"", {"R", "G", "B", "A"}}});
  const std::string grey = write_parts("grey.exr", {{"", {"Y"}}});
  for (const std::string& path : {plain, grey}) {
    Headers headers;
    host::Notices notices;
    Decoder decoder(headers, 2, 1 << 20, notices);
    const Source source = {path, "", {}};
    const host::decode::Wanted wanted[] = {{source, 0}, {source, 0}, {source, 1}};
    decoder.want(wanted);
    const Pixels first = decoder.take(source);
    EXPECT_EQ(decoder.take(source).rgba, first.rgba) << path;
    EXPECT_EQ(decoder.stats().files, 1) << path;
    // Nobody else was announced: it is not kept.
    EXPECT_NE(decoder.take(source).rgba, first.rgba) << path;
  }
}

}  // namespace
