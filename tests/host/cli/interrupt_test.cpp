#include "tests/host/cli/process.h"

#include <algorithm>
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
  // As if one had been killed in the middle of a write: nobody has this process number.
  process::write_text(folder / "out" / ".f.0400.exr.999999999.part", "half");
  EXPECT_EQ(process::run({"render", file, "-f", "1-3", "--overwrite"}).code, 0);
  EXPECT_TRUE(files_in(folder / "out").parts.empty());
}

TEST(FullDisk, IsAnErrorAndLeavesNoBrokenFile) {
  const fs::path folder = process::new_folder();
  const std::string file = process::write_text(folder / "shot.json", shot).string();
  constexpr uint64_t a_third = 480 * 270 * 16 / 3;
  const process::Ended ended = process::run({"render", file, "-f", "1-3", "--keep-going"}, a_third);
  EXPECT_EQ(ended.code, 1);
  EXPECT_NE(ended.err.find("out/f.0002.exr: cannot write: File too large"), std::string::npos) << ended.err;
  const Found found = files_in(folder / "out");
  EXPECT_TRUE(found.images.empty());
  EXPECT_TRUE(found.parts.empty());
}

}  // namespace
