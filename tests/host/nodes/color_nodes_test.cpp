#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"
#include "tests/support/table.h"

#include <cmath>
#include <cstdlib>
#include <fstream>

#include <OpenColorIO/OpenColorIO.h>
#include <gtest/gtest.h>

namespace {

namespace ocio = OCIO_NAMESPACE;

// 0.5 0.25 1 1, and 0.5 behind coverage 0.5, which is divided by. The first: (0.5 - 0.25) / 0.5 of the way
// from 0.5 to 2, twice, plus 0.25: 2.25, whose root is 1.5. Likewise 0.75 from 0.25, and 2 * 1.5 * 1.5 + 0.75
// = 5.25 from 1. The luminance is 0.1063 + 0.1788 + 0.0722.
constexpr const char* corrections = R"(
all            | grade | 0.5 0.25 1 1 | "blackpoint": 0.25, "whitepoint": 0.75, "lift": 0.5, "gain": 2, "multiply": 2, "offset": 0.25 | 2.25 0.75 5.25 1
all and gamma  | grade | 0.5 0.25 1 1 | "blackpoint": 0.25, "whitepoint": 0.75, "lift": 0.5, "gain": 2, "multiply": 2, "offset": 0.25, "gamma": 2 | 1.5 0.866025404 2.29128785 1
clamped to 1   | grade | 0.5 0.25 1 1 | "gain": 2, "clamp_white": true | 1 0.5 1 1
below 0        | grade | 0.5 0.25 1 1 | "offset": [-0.75, 0, 0], "gamma": [2, 1, 1] | -0.25 0.25 1 1
clamped to 0   | grade | 0.5 0.25 1 1 | "offset": -0.75, "clamp_black": true | 0 0 0.25 1
by channel     | grade | 0.5 0.25 1 1 | "gain": [1, 2, 3], "lift": [0.5, 0, 0] | 0.75 0.5 3 1
thin           | grade | 0.25 0.25 0.25 0.5 | "offset": 0.5 | 0.5
thin as it is  | grade | 0.25 0.25 0.25 0.5 | "offset": 0.5, "unpremultiply": false | 0.75 0.75 0.75 0.5
flame          | grade | 0.5 0.25 1 0 | "offset": 0.5 | 1 0.75 1.5 0
nothing        | grade | 0 0 0 0 | "offset": 0.5 | 0
clamped flame  | clamp | 0.5 0.25 1 0 | "high": 0.5 | 0.5 0.25 0.5 0
both limits    | clamp | 0.5 0.25 1 1 | "low": 0.375, "high": 0.75 | 0.5 0.375 0.75 1
high alone     | clamp | 0.5 0.25 1 1 | "low": 0.375, "high": 0.75, "limit_low": false | 0.5 0.25 0.75 1
low alone      | clamp | 0.5 0.25 1 1 | "low": 0.375, "high": 0.75, "limit_high": false | 0.5 0.375 1 1
grey           | saturation | 0.5 0.25 1 1 | "saturation": 0 | 0.3573 0.3573 0.3573 1
vivid          | saturation | 0.5 0.25 1 1 | "saturation": 2 | 0.6427 0.1427 1.6427 1
no alpha       | constant | [] | "color": [0.25, 0.5, 1, 0.75], "channels": "rgb" | 0.25 0.5 1 0
rows           | color_matrix | 0.5 0.25 1 1 | "red": [0, 1, 0], "green": [1, 1, 1], "blue": [-1, 0, 2] | 0.25 1.75 1.5 1
)";

TEST(ColorCorrections, DrawWhatTheFormulasSay) {
  scene::check_pixels("", corrections);
}

