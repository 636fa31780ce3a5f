#include "tests/host/cli/process.h"
#include "tests/support/images.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
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

// Parts of any windows and channels, tiled or not, in one display window.
std::vector<OIIO::ImageSpec> random_parts(std::mt19937& random) {
  const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  const std::vector<std::string> names = {"R", "G", "B", "A", "Z", "key.R", "key.G", "id"};
  const std::array types = {OIIO::TypeHalf, OIIO::TypeFloat, OIIO::TypeUInt32};
  const std::array<const char*, 4> compressions = {"none", "zip", "zips", "piz"};
  const OIIO::ImageSpec display(10 + below(20), 10 + below(20), 1, OIIO::TypeHalf);
  const int x = below(9) - 4, y = below(9) - 4, tile = below(2) * 16;
  const float aspect = 1 + static_cast<float>(below(3)) / 2;
  std::vector<OIIO::ImageSpec> parts;
  for (int count = 1 + below(3), i = 0; i < count; ++i) {
    std::vector<std::string> own = names;
    std::shuffle(own.begin(), own.end(), random);
    own.resize(static_cast<size_t>(1 + below(8)));
    OIIO::ImageSpec& part =
        parts.emplace_back(1 + below(30), 1 + below(30), static_cast<int>(own.size()), OIIO::TypeHalf);
    part.channelnames = own;
    for (size_t c = 0; c < own.size(); ++c) part.channelformats.push_back(types[random() % types.size()]);
    part.x = below(20) - 9;
    part.y = below(20) - 9;
    part.full_x = x;
    part.full_y = y;
    part.full_width = display.width;
    part.full_height = display.height;
    part.tile_width = part.tile_height = tile;
    part.tile_depth = 1;
    part.attribute("compression", compressions[random() % compressions.size()]);
    part.attribute("PixelAspectRatio", aspect);
    part.attribute("camera", "camera " + std::to_string(i));
    part.attribute("oiio:subimagename", "part " + std::to_string(i));
  }
  return parts;
}

std::vector<std::string> written_channels(const OIIO::ImageSpec& spec) {
  std::vector<std::string> channels;
  for (int i = 0; i < spec.nchannels; ++i) {
    const bool whole = spec.channelformat(i) == OIIO::TypeUInt32;
    channels.push_back(std::string(spec.channel_name(i)) + " " +
                       (whole ? "uint32" : spec.channelformat(i).c_str()));
  }
  std::sort(channels.begin(), channels.end());
  return channels;
}

std::vector<std::string> told_channels(const json& part) {
  std::vector<std::string> channels;
  for (const json& channel : part["channels"])
    channels.push_back(channel["name"].get<std::string>() + " " + channel["type"].get<std::string>());
  std::sort(channels.begin(), channels.end());
  return channels;
}

TEST(Info, TellsOfAnImageWhatItWasMadeAs) {
  std::mt19937 random(5);
  const fs::path folder = process::new_folder();
  for (int round = 0; round < 30; ++round) {
    const std::vector<OIIO::ImageSpec> parts = random_parts(random);
    write(folder / "any.exr", parts);
    const json told = json::parse(call("info --json any.exr", folder).out)[0];
    ASSERT_EQ(told["parts"].size(), parts.size()) << told.dump(1);
    EXPECT_EQ(told["color"]["space"], "linear");
    for (size_t i = 0; i < parts.size(); ++i) {
      SCOPED_TRACE(told.dump(1));
      const OIIO::ImageSpec& made = parts[i];
      const json& part = told["parts"][i];
      EXPECT_EQ(part["name"], "part " + std::to_string(i));
      EXPECT_EQ(part["data_window"], window(made.x, made.y, made.width, made.height));
      EXPECT_EQ(part["display_window"], window(made.full_x, made.full_y, made.full_width, made.full_height));
      EXPECT_EQ(part["pixel_aspect"], made.get_float_attribute("PixelAspectRatio"));
      EXPECT_EQ(part["compression"], std::string(made.get_string_attribute("compression")));
      EXPECT_EQ(part["tiles"], made.tile_width ? json({{"width", 16}, {"height", 16}}) : json());
      EXPECT_EQ(part["metadata"]["camera"]["text"], "camera " + std::to_string(i));
      EXPECT_EQ(told_channels(part), written_channels(made));
    }
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
  const struct {
    const char* words;
    int code;
    const char* says;
  } rows[] = {
      {"info p.#.exr", 0, "frames    1-3,5,9, without 4,6-8\n"},
      {"info p.%d.exr --json", 0, R"("missing": "4,6-8")"},
      {"info p.1.exr", 0, "\"depth\" (depth.Z)\n"},
      {"info p.2.exr", 0, "linear (floats are, unless the file says otherwise)\n"},
      {"info whole.tif", 0, "sRGB (whole numbers are, unless the file says otherwise)\n"},
      {"info whole.tif", 0, "channels  R G B uint16\n"},
      {"info cut.exr", 2, "cut.exr: "},
      {"info cut.exr p.1.exr", 2, "half\n"},
      {"info cut.exr p.1.exr --json", 2, R"("error": "cut.exr: )"},
      {"info nix.#.exr", 2, "nix.#.exr: no such file"},
      {"info .", 2, ".: is no file"},
      {"info image.json", 0, "type      openexr"},
      {"info shot.exr", 0, "no problem found"},
      {"info text.json", 2, "text.json: not JSON"},
      {"info none.json p.1.exr", 2, "none.json: not JSON"},
      {"info --dot p.1.exr", 2, "--dot: p.1.exr is no composition"},
      {"info --dot --json shot.exr", 2, "--json excludes --dot"},
  };
  for (const auto& row : rows) {
    const process::Ended ended = call(row.words, folder);
    EXPECT_EQ(ended.code, row.code) << row.words << ended.err;
    EXPECT_NE((ended.out + ended.err).find(row.says), std::string::npos) << row.words << '\n'
                                                                         << ended.out << ended.err;
  }
  const json told = json::parse(call("info p.1.exr shot.exr --json", folder).out)[1];
  const json depth = {{"name", "depth"}, {"part", 0}, {"channels", {"depth.Z"}}, {"coverage", false}};
  const json main = {{"name", ""}, {"part", 0}, {"channels", {"R", "G", "B", "A"}}, {"coverage", true}};
  json expected = {
      {"node", "p"},
      {"frame", 1},
      {"file", "p.#.exr"},
      {"path", "p.1.exr"},
      {"frames", "1-3,5,9"},
      {"missing", "4,6-8"},
      {"black", false},
      {"color",
       {{"space", "linear"}, {"why", "floats are, unless the file says otherwise"}, {"made_linear", false}}},
      {"layer", depth},
      {"layers", {main, depth}}};
  EXPECT_EQ(told["reads"], json::array({expected}));
  EXPECT_EQ(told["nodes"][1]["window"], json({0, 0, 8, 4})) << told.dump(1);
}

}  // namespace
