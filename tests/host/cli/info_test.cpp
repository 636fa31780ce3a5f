#include "tests/host/cli/process.h"
#include "tests/support/images.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using process::call;

json window(int x, int y, int width, int height) {
  return {{"x", x}, {"y", y}, {"width", width}, {"height", height}};
}

void write(const fs::path& file, const std::vector<OIIO::ImageSpec>& parts) {
  support::write_image(file, parts, [&](OIIO::ImageOutput& output, size_t part) {
    const std::vector<float> black(parts[part].image_pixels() * static_cast<size_t>(parts[part].nchannels));
    return output.write_image(OIIO::TypeFloat, black.data());
  });
}

// Adds a part of any window and channels to a file, and what is to be told of it to `told`.
void add_part(std::mt19937& random, std::vector<OIIO::ImageSpec>& parts, json& told) {
  const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  constexpr std::array<const char*, 4> compressions = {"none", "zip", "zips", "piz"};
  const std::array types = {OIIO::TypeHalf, OIIO::TypeFloat, OIIO::TypeUInt32};
  constexpr std::array<const char*, 3> type_names = {"half", "float", "uint32"};
  std::vector<std::string> names = {"R", "G", "B", "A", "Z", "key.R", "key.G", "id"};
  std::shuffle(names.begin(), names.end(), random);
  names.resize(static_cast<size_t>(1 + below(8)));
  const std::string number = std::to_string(parts.size()), compression = compressions.at(random() % 4);
  OIIO::ImageSpec part(1 + below(30), 1 + below(30), static_cast<int>(names.size()), OIIO::TypeHalf);
  part.channelnames = names;
  std::vector<json> channels;
  for (const std::string& name : names) {
    const size_t type = random() % types.size();
    part.channelformats.push_back(types.at(type));
    channels.push_back({{"name", name}, {"type", type_names.at(type)}});
  }
  std::sort(channels.begin(), channels.end());
  part.x = below(20) - 9;
  part.y = below(20) - 9;
  // One display window and one way to lie for all parts.
  const OIIO::ImageSpec first = parts.empty() ? part : parts[0];
  const int tile = parts.empty() ? below(2) * 16 : first.tile_width;
  std::tie(part.full_x, part.full_y) = std::pair(first.x + 2, first.y - 1);
  std::tie(part.full_width, part.full_height) = std::pair(first.width + 3, first.height + 4);
  std::tie(part.tile_width, part.tile_height, part.tile_depth) = std::tuple(tile, tile, 1);
  part.attribute("compression", compression);
  part.attribute("PixelAspectRatio", 1 + static_cast<float>(first.width % 3) / 2);
  part.attribute("camera", "camera " + number);
  part.attribute("oiio:subimagename", "part " + number);
  told.push_back({{"name", "part " + number},
                  {"data_window", window(part.x, part.y, part.width, part.height)},
                  {"display_window", window(part.full_x, part.full_y, part.full_width, part.full_height)},
                  {"pixel_aspect", 1 + (first.width % 3) / 2.0},
                  {"compression", compression},
                  {"tiles", tile ? json({{"width", tile}, {"height", tile}}) : json()},
                  {"deep", false},
                  {"channels", channels},
                  {"metadata", {{"camera", {{"type", "string"}, {"text", "camera " + number}}}}}});
  parts.push_back(part);
}

TEST(Info, TellsOfAnImageWhatItWasMadeAs) {
  std::mt19937 random(5);
  const fs::path folder = process::new_folder();
  for (int round = 0; round < 30; ++round) {
    std::vector<OIIO::ImageSpec> parts;
    json expected = json::array();
    for (size_t count = 1 + random() % 3; parts.size() < count;) add_part(random, parts, expected);
    write(folder / "any.exr", parts);
    json told = json::parse(call("info --json any.exr", folder).out)[0];
    EXPECT_EQ(told["color"]["space"], "linear");
    for (json& part : told["parts"]) {
      std::sort(part["channels"].begin(), part["channels"].end());
      part["metadata"].erase("capDate");
    }
    EXPECT_EQ(told["parts"], expected);
  }
}

TEST(Info, TellsImagesFromCompositionsByContentAndGoesOnBehindWhatIsDamaged) {
  const fs::path folder = process::new_folder();
  OIIO::ImageSpec spec(8, 4, 5, OIIO::TypeHalf);
  spec.channelnames = {"R", "G", "B", "A", "depth.Z"};
  for (const char* frame : {"1", "2", "3", "5", "9"})
    write(folder / ("p." + std::string(frame) + ".exr"), {spec});
  write(folder / "whole.tif", {OIIO::ImageSpec(8, 4, 3, OIIO::TypeUInt16)});
  const std::string bytes = support::bytes_of(folder / "p.1.exr");
  support::write_bytes(folder / "cut.exr", bytes.substr(0, 100));
  support::write_bytes(folder / "image.json", bytes);
  support::write_bytes(folder / "text.json", "hello");
  support::write_bytes(folder / "none.json", "");
  const std::string nodes =
      R"({"name": "p", "type": "read", "knobs": {"file": "p.#.exr", "layer": "depth"}})" +
      process::write_node("out", "p", "o.#.exr");
  process::write_shot(folder / "shot.exr", nodes);
  process::check_calls(R"(
info p.#.exr | 0 | frames    1-3,5,9, without 4,6-8
info p.%d.exr --json | 0 | "missing": "4,6-8"
info p.1.exr | 0 | "depth" (depth.Z)
info p.2.exr | 0 | linear (floats are, unless the file says otherwise)
info whole.tif | 0 | sRGB (whole numbers are, unless the file says otherwise)
info whole.tif | 0 | channels  R G B uint16
info cut.exr | 2 | cut.exr:
info cut.exr p.1.exr | 2 | half
info cut.exr p.1.exr --json | 2 | "error": "cut.exr:
info nix.#.exr | 2 | nix.#.exr: no such file
info . | 2 | .: is no file
info image.json | 0 | type      openexr
info shot.exr | 0 | no problem found
info text.json | 2 | text.json: not JSON
info none.json p.1.exr | 2 | none.json: not JSON
info --dot p.1.exr | 2 | --dot: p.1.exr is no composition
info --dot --json shot.exr | 2 | --json excludes --dot
)",
                       folder);
  const json told = json::parse(call("info p.1.exr shot.exr --json", folder).out)[1];
  EXPECT_EQ(told["reads"], json::parse(R"([{"node": "p", "frame": 1, "file": "p.#.exr", "path": "p.1.exr",
    "frames": "1-3,5,9", "missing": "4,6-8", "black": false, "color": {"space": "linear",
      "why": "floats are, unless the file says otherwise", "made_linear": false},
    "layer": {"name": "depth", "part": 0, "channels": ["depth.Z"], "coverage": false},
    "layers": [{"name": "", "part": 0, "channels": ["R", "G", "B", "A"], "coverage": true},
               {"name": "depth", "part": 0, "channels": ["depth.Z"], "coverage": false}]}])"));
  EXPECT_EQ(told["nodes"][1]["window"], json({0, 0, 8, 4})) << told.dump(1);
}

}  // namespace
