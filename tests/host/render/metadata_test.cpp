#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"

#include <algorithm>

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfDoubleAttribute.h>
#include <OpenEXR/ImfFloatVectorAttribute.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfIO.h>
#include <OpenEXR/ImfIntAttribute.h>
#include <OpenEXR/ImfOutputFile.h>
#include <OpenEXR/ImfStandardAttributes.h>
#include <OpenEXR/ImfStringVectorAttribute.h>
#include <gtest/gtest.h>

namespace {
// A type that nobody else knows.
struct Odd {};
}  // namespace

template <>
const char* Imf::TypedAttribute<Odd>::staticTypeName() {
  return "an odd type";
}
template <>
void Imf::TypedAttribute<Odd>::writeValueTo(Imf::OStream& stream, int /*version*/) const {
  stream.write("\0\1x", 3);
}
template <>
void Imf::TypedAttribute<Odd>::readValueFrom(Imf::IStream& /*stream*/, int /*size*/, int /*version*/) {}

namespace {

namespace fs = std::filesystem;

// A file of OpenEXR's own library with an attribute of every type that it has for metadata.
void write_source(const fs::path& path) {
  Imf::Header header(8, 8);
  header.channels().insert("R", Imf::Channel(Imf::HALF));
  header.screenWindowCenter() = {0.25F, -1};
  Imf::addTimeCode(header, Imf::TimeCode(0x12345613, 0xfedcba98));
  Imf::addKeyCode(header, Imf::KeyCode(12, 34, 123456, 1234, 12, 4, 64));
  Imf::addFramesPerSecond(header, Imf::Rational(24000, 1001));
  Imf::addChromaticities(
      header, Imf::Chromaticities({0.713F, 0.293F}, {0.165F, 0.83F}, {0.128F, 0.044F}, {0.3F, 0.3F}));
  Imf::addWorldToCamera(header, Imath::M44f(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0.1F));
  Imf::addOwner(header, "a house");
  Imf::addEnvmap(header, Imf::ENVMAP_CUBE);
  Imf::addComments(header, "two\nlines");
  header.insert("a name that is longer than the thirty-one of old", Imf::StringAttribute(""));
  header.insert("box2f", Imf::Box2fAttribute({{0.5F, 1}, {2, 3}}));
  header.insert("box2i", Imf::Box2iAttribute({{-5, 1}, {2, 3}}));
  header.insert("double", Imf::DoubleAttribute(1.0 / 3));
  header.insert("int", Imf::IntAttribute(-2147483647));
  header.insert("m33d", Imf::M33dAttribute(Imath::M33d(1, 2, 3, 4, 5, 6, 7, 8, 0.1)));
  header.insert("m33f", Imf::M33fAttribute(Imath::M33f(1, 2, 3, 4, 5, 6, 7, 8, 0.1F)));
  header.insert("m44d", Imf::M44dAttribute(Imath::M44d(1.0 / 7)));
  header.insert("v2d", Imf::V2dAttribute({0.1, 2}));
  header.insert("v2f", Imf::V2fAttribute({0.1F, 2}));
  header.insert("v2i", Imf::V2iAttribute({1, -2}));
  header.insert("v3d", Imf::V3dAttribute({0.1, 2, 3}));
  header.insert("v3f", Imf::V3fAttribute({0.1F, 2, 3}));
  header.insert("v3i", Imf::V3iAttribute({1, 2, -3}));
  header.insert("floats", Imf::FloatVectorAttribute({0.5F, 1.5F, 1e30F}));
  header.insert("texts", Imf::StringVectorAttribute({"one", "", "three"}));
  header.insert("other", Imf::TypedAttribute<Odd>());
  std::vector<uint16_t> pixels(64);
  Imf::FrameBuffer buffer;
  buffer.insert("R", Imf::Slice(Imf::HALF, reinterpret_cast<char*>(pixels.data()), 2, 16));
  Imf::OutputFile file(path.c_str(), header);
  file.setFrameBuffer(buffer);
  file.writePixels(8);
}

// What a program says of a file, without what tells of storage and of our own name.
std::vector<std::string> told(const std::string& program, const char* file) {
  return scene::told(program, scene::folder() / file,
                     {"channel", "Software", "16-bit", "type (type", "compression", "flags"});
}

// How many lines hold a text.
int64_t count(const std::vector<std::string>& lines, const std::string& text) {
  return std::count_if(lines.begin(), lines.end(),
                       [&text](const std::string& line) { return line.find(text) != std::string::npos; });
}

// Through every way that an image takes: merged as B, masked, moved, held, chosen, drawn from other frames.
TEST(Metadata, ComesOutOfAGraphAsItWentIn) {
  write_source(scene::folder() / "source.exr");
  scene::write_numbered("other.exr", 8, 8);
  scene::render(
      scene::read_plate("other.exr", "other") + scene::read_plate("source.exr") +
      scene::node("over", R"({"a": "other", "b": "p", "mask": "other"})", "merge", "") +
      scene::node("soft", R"({"image": "over", "mask": "other"})", "blur", R"("size": 2, "mix": 0.5)") +
      scene::node("moved", "soft", "transform", R"("translate": [1.5, 0])") +
      scene::node("mixed", "moved", "frame_blend", "") +
      scene::node("copied", R"({"a": "other", "b": "mixed"})", "copy", "") +
      scene::node("chosen", R"(["other", "copied"])", "switch", R"("which": 1)") +
      scene::write_node("chosen", "out.exr") + scene::write_node("other", "other out.exr"));
  for (const char* program : {"exrheader", "oiiotool --info -v"})
    EXPECT_EQ(told(program, "out.exr"), told(program, "source.exr")) << program;
  EXPECT_EQ(count(told("exrheader", "other out.exr"), "timeCode"), 0);
}

TEST(Metadata, IsSetAndDroppedAndToldByEveryFileType) {
  write_source(scene::folder() / "source.exr");
  const struct {
    const char* knobs;
    const char* file;
    const char* program;
    std::vector<std::string> there, gone;
  } cases[] = {
      {R"("set": {"timeCode": "01:02:03;04", "take": 3, "framesPerSecond": 25, "ratio": 1.5, "shot": "a b",
                  "at": [1, 2], "by": [1, 2.5, 3], "who": ["x", "y"], "owner": {"type": "string", "value": "me"},
                  "turn": {"type": "m33d", "value": [1, 0, 0, 0, 1, 0, 0, 0, 1]}, "screenWindowWidth": 2},
          "drop": ["v3?", "m*"])",
       "set.exr",
       "exrheader",
       {"    time 01:02:03:04", "    drop frame 1, color frame 0, field/phase 0", "take (type int): 3",
        "framesPerSecond (type rational): 25/1 (25)", "ratio (type float): 1.5",
        "shot (type string): \"a b\"", "at (type v2i): (1 2)", "by (type v3f): (1 2.5 3)",
        "who (type stringvector):", "turn (type m33d)", "owner (type string): \"me\"",
        "screenWindowWidth (type float): 2", "v2i (type v2i): (1 -2)"},
       {"v3i (", "v3f (", "m33f (", "m44d ("}},
      {R"("drop": "*")",
       "bare.exr",
       "exrheader",
       {"screenWindowWidth (type float): 1"},
       {"timeCode", "owner"}},
      {R"("set": {"capDate": "2001:02:03 04:05:06"})",
       "text.png",
       "oiiotool --info -v",
       {"    timeCode: \"12:34:56:13\"", "    framesPerSecond: \"24000/1001\"", "    Copyright: \"a house\"",
        "    ImageDescription: \"two", "    DateTime: \"2001:02:03 04:05:06\"", "    v2d: \"0.1, 2\""},
       {"capDate"}},
      {R"("set": {"Make": "a maker"})",
       "tags.tif",
       "oiiotool --info -v",
       {"    Copyright: \"a house\"", "    Make: \"a maker\"", "    ImageDescription: \"colour: linear",
        "two", "lines\""},
       {"timeCode"}},
  };
  std::string nodes = scene::read_plate("source.exr");
  for (const auto& each : cases) {
    const std::string file = each.file;
    nodes += scene::node(file, "p", "metadata", each.knobs) + scene::write_node(file, file);
  }
  scene::render(nodes);
  scene::render(scene::read_plate("text.png") + scene::write_node("p", "back.exr"));
  for (const auto& each : cases) {
    const auto lines = told(each.program, each.file);
    for (const std::string& line : each.there) EXPECT_EQ(count(lines, line), 1) << each.file << ": " << line;
    for (const std::string& line : each.gone) EXPECT_EQ(count(lines, line), 0) << each.file << ": " << line;
  }
  for (const char* line : {"    time 12:34:56:13", "framesPerSecond (type rational): 24000/1001 (23.976)",
                           "comments (type string): \"two"})
    EXPECT_EQ(count(told("exrheader", "back.exr"), line), 1) << line;
}

TEST(Metadata, ThatMeansNothingIsRefusedWithTheReason) {
  scene::check_refusals(scene::constant("c", {}), R"(
metadata | c | "set": {"compression": "zip"} | node "n": knob "set": "compression" is no metadata: it says how a file stores its pixels
metadata | c | "set": {"timeCode": "25:00:00:00"} | "timeCode": expected a time code such as "01:00:00:00", found
metadata | c | "set": {"framesPerSecond": 23.976} | "framesPerSecond": expected a value of type rational, found 23.976
metadata | c | "set": {"a": {"type": "m44f", "value": [1]}} | "a": expected a value of type m44f, found
metadata | c | "set": {"a": {"type": "quaternion", "value": [1]}} | "a": expected a value of type quaternion, found
metadata | c | "set": {"a": [1, "b"]} | "a": expected a value of type v2f, found
metadata | c | "set": {"a": null} | "a": expected a text, a number or a list of one of them, found null
metadata | c | "set": [1] | node "n": knob "set": expected an object of names and values, found
)");
}

}  // namespace
