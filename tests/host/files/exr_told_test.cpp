#include "host/plates/exr_told.h"

#include "host/general/general.h"
#include "tests/host/render/scene.h"
#include "tests/support/images.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// What an EXR file says of itself is the same, whether OpenImageIO has read it or not.

namespace {

using host::plates::FileTold;
using host::plates::PartInfo;
using Change = std::function<void(OIIO::ImageSpec&)>;

Change texts(const std::string& name, const std::string& text) {
  return [=](OIIO::ImageSpec& spec) { spec.attribute(name, text); };
}

Change aspect(float value) {
  return [=](OIIO::ImageSpec& spec) { spec.attribute("PixelAspectRatio", value); };
}

struct Case {
  std::string what;
  std::vector<Change> parts;  // a part each
};

const std::vector<Case> cases = {
    {"nothing beside the pixels", {[](OIIO::ImageSpec&) {}}},
    {"a crop", {[](OIIO::ImageSpec& spec) { spec.x = 1, spec.full_width = 9, spec.full_y = -4; }}},
    {"tiles", {[](OIIO::ImageSpec& spec) { spec.tile_width = spec.tile_height = 16; }}},
    {"whole numbers", {[](OIIO::ImageSpec& spec) { spec.set_format(OIIO::TypeUInt32); }}},
    {"whole numbers beside halves", {[](OIIO::ImageSpec& spec) {
       spec.channelformats = {OIIO::TypeUInt32, OIIO::TypeHalf, OIIO::TypeUInt32, OIIO::TypeUInt32};
     }}},
    {"pixels twice as wide", {aspect(2)}},
    {"the note of an encoded picture", {texts("ImageDescription", "colour: sRGB\nof a day")}},
    {"the note of a linear one", {texts("ImageDescription", "colour: linear")}},
    {"a text that is no note", {texts("ImageDescription", "colour: unknown")}},
    {"a colour space", {texts("oiio:ColorSpace", "ACEScg")}},
    {"that of a screen", {texts("oiio:ColorSpace", "sRGB")}},
    {"a newer name", {texts("oiio:ColorSpace", "lin_rec709_scene")}},
    {"that of a gamma", {texts("oiio:ColorSpace", "g22_rec709_scene")}},
    {"parts with names", {texts("oiio:subimagename", "left"), texts("oiio:subimagename", "right")}},
};

std::string write(const Case& file) {
  std::vector<OIIO::ImageSpec> specs;
  for (const Change& change : file.parts) {
    specs.emplace_back(4, 3, 4, OIIO::TypeHalf);
    specs.back().attribute("oiio:subimagename", "only");
    change(specs.back());
  }
  const std::vector<float> pixels(4 * 3 * 4, 0.5F);
  return support::write_image(scene::folder() / "told.exr", specs, [&](OIIO::ImageOutput& output, size_t) {
    return output.write_image(OIIO::TypeFloat, pixels.data());
  });
}

std::string text_of(const PartInfo& part) {
  const auto window = [](const host::plates::FileWindow& each) {
    return std::to_string(each.x) + " " + std::to_string(each.y) + " " + std::to_string(each.width) + " " +
           std::to_string(each.height) + ", ";
  };
  std::string text = part.name + ": " + window(part.data) + window(part.display) +
                     std::to_string(part.pixel_aspect) + ", " + part.compression + ", " +
                     std::to_string(part.tile_width) + " " + std::to_string(part.tile_height) +
                     (part.deep ? ", deep" : "");
  for (const PartInfo::Channel& channel : part.channels) text += ", " + channel.name + " " + channel.type;
  return text + "\n";
}

std::string text_of(const FileTold& told) {
  std::string text = told.format + ", " + told.color.name + ", because " + told.color.why +
                     (told.plain ? ", plain\n" : "\n");
  for (const PartInfo& part : told.parts) text += text_of(part);
  return text;
}

TEST(ExrTold, IsWhatTheGeneralReaderTells) {
  for (const Case& each : cases) {
    const std::string path = write(each);
    const auto file = qv::io::ExrFile::open(path);
    ASSERT_TRUE(file) << each.what;
    std::string error;
    const auto general = host::general::library().open(path, error);
    ASSERT_TRUE(general) << each.what << ": " << error;
    EXPECT_EQ(text_of(host::plates::told_by(*file, 1000)), text_of(general->told(1000))) << each.what;
  }
}

}  // namespace
