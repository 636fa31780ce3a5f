#include "tests/host/render/scene.h"
#include "tests/support/files.h"
#include "tests/support/sanitizers.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using host::plan::Existing;
using host::render::FrameReport;
using host::render::Outcome;
using host::render::RenderOptions;

constexpr int width = 64;
constexpr int height = 48;
constexpr int last_plate = 6;

// A still background, blurred, and before it a moving plate of two layers with an animated blur.
std::string shot_nodes() {
  return R"({"name": "still", "type": "read", "knobs": {"file": "still.exr"}},
    {"name": "soft still", "type": "blur", "inputs": "still", "knobs": {"size": 7, "edges": "repeat"}},
    {"name": "plate", "type": "read", "knobs": {"file": "plate.##.exr", "before": "loop", "after": "loop"}},
    {"name": "key", "type": "read",
     "knobs": {"file": "plate.##.exr", "layer": "key", "before": "loop", "after": "loop"}},
    {"name": "glowing", "type": "glow", "inputs": "plate",
     "knobs": {"size": {"keys": [[1, 1], [12, 9]]}, "edges": "repeat"}},
    {"name": "mixed", "type": "edge_blur", "inputs": {"image": "glowing", "matte": "key"},
     "knobs": {"size": 5}},
    {"name": "over still", "type": "edge_blur", "inputs": {"image": "soft still", "matte": "mixed"},
     "knobs": {"size": 3}},
    {"name": "out", "type": "write", "inputs": "over still", "knobs": {"file": "out/o.####.exr", "depth": "float"}})";
}

constexpr int64_t once_computed = 2;     // the still and its blur
constexpr int64_t computed_a_frame = 6;  // everything else
constexpr uint64_t image_bytes = uint64_t{16} * width * height;

class RunTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::mt19937 random(7);
    scene::write_plate("still.exr", scene::noise(random, width, height));
    for (int frame = 1; frame <= last_plate; ++frame)
      scene::write_plate(
          "plate.0" + std::to_string(frame) + ".exr",
          scene::noise(random, width, height, {"R", "G", "B", "A", "key.A", "key.B", "key.G", "key.R"}));
  }

  void SetUp() override {
    fs::remove_all(scene::folder() / "out");
  }

  static std::vector<int64_t> frames(int64_t count) {
    std::vector<int64_t> all(static_cast<size_t>(count));
    std::iota(all.begin(), all.end(), 1);
    return all;
  }

  Outcome run(RenderOptions options, const std::string& nodes = shot_nodes(), int wide = width,
              int high = height, std::function<void(const FrameReport&)> on_frame = nullptr) {
    recorder_.frames.clear();
    recorder_.on_frame = std::move(on_frame);
    scene::Scene shot(nodes, wide, high, std::move(options));
    return shot.run(recorder_);
  }

  // What stands under out/ after rendering these frames: by name, a hash of the bytes.
  std::map<std::string, size_t> files_of(const RenderOptions& options,
                                         const std::string& nodes = shot_nodes(), int wide = width,
                                         int high = height) {
    SetUp();
    EXPECT_EQ(run(options, nodes, wide, high), Outcome::done);
    std::map<std::string, size_t> files;
    for (const auto& entry : fs::directory_iterator(scene::folder() / "out"))
      files[entry.path().filename().string()] = std::hash<std::string>()(support::bytes_of(entry.path()));
    return files;
  }

  scene::Recorder recorder_;
};

TEST_F(RunTest, SameBytesHoweverTheyAreMade) {
  RenderOptions options;
  options.frames = frames(12);
  options.threads = 1;
  const auto expected = files_of(options);
  ASSERT_EQ(expected.size(), 12U);
  ASSERT_NE(expected.at("o.0001.exr"), expected.at("o.0002.exr"));
  EXPECT_EQ(files_of(options), expected) << "rendered again";

  options.threads = 2;
  EXPECT_EQ(files_of(options), expected) << "two threads";
  EXPECT_TRUE(recorder_.stats.peak_sent_bytes == image_bytes ||
              recorder_.stats.peak_sent_bytes == 2 * image_bytes);
  EXPECT_GE(recorder_.stats.peak_decoded_bytes, image_bytes);

  for (const uint64_t images : {5U, 7U, 9U}) {
    options.memory = images * image_bytes;
    EXPECT_EQ(files_of(options), expected) << "little memory";
    EXPECT_LE(recorder_.stats.peak_texture_bytes, options.memory) << images;
  }

  std::mt19937 random(11);
  for (uint64_t round = 0; round < 3; ++round) {
    std::shuffle(options.frames.begin(), options.frames.end(), random);
    options.memory = (round + 7) * image_bytes;
    EXPECT_EQ(files_of(options), expected) << "shuffled, round " << round;
  }

  std::map<std::string, size_t> one_by_one;
  for (const int64_t frame : options.frames) {
    RenderOptions single;
    single.frames = {frame};
    one_by_one.merge(files_of(single));
  }
  EXPECT_EQ(one_by_one, expected) << "each by a renderer of its own";
}

