#include "host/files/pattern.h"
#include "tests/host/render/scene.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <gtest/gtest.h>

namespace {

constexpr int width = 240, height = 160, plates = 3;

// Branches that take, draw and give back textures of one size and of others in all ways there are:
// moves that are drawn last, filters with scratch textures, several frames in one, and results that
// more than one branch reads.
const std::string branches =
    R"({"name": "a", "type": "read", "knobs": {"file": "a.#.exr", "before": "loop", "after": "loop"}},
  {"name": "b", "type": "read", "knobs": {"file": "b.#.exr", "before": "loop", "after": "loop"}},
  {"name": "flipped", "type": "reformat", "inputs": "b", "knobs": {"flip": true}},
  {"name": "pinned", "type": "corner_pin", "inputs": "b", "knobs": {"to": [4, 3, 230, 9, 236, 150, 7, 155]}},
  {"name": "graded", "type": "grade", "inputs": "a", "knobs": {"gamma": 2}},
  {"name": "cut", "type": "reformat", "inputs": "a", "knobs": {"size": [97, 61], "flop": true}},
  {"name": "dim", "type": "grade", "inputs": "cut", "knobs": {"multiply": 0.5}},
  {"name": "small", "type": "reformat", "inputs": "b", "knobs": {"size": [97, 61]}},
  {"name": "over", "type": "merge", "inputs": ["graded", "b"]},
  {"name": "soft", "type": "blur", "inputs": "over", "knobs": {"size": {"keys": [[1, 2], [50, 9]]}}},
  {"name": "mixed", "type": "frame_blend", "inputs": "graded"},
  {"name": "moved", "type": "transform", "inputs": "mixed", "knobs": {"translate": [3.5, -2.25]}})";

// What is read first has pixels in a texture that another branch had read its plate from.
const std::vector<std::vector<std::string>> compositions = {
    {"flipped", "graded"},
    {"pinned", "soft", "dim"},
    {"small", "dim", "graded", "moved"},
    {"moved", "flipped", "small", "soft", "pinned"},
};

// How many floats of a file are not those of an image.
int64_t differences(const std::filesystem::path& file, const scene::HostImage& image) {
  const OIIO::ImageBuf stored(file.string());
  int64_t count = stored.spec().width < 1 ? 1 : 0;
  for (OIIO::ImageBuf::ConstIterator<float> at(stored); !at.done(); ++at) {
    const auto expected = scene::pixel(image, at.x(), stored.spec().full_height - 1 - at.y());
    for (int i = 0; i < 4; ++i) count += at[i] == expected[static_cast<size_t>(i)] ? 0 : 1;
  }
  return count;
}

class Outputs : public testing::TestWithParam<int> {
 protected:
  // Before the context is opened: a process of its own for each number, as ctest gives them.
  void SetUp() override {
    setenv("LP_NUM_THREADS", std::to_string(GetParam()).c_str(), 1);
    std::mt19937 random(5);
    for (int i = 0; i < 2 * plates; ++i)
      scene::write_plate(host::files::frame_path(i % 2 ? "b.#.exr" : "a.#.exr", 1 + i / 2),
                         scene::noise(random, width, height));
  }
};

TEST_P(Outputs, OfOneFrameHoldWhatEachHoldsAlone) {
  int64_t first = 1;
  for (const auto& names : compositions) {
    host::render::RenderOptions options;
    options.frames.resize(names == compositions.back() ? 14 : 12);
    std::iota(options.frames.begin(), options.frames.end(), first);
    first += static_cast<int64_t>(options.frames.size());
    std::string nodes = branches;
    for (const std::string& name : names)
      nodes += scene::write_node(name, name + ".#.exr", R"("depth": "float", "compression": "none")");
    scene::render(nodes, width, height, options);
    scene::Scene alone(branches, width, height);
    for (const int64_t frame : options.frames) {
      for (const std::string& name : names) {
        const auto file = scene::folder() / host::files::frame_path(name + ".#.exr", frame);
        ASSERT_EQ(differences(file, alone.image(name, frame)), 0)
            << name << ", frame " << frame << ", one of " << names.size();
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(DriverThreads, Outputs, testing::Values(1, 2, 8));

}  // namespace
