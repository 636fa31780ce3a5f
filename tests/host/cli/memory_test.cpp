#include "tests/host/cli/process.h"
#include "tests/support/images.h"
#include "tests/support/sanitizers.h"

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

void write_plate(const fs::path& file, int width, int height, unsigned seed) {
  std::minstd_rand random(seed);
  std::uniform_real_distribution<float> grain(0.4F, 0.5F);
  std::vector<float> rgba(static_cast<size_t>(width) * static_cast<size_t>(height) * 4, 1.0F);
  for (float& value : rgba) value = grain(random);
  support::write_image(file, OIIO::ImageSpec(width, height, 4, OIIO::TypeHalf), rgba);
}

// By the kernel's own count of a process whose parent is small, for a child begins with its parent's.
double peak_mib(const std::string& command, const fs::path& folder) {
  const process::Ended ended = process::run(
      "python3 -c \"import resource as r, subprocess as s, sys; s.run(sys.argv[1].split(), check=True); "
      "print(r.getrusage(r.RUSAGE_CHILDREN).ru_maxrss)\" '" +
          command + "'",
      folder);
  EXPECT_EQ(ended.code, 0) << ended.err;
  return std::stod(ended.out) / 1024;
}

// What is on the way beside the drawing depends on how threads take turns, by an image or two, and now and
// then a run beside busy neighbours has 50 MiB less mapped from the start: one run of three must be near.
// Where drawing takes longest, a second image and its file never are on the way.
TEST(DryRun, PredictsTheMemoryOfTheRun) {
  if (support::address_sanitizer || support::thread_sanitizer) GTEST_SKIP() << "it keeps memory of its own";
  const fs::path folder = process::new_folder();
  for (const unsigned frame : {1U, 2U, 3U, 4U}) {
    write_plate(folder / ("p.000" + std::to_string(frame) + ".exr"), 1920, 1080, 10 + frame);
    write_plate(folder / ("s.000" + std::to_string(frame) + ".exr"), 200, 120, 20 + frame);
  }
  const std::string over = R"({"name": "a", "type": "read", "knobs": {"file": "p.####.exr"}},
    {"name": "b", "type": "read", "knobs": {"file": "p.0001.exr"}},
    {"name": "over", "type": "merge", "inputs": ["a", "b"]})";
  const std::string chain = R"(, {"name": "soft", "type": "blur", "inputs": "over", "knobs": {"size": 9}},
    {"name": "turned", "type": "transform", "inputs": "soft", "knobs": {"rotate": 10}})";
  const std::string small =
      R"({"name": "a", "type": "read", "knobs": {"file": "s.####.exr", "after": "loop"}},
    {"name": "soft", "type": "blur", "inputs": "a", "knobs": {"size": {"keys": [[1, 1, "linear"], [60, 9]]}}})";
  const struct {
    const char* name;
    std::string nodes, last, file, format, frames, threads;
    double never_there = 0;  // MiB
  } rows[] = {
      {"two plates", over, "over", "o.####.exr", R"("width": 1920, "height": 1080)", "1-4", "2"},
      {"a chain", over + chain, "turned", "o.####.exr", R"("width": 1920, "height": 1080)", "1-4", "2", 48},
      {"much that is small", small, "soft", "o.####.exr", R"("width": 200, "height": 120)", "1-60", "8"},
      {"another type of file", process::grey, "grey", "o.####.png", R"("width": 960, "height": 540)", "1-4",
       "2"}};
  for (const auto& row : rows) {
    process::write_shot(folder / "shot.json", row.nodes + process::write_node("out", row.last, row.file),
                        row.frames, row.format);
    const std::string command =
        "quorvel render shot.json --gpu software --overwrite --threads " + row.threads;
    const process::Ended dry = process::run(command + " --dry-run", folder);
    const size_t at = dry.out.find("at most ");
    ASSERT_NE(at, std::string::npos) << dry.out << dry.err;
    const double predicted = std::stod(dry.out.substr(at + 8));
    double measured = 0;
    const auto is_near = [&] {
      return predicted > measured * 0.9 && predicted - row.never_there < measured * 1.1;
    };
    for (int tries = 0; tries < 3 && !is_near(); ++tries)
      measured = peak_mib(command + " --progress none", folder);
    EXPECT_TRUE(is_near()) << row.name << ": " << predicted << " predicted, " << measured;
    RecordProperty(row.name, std::to_string(predicted) + " predicted, " + std::to_string(measured));
  }
}

}  // namespace
