#include "tests/host/cli/process.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <random>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

// Every frame has a colour of its own, so that a file tells whether it is the right one.
constexpr const char* shot = R"({"format": {"width": 480, "height": 270}, "frames": "1-400", "nodes": [
  {"name": "c", "type": "constant", "knobs": {"color": {"keys": [[0, 0], [512, 1]]}}},
  {"name": "out", "type": "write", "inputs": "c",
   "knobs": {"file": "out/f.####.exr", "depth": "float", "compression": "none"}}]})";

struct Found {
  std::vector<fs::path> images;
  std::vector<fs::path> parts;
};

Found files_in(const fs::path& folder) {
  Found found;
  if (!fs::exists(folder)) return found;
  for (const auto& entry : fs::directory_iterator(folder)) {
    (entry.path().extension() == ".part" ? found.parts : found.images).push_back(entry.path());
  }
  return found;
}

void expect_whole(const fs::path& file) {
  const auto input = OIIO::ImageInput::open(file.string());
  ASSERT_TRUE(input) << file;
  const OIIO::ImageSpec spec = input->spec();
  std::vector<float> pixels(spec.image_pixels() * static_cast<size_t>(spec.nchannels));
  ASSERT_TRUE(input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeFloat, pixels.data()))
      << file << input->geterror();
  const float frame = std::stof(file.stem().extension().string().substr(1));
  EXPECT_TRUE(std::all_of(pixels.begin(), pixels.end(), [&](float p) { return p == frame / 512; })) << file;
}

TEST(Interrupted, LeavesWholeFilesOnlyAndTheNextRunTidiesUp) {
  const fs::path folder = process::new_folder();
  const std::string file = process::write_text(folder / "shot.json", shot).string();
  std::mt19937 random(7);
  std::uniform_int_distribution<int> moment(0, 250);
  for (int round = 0; round < 10; ++round) {
    const int signal = round % 2 ? SIGINT : SIGKILL;
    process::Quorvel child({"render", file, "--overwrite", "--gpu", "software", "--progress", "jsonl"});
    child.wait_for_output(moment(random));
    child.send(signal);
    const int code = child.finish();
    EXPECT_EQ(code, signal == SIGKILL ? -SIGKILL : 130) << child.err;
    const Found found = files_in(folder / "out");
    for (const fs::path& image : found.images) expect_whole(image);
    EXPECT_TRUE(signal == SIGKILL || found.parts.empty());
  }
  // As if one had been killed in the middle of a write on another machine, days ago.
  const fs::path half = process::write_text(folder / "out/.f.0400.exr.elsewhere.00000000-1.9.part", "half");
  fs::last_write_time(half, fs::file_time_type::clock::now() - std::chrono::hours(50));
  EXPECT_EQ(process::run({"render", file, "-f", "1-3", "--overwrite"}).code, 0);
  EXPECT_TRUE(files_in(folder / "out").parts.empty());
}

// One draw of it takes minutes on a software driver.
constexpr const char* long_draw = R"({"format": {"width": 4096, "height": 2160}, "frames": "1-2", "nodes": [
  {"name": "c", "type": "constant", "knobs": {"color": [0.5, 0.2, 0.1, 1]}},
  {"name": "soft", "type": "disc_blur", "inputs": "c", "knobs": {"radius": 900, "edges": "repeat"}},
  {"name": "out", "type": "write", "inputs": "soft", "knobs": {"file": "out/f.####.exr"}}]})";

TEST(Interrupted, ALongDrawEndsSoonAndSaysSo) {
  const fs::path folder = process::new_folder();
  const std::string file = process::write_text(folder / "shot.json", long_draw).string();
  for (const int signal : {SIGINT, SIGTERM}) {
    for (const std::string style : {"jsonl", "plain"}) {
      process::Quorvel child({"render", file, "--gpu", "software", "--progress", style});
      child.wait_for_output(1000);
      const auto begin = std::chrono::steady_clock::now();
      child.send(signal);
      EXPECT_EQ(child.finish(), 130) << child.err;
      // Far less than the draw, and more than a second for a machine that has other things to do.
      EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
      const std::string said =
          style == "plain" ? "interrupted: 0 of 2 frames written" : R"("outcome":"interrupted")";
      EXPECT_NE((child.out + child.err).find(said), std::string::npos) << child.out << child.err;
      EXPECT_TRUE(files_in(folder / "out").images.empty());
    }
  }
}

TEST(FullDisk, IsAnErrorAndLeavesNoBrokenFile) {
  const fs::path folder = process::new_folder();
  const std::string file = process::write_text(folder / "shot.json", shot).string();
  constexpr uint64_t a_third = 480 * 270 * 16 / 3;
  const process::Ended ended =
      process::run({"render", file, "-f", "1-3", "--keep-going"}, {.largest_file = a_third});
  EXPECT_EQ(ended.code, 1);
  EXPECT_NE(ended.err.find("out/f.0002.exr: cannot write: File too large"), std::string::npos) << ended.err;
  const Found found = files_in(folder / "out");
  EXPECT_TRUE(found.images.empty());
  EXPECT_TRUE(found.parts.empty());
  // Results are worth as much as files.
  process::Setup full;
  full.out_path = "/dev/full";
  for (const std::vector<std::string>& command : {std::vector<std::string>{"nodes"}, {"info", file}}) {
    const process::Ended unheard = process::run(command, full);
    EXPECT_EQ(unheard.code, 1);
    EXPECT_NE(unheard.err.find("standard output cannot be written to"), std::string::npos) << unheard.err;
  }
}

#if defined(__SANITIZE_ADDRESS__)
constexpr bool address_sanitizer = true;
#elif defined(__has_feature)
constexpr bool address_sanitizer = __has_feature(address_sanitizer);
#else
constexpr bool address_sanitizer = false;
#endif

TEST(LittleMemory, EndsWithItsCodeAndDoesNotHang) {
  if (address_sanitizer) GTEST_SKIP() << "the address sanitizer takes terabytes of addresses";
  const fs::path folder = process::new_folder();
  const std::string file = process::write_text(folder / "shot.json", shot).string();
  int told = 0;
  for (uint64_t megabytes = 400; megabytes <= 1000; megabytes += 100) {
    process::Setup setup;
    setup.address_space = megabytes << 20;
    const process::Ended ended =
        process::run({"render", file, "-f", "1", "--overwrite", "--gpu", "software"}, setup);
    if (ended.code == 127) continue;  // too little to be loaded at all
    EXPECT_TRUE(ended.code == 0 || ended.code == 4 || ended.code == 5)
        << megabytes << ": " << ended.code << ended.err;
    told += ended.err.find("memory") != std::string::npos ? 1 : 0;
  }
  EXPECT_GT(told, 0);
}

}  // namespace
