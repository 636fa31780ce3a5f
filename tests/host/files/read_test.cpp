#include "host/plates/sources.h"
#include "tests/host/render/scene.h"
#include "tests/support/error.h"
#include "tests/support/files.h"
#include "tests/support/images.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <OpenImageIO/deepdata.h>
#include <gtest/gtest.h>

// What is read of a file, against files made by the image library itself.

namespace {

using host::plates::Decoder;
using host::plates::Headers;
using host::plates::Pixels;
using host::plates::Source;
using Rgba = std::array<float, 4>;

struct Part {
  std::string name;
  std::vector<std::string> channels;
};

// Parts of one row; channel c of part p has 100 p + c in its first pixel.
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
      pixels.push_back(static_cast<float>(p) * 100 + static_cast<float>(i));
    return output.write_image(OIIO::TypeFloat, pixels.data());
  });
}

struct Read {
  Rgba first{};  // and the last less the first
  Rgba step{};
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
    for (size_t c = 0; c < 4; ++c) result.step[c] = pixels.rgba.get()[8 + c] - pixels.rgba.get()[c];
    result.coverage = headers.layer(source).coverage;
  });
  return result;
}

TEST(Layers, AreFoundByPartByLayerAndByChannel) {
  const std::string eyes = write_parts("eyes.exr", {{"right", {"R", "G", "B", "A", "Z"}},
                                                    {"left", {"R", "G", "B", "A", "Z", "N.X", "N.Y", "N.Z"}},
                                                    {"ids", {"id.p", "id.q"}}});
  const std::string views = write_parts(
      "views.exr", {{"rgba", {"R", "G", "B", "A", "Z", "left.A", "left.B", "left.G", "left.R", "left.Z"}}});
  const std::string late = write_parts("late.exr", {{"depth", {"Z"}}, {"beauty", {"R", "G", "B"}}});
  const struct {
    std::string path, layer;
    std::vector<std::string> channels;
    Rgba first;
    bool coverage;
    std::string error = "";
  } cases[] = {
      {eyes, "", {}, {0, 1, 2, 3}, true, ""},
      {eyes, "right", {}, {0, 1, 2, 3}, true, ""},
      {eyes, "left", {}, {100, 101, 102, 103}, true, ""},
      {eyes, "left.Z", {}, {104, 104, 104, 1}, false, ""},
      {eyes, "right.Z", {}, {4, 4, 4, 1}, false, ""},
      {eyes, "N", {}, {105, 106, 107, 1}, false, ""},
      {eyes, "left.N", {}, {105, 106, 107, 1}, false, ""},
      {eyes, "ids", {}, {200, 201, 0, 1}, false, ""},
      {eyes, "id", {}, {200, 201, 0, 1}, false, ""},
      {eyes, "Z", {}, {}, false, R"(layer "Z" may be any of "right.Z", "left.Z")"},
      {eyes, "Y", {}, {}, false, R"(no layer "Y"; it has "right", "right.Z", "left", "left.N", )"},
      {eyes, "", {"N.Z"}, {107, 107, 107, 1}, false, ""},
      {eyes, "", {"left.Z"}, {104, 104, 104, 1}, false, ""},
      {eyes, "left", {"Z", "R"}, {104, 100, 0, 1}, false, ""},
      {eyes, "left", {"B", "G", "R", "A"}, {102, 101, 100, 103}, true, ""},
      {eyes, "left", {"R", "G", "B", "Z"}, {100, 101, 102, 104}, false, ""},
      {eyes, "", {"R"}, {}, false, R"(channel "R" may be any of "right.R", "left.R")"},
      {eyes, "left", {"W"}, {}, false, R"(has no channel "W"; it has "left.R", )"},
      {eyes, "", {"right.R", "left.R"}, {}, false, "lie in several parts"},
      {views, "", {}, {0, 1, 2, 3}, true, ""},
      {views, "rgba", {}, {0, 1, 2, 3}, true, ""},
      {views, "left", {}, {8, 7, 6, 5}, true, ""},
      {views, "rgba.left", {}, {8, 7, 6, 5}, true, ""},
      {views, "Z", {}, {4, 4, 4, 1}, false, ""},
      {views, "", {"left.Z"}, {9, 9, 9, 1}, false, ""},
      {late, "", {}, {100, 101, 102, 1}, false, ""},
      {late, "depth", {}, {0, 0, 0, 1}, false, ""},
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

// Every way to read: plain files through the scheduler, layers through the layer reader, the rest through
// the general one. What the file has no channel for stays what it is.
TEST(Layers, OfOnePartAreFoundByTheNamesOfChannels) {
  const std::vector<std::string> many = {"R", "G", "B", "A", "depth.Z", "key.B", "key.G", "key.R"};
  const struct {
    const char* what;
    std::vector<std::string> channels;
    const char* layer;
    Rgba first;
    const char* from_file;  // channels
    bool coverage;
  } cases[] = {
      {"plain", {"R", "G", "B", "A"}, "", {0, 1, 2, 3}, "rgba", true},
      {"without alpha", {"R", "G", "B"}, "", {0, 1, 2, 1}, "rgb", false},
      {"grey", {"Y"}, "", {0, 0, 0, 1}, "rgb", false},
      {"grey with alpha", {"Y", "A"}, "", {0, 0, 0, 1}, "rgba", true},
      {"matte alone", {"A"}, "", {0, 0, 0, 0}, "rgba", false},
      {"main of many", many, "", {0, 1, 2, 3}, "rgba", true},
      {"layer", many, "key", {7, 6, 5, 1}, "rgb", false},
      {"one channel", many, "depth", {4, 4, 4, 1}, "rgb", false},
      {"matte of a layer", {"R", "G", "B", "key.A"}, "key", {3, 3, 3, 3}, "rgba", false},
      {"motion", {"R", "G", "B", "A", "motion.X", "motion.Y"}, "motion", {4, 5, 0, 1}, "rg", false},
      {"motion and back", {"R", "v.X", "v.Y", "v.Z", "v.W"}, "v", {1, 2, 3, 1}, "rgb", false},
      {"named alone", {"sun.R", "sun.G", "sun.B", "air.R", "air.G", "air.B"}, "", {3, 4, 5, 1}, "rgb", false},
  };
  for (const auto& each : cases) {
    const Read found = read({write_parts("channels.exr", {{"", each.channels}}), each.layer, {}});
    EXPECT_EQ(found.first, each.first) << each.what << found.error;
    Rgba step{};
    for (const char* c = each.from_file; *c; ++c)
      step[std::string("rgba").find(*c)] = static_cast<float>(2 * each.channels.size());
    EXPECT_EQ(found.step, step) << each.what;
    EXPECT_EQ(found.coverage, each.coverage) << each.what;
  }
}

// A file of one row of half pixels whose header is then said to be wider.
std::string write_wide(int width) {
  const OIIO::ImageSpec spec(4, 1, 4, OIIO::TypeHalf);
  const std::string path =
      support::write_image(scene::folder() / "wide.exr", spec, std::vector<float>(16, 0.5F));
  std::string bytes = support::bytes_of(path);
  const int last = width - 1;
  for (const std::string window : {"dataWindow", "displayWindow"})
    std::memcpy(&bytes[bytes.find(window + '\0' + "box2i") + window.size() + 1 + 6 + 4 + 8], &last,
                sizeof last);
  return support::write_bytes(path, bytes);
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

std::unique_ptr<Headers> held_to(int64_t most_side) {
  auto headers = std::make_unique<Headers>();
  headers->hold_to(most_side);
  return headers;
}

TEST(Layers, ThatCannotBeReadSaySoByTheHeaderAlone) {
  EXPECT_NE(read({write_deep(), "", {}}).error.find("deep.exr: its image is deep"), std::string::npos);
  const std::string wide = write_wide(800000);
  const std::string said = support::error_of([&] { held_to(32768)->layer({wide, "", {}}); });
  EXPECT_EQ(said, wide + ": an image of 800000 x 1 pixels is larger than the device's textures");
  const std::string fits = write_parts("fits.exr", {{"", {"R", "G", "B"}}});
  EXPECT_EQ(held_to(3)->layer({fits, "", {}}).channels[2], 2);
  EXPECT_THROW(held_to(2)->layer({fits, "", {}}), std::runtime_error);
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
      {"c16.tif", "sRGB", OIIO::TypeUInt16},
      {"cf.tif", "linear", OIIO::TypeFloat},
      {"c.tga", "sRGB"},
      {"c.bmp", "sRGB"},
      {"c.dpx", "sRGB"},
      {"l.dpx", "linear", OIIO::TypeUInt16, "dpx:Transfer", "Linear"},
      {"k.dpx", "KodakLog", OIIO::TypeUInt16, "oiio:ColorSpace", "KodakLog"},
      {"c.png", "sRGB"},
      {"l.png", "linear", OIIO::TypeUInt8, "oiio:ColorSpace", "Linear"},
      {"g.png", "sRGB", OIIO::TypeUInt8, "oiio:ColorSpace", "Gamma2.2"},
      {"c.exr", "linear", OIIO::TypeHalf},
      {"c.jpg", "sRGB"},
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
    const host::plates::Wanted wanted[] = {{source, 0}, {source, 0}, {source, 1}};
    decoder.want(wanted);
    const Pixels first = decoder.take(source);
    EXPECT_EQ(decoder.take(source).rgba, first.rgba) << path;
    EXPECT_EQ(decoder.stats().files, 1) << path;
    // Nobody else was announced: it is not kept.
    EXPECT_NE(decoder.take(source).rgba, first.rgba) << path;
  }
}

}  // namespace