// A config with every kind of table: a cube, interpolated in two ways; a curve that fits into one row of a
// texture and one that does not; half-float tables; and formulas.
void write_config() {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> noise(-0.1F, 0.1F);
  std::ofstream cube(scene::folder() / "cube.cube");
  cube << "LUT_3D_SIZE 9\n";
  for (int b = 0; b < 9; ++b)
    for (int g = 0; g < 9; ++g)
      for (int r = 0; r < 9; ++r) {
        for (const int axis : {r, g, b})
          cube << std::sqrt(static_cast<float>(axis) / 8) + noise(random) << ' ';
        cube << '\n';
      }
  for (const int length : {17, 10000}) {
    std::ofstream curve(scene::folder() / ("curve" + std::to_string(length) + ".spi1d"));
    curve << "Version 1\nFrom -0.25 1.5\nLength " << length << "\nComponents 3\n{\n";
    for (int i = 0; i < length; ++i) {
      const double x = static_cast<double>(i) / (length - 1);
      curve << x * x << ' ' << std::sin(x) << ' ' << 1 - x << '\n';
    }
    curve << "}\n";
  }
  std::ofstream(scene::folder() / "two.ccc")
      << R"(<ColorCorrectionCollection><ColorCorrection id="a"></ColorCorrection><ColorCorrection id="b">
          <SOPNode><Slope>2 1 0.5</Slope><Offset>0.25 0 0</Offset><Power>1 2 1</Power></SOPNode>
          <SatNode><Saturation>0.5</Saturation></SatNode></ColorCorrection></ColorCorrectionCollection>)";
  std::ofstream(scene::folder() / "config.ocio") << R"(ocio_profile_version: 2
search_path: .
roles: {default: plain, scene_linear: plain}
displays: {d: [!<View> {name: v, colorspace: plain}, !<View> {name: film, colorspace: short, looks: warm}]}
looks:
  - !<Look> {name: warm, process_space: plain, transform: !<CDLTransform> {slope: [1.5, 1, 0.5]}}
  - !<Look> {name: dark, process_space: density, transform: !<CDLTransform> {power: [2, 2, 2]}}
colorspaces:
  - !<ColorSpace> {name: plain}
  - !<ColorSpace> {name: cube, from_scene_reference: !<FileTransform> {src: cube.cube, interpolation: linear}}
  - !<ColorSpace> {name: tetra, from_scene_reference: !<FileTransform> {src: cube.cube, interpolation: tetrahedral}}
  - !<ColorSpace> {name: short, from_scene_reference: !<FileTransform> {src: curve17.spi1d, interpolation: linear}}
  - !<ColorSpace> {name: long, from_scene_reference: !<FileTransform> {src: curve10000.spi1d, interpolation: linear}}
  - !<ColorSpace> {name: best, from_scene_reference: !<FileTransform> {src: cube.cube, interpolation: best}}
  - !<ColorSpace> {name: by id, from_scene_reference: !<FileTransform> {src: two.ccc, cccid: b}}
  - !<ColorSpace> {name: cdl, from_scene_reference: !<CDLTransform> {slope: [1.25, 0.75, 1], offset: [0.125, 0, -0.125], power: [1.5, 1, 0.75], sat: 1.25}}
  - !<ColorSpace> {name: clamped, from_scene_reference: !<CDLTransform> {slope: [1.25, 0.75, 1], offset: [0.125, 0, -0.125], power: [1.5, 1, 0.75], sat: 1.25, style: asc}}
  - !<ColorSpace> {name: density, from_scene_reference: !<LogAffineTransform> {base: 10, lin_side_slope: 2, lin_side_offset: 0.5}}
)";
}

scene::Plate colors() {
  std::mt19937 random(11);
  std::uniform_real_distribution<float> value(-0.25F, 1.5F);
  scene::Plate plate{16, 16};
  for (int i = 0; i < 256; ++i)
    for (int c = 0; c < 4; ++c) plate.pixels.push_back(c < 3 ? value(random) : static_cast<float>(i % 3) / 2);
  return plate;
}