TEST_F(RunTest, DrawsTheSameInBandsThatCanBeStopped) {
  const std::string nodes = R"({"name": "still", "type": "read", "knobs": {"file": "still.exr"}},
    {"name": "large", "type": "transform", "inputs": "still", "knobs": {"scale": 9, "rotate": 20}},
    {"name": "soft", "type": "blur", "inputs": "large", "knobs": {"size": 9}},
    {"name": "disc", "type": "disc_blur", "inputs": "soft", "knobs": {"radius": 6}},
    {"name": "shine", "type": "glow", "inputs": "disc", "knobs": {"size": 20}},
    {"name": "out", "type": "write", "inputs": "shine", "knobs": {"file": "out/o.exr", "depth": "float"}})";
  const std::atomic<bool> stop = false;
  RenderOptions options;
  options.frames = {1};
  const auto whole = files_of(options, nodes, 500, 400);
  options.stop = &stop;
  EXPECT_EQ(files_of(options, nodes, 500, 400), whole);
}

TEST_F(RunTest, ComputesAStillBranchOnce) {
  RenderOptions options;
  options.frames = frames(12);
  EXPECT_EQ(run(options), Outcome::done);
  EXPECT_EQ(recorder_.stats.computed, once_computed + 12 * computed_a_frame);
  EXPECT_EQ(recorder_.stats.cache_hits, 11);  // of the blurred still, which hides what it reads
  EXPECT_EQ(recorder_.stats.files_read, 1 + 12 * 2);
  EXPECT_EQ(recorder_.stats.files_written, 12);
  // Nothing is keyed anew but what varies and what stands below it.
  EXPECT_EQ(recorder_.stats.visited, 8 + 11 * 6);
  for (const FrameReport& report : recorder_.frames) EXPECT_TRUE(fs::exists(report.files.at(0)));
}

int64_t resident_bytes() {
  std::ifstream statm("/proc/self/statm");
  int64_t pages = 0;
  statm >> pages >> pages;
  return pages * 4096;
}

TEST_F(RunTest, StaysAsSmallHoweverManyFrames) {
  RenderOptions options;
  options.frames = frames(20);
  run(options);
  const auto few = recorder_.stats;
  options.frames = frames(400);
  options.existing = Existing::overwrite;
  int64_t early = 0, late = 0;
  const auto look = [&](const FrameReport& report) {
    if (report.frame == 50) early = resident_bytes();
    if (report.frame == 400) late = resident_bytes();
  };
  EXPECT_EQ(run(options, shot_nodes(), width, height, look), Outcome::done);
  EXPECT_EQ(recorder_.stats.textures_created, few.textures_created);
  EXPECT_EQ(recorder_.stats.peak_texture_bytes, few.peak_texture_bytes);
  // One image a frame kept by anybody would be 17 MB. The address sanitizer keeps what is freed.
  EXPECT_TRUE(support::address_sanitizer || late - early < 6 << 20) << early << " " << late;
}

TEST_F(RunTest, EndsAtFailuresLimitsAndSignals) {
  RenderOptions options;
  options.frames = {1, 9, 2, 3, 4, 5, 6};
  EXPECT_EQ(run(options, scene::read_plate("plate.##.exr") +
                             scene::node("out", "p", "write", R"("file": "out/o.####.exr")")),
            Outcome::some_failed);
  EXPECT_NE(recorder_.frames.back().error.find("no such file"), std::string::npos);
  EXPECT_FALSE(fs::exists(scene::folder() / "out/o.0006.exr"));

  SetUp();
  options.frames = frames(12);
  std::atomic<bool> stop = false;
  options.stop = &stop;
  EXPECT_EQ(run(options, shot_nodes(), width, height, [&](const FrameReport&) { stop = true; }),
            Outcome::interrupted);
  // Everything that was reported stands, and everything that stands was reported.
  const auto standing = std::distance(fs::directory_iterator(scene::folder() / "out"), {});
  EXPECT_EQ(static_cast<size_t>(standing), recorder_.frames.size());
  EXPECT_LT(standing, 12);
}

}  // namespace