// What OpenColorIO's own processor for the CPU makes of the pixels.
std::vector<float> reference(std::vector<float> pixels, const ocio::ConstProcessorRcPtr& processor,
                             bool divide) {
  const auto on_cpu = processor->getOptimizedCPUProcessor(ocio::OPTIMIZATION_LOSSLESS);
  for (size_t at = 0; at < pixels.size(); at += 4) {
    const float alpha = divide && pixels[at + 3] > 0 ? pixels[at + 3] : 1;
    for (size_t c = 0; c < 3; ++c) pixels[at + c] /= alpha;
    on_cpu->applyRGBA(pixels.data() + at);
    for (size_t c = 0; c < 3; ++c) pixels[at + c] *= alpha;
  }
  return pixels;
}

// A node, and what it stands for in the config: from one of its spaces by way of looks to another, of colour
// that is divided by its coverage or not.
constexpr const char* conversions = R"(
ocio_colorspace | "in": "plain", "out": "cube"         | plain   |       | cube    | as it is
ocio_colorspace | "in": "plain", "out": "cube"         | plain   |       | cube    | divided
ocio_colorspace | "in": "plain", "out": "tetra"        | plain   |       | tetra   | as it is
ocio_colorspace | "in": "plain", "out": "short"        | plain   |       | short   | divided
ocio_colorspace | "in": "plain", "out": "long"         | plain   |       | long    | as it is
ocio_colorspace | "in": "plain", "out": "cdl"          | plain   |       | cdl     | divided
ocio_colorspace | "in": "density", "out": "cdl"        | density |       | cdl     | divided
ocio_colorspace | "in": "short", "out": "density"      | short   |       | density | divided
ocio_colorspace | "in": "scene_linear", "out": "plain" | plain   |       | plain   | divided
ocio_display    | "in": "plain"                        | plain   |       | plain   | divided
ocio_display    | "in": "plain", "display": "d", "view": "film"             | plain | warm  | short | divided
ocio_display    | "in": "plain", "view": "film", "looks": "dark"            | plain | dark  | short | as it is
ocio_display    | "in": "plain", "view": "film", "looks": "dark, -warm"     | plain | dark, -warm | short | as it is
ocio_display    | "in": "plain", "view": "film", "looks": "none"            | plain |       | short | as it is
ocio_display    | "in": "plain", "looks": "warm", "invert": true            | plain | -warm | plain | as it is
ocio_file       | "file": "cube.cube"                                       | plain |       | best  | divided
ocio_file       | "file": "cube.cube", "interpolation": "linear"            | plain |       | cube  | as it is
ocio_file       | "file": "curve17.spi1d"                                   | plain |       | short | as it is
ocio_file       | "file": "two.ccc", "id": "b"                              | plain |       | by id | divided
ocio_cdl        | "slope": [1.25, 0.75, 1], "offset": [0.125, 0, -0.125], "power": [1.5, 1, 0.75], "saturation": 1.25 | plain   |       | cdl     | divided
ocio_cdl        | "slope": [1.25, 0.75, 1], "offset": [0.125, 0, -0.125], "power": [1.5, 1, 0.75], "saturation": 1.25, "clamp": true | plain   |       | clamped | as it is
ocio_cdl        | "slope": [1.25, 0.75, 1], "offset": [0.125, 0, -0.125], "power": [1.5, 1, 0.75], "saturation": 1.25, "invert": true | cdl     |       | plain   | as it is
)";

TEST(Ocio, AgreesWithOpenColorIo) {
  write_config();
  const scene::Plate plate = colors();
  scene::write_plate("colors.exr", plate);
  const auto config = ocio::Config::CreateFromFile((scene::folder() / "config.ocio").c_str());
  for (const auto& [type, own, from, looks, to, how] : support::rows<6>(conversions)) {
    const bool divide = how == "divided";
    std::string knobs = own + R"(, "unpremultiply": )" + (divide ? "true" : "false");
    if (type == "ocio_colorspace" || type == "ocio_display") knobs += R"(, "config": "config.ocio")";
    scene::Scene shot(scene::read_plate("colors.exr") + scene::node("n", "p", type, knobs), 16, 16);
    const auto transform = ocio::LookTransform::Create();
    transform->setSrc(from.c_str());
    transform->setLooks(looks.c_str());
    transform->setDst(to.c_str());
    const std::vector<float> found = shot.image("n").rgba;
    const std::vector<float> expected = reference(plate.pixels, config->getProcessor(transform), divide);
    ASSERT_EQ(found.size(), expected.size());
    // A few roundings of the table's coordinate, which its slope enlarges.
    for (size_t i = 0; i < found.size(); ++i)
      ASSERT_NEAR(found[i], expected[i], 2e-5 * std::max(1.0F, std::abs(expected[i])))
          << knobs << ", value " << i;
  }
}

// Of 0.5 and 0.001 behind coverage 0.5: the published curves of sRGB and Rec. 709, and a logarithm,
// (685 + 300 lg(0.989202248 x + 0.010797752)) / 1023.
TEST(OcioColorspace, HasAConfigOfItsOwn) {
  ::unsetenv("OCIO");
  scene::check_pixels("", R"(
sRGB     | ocio_colorspace | 0.25 0.0005 0 0.5 | "out": "srgb" | 0.367678492 0.00646 0 0.5
Rec. 709 | ocio_colorspace | 0.25 0.0005 0 0.5 | "out": "rec709" | 0.352757545 0.00225 0 0.5
log      | ocio_colorspace | 0.25 0.0005 0 0.5 | "out": "log" | 0.291344224 0.052013920 0.046432065 0.5
raw      | ocio_colorspace | 0.25 0.0005 0 0.5 | "out": "raw" | 0.25 0.0005 0 0.5
linear   | ocio_colorspace | 0.25 0.0005 0 0.5 | "out": "linear" | 0.25 0.0005 0 0.5
)",
                      2e-5);
}

// A config that changes between two renders, under the same name, is read anew.
TEST(OcioColorspace, FollowsItsConfig) {
  const auto render = [](const char* slope) {
    std::ofstream(scene::folder() / "changing.ocio")
        << "ocio_profile_version: 2\nroles: {default: a}\ndisplays:\n  d:\n    - !<View> {name: v, "
           "colorspace: a}\n"
           "colorspaces:\n  - !<ColorSpace> {name: a}\n  - !<ColorSpace>\n    name: b\n"
           "    from_scene_reference: !<CDLTransform> {slope: "
        << slope << "}\n";
    scene::Scene shot(
        scene::constant("p", {0.25F, 0.25F, 0.25F, 1}) +
        scene::node("n", "p", "ocio_colorspace", R"("config": "changing.ocio", "in": "a", "out": "b")"));
    return scene::pixel(shot.image("n"), 1, 1)[0];
  };
  EXPECT_NEAR(render("[2, 2, 2]"), 0.5, 1e-6);
  EXPECT_NEAR(render("[3.0, 3.0, 3.0]"), 0.75, 1e-6);
}

TEST(Ocio, SaysWhatIsWrong) {
  std::ofstream(scene::folder() / "broken.ocio") << "colorspaces: 7\n";
  std::ofstream(scene::folder() / "broken.cube") << "LUT_3D_SIZE two\n";
  scene::check_refusals(scene::constant("p", {1, 1, 1, 1}), R"(
ocio_display    | p | "view": "plian" | knob "view": no view "plian" (did you mean "plain"?); the config has "plain"
ocio_display    | p | "display": "tv" | knob "display": no display "tv"; the config has "screen"
ocio_display    | p | "looks": "warm" | knob "looks":
ocio_display    | p | "in": "film" | knob "in": no colour space "film"
ocio_file       | p | | knob "file": expected a path, found none
ocio_file       | p | "file": "gone.cube" | gone.cube: No such file
ocio_file       | p | "file": "broken.cube" | knob "file":
ocio_colorspace | p | "out": "srbg" | knob "out": no colour space "srbg" (did you mean "srgb"?); the config has "linear", "srgb",
ocio_colorspace | p | "in": "film", "out": "srgb" | knob "in": no colour space "film"; the config has
ocio_colorspace | p | "config": "gone.ocio" | gone.ocio: No such file
ocio_colorspace | p | "config": "broken.ocio" | broken.ocio:
)");
}

}  // namespace
