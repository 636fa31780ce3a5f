#include "tests/host/cli/process.h"
#include "tests/support/sanitizers.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <random>
#include <thread>
#include <tuple>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;
using process::files_in;
using process::run;
using std::chrono::milliseconds;

// Every frame has a colour of its own, so that a file tells whether it is the right one.
constexpr const char* shot = R"({"format": {"width": 480, "height": 270}, "frames": "1-400", "nodes": [
  {"name": "c", "type": "constant", "knobs": {"color": {"keys": [[0, 0], [512, 1]]}}},
  {"name": "out", "type": "write", "inputs": "c",
   "knobs": {"file": "out/f.####.exr", "depth": "float", "compression": "none"}}]})";

// One draw of it takes minutes on a software driver.
constexpr const char* long_draw = R"({"format": {"width": 4096, "height": 2160}, "frames": "1-2", "nodes": [
  {"name": "c", "type": "constant", "knobs": {"color": [0.5, 0.2, 0.1, 1]}},
  {"name": "soft", "type": "disc_blur", "inputs": "c", "knobs": {"radius": 900, "edges": "repeat"}},
  {"name": "out", "type": "write", "inputs": "soft", "knobs": {"file": "out/f.####.exr"}}]})";

void expect_whole(const fs::path& file) {
  OIIO::ImageBuf image(file.string());
  ASSERT_TRUE(image.read(0, 0, true, OIIO::TypeFloat)) << file << image.geterror();
  const float frame = std::stof(file.stem().extension().string().substr(1));
  std::array<float, 4> color = {-1};
  EXPECT_TRUE(OIIO::ImageBufAlgo::isConstantColor(image, 0, color) && color[0] == frame / 512) << file;
}

// A render that is sent a signal so long after its first words; what it says in all, and its end: the
// exit code, or minus the signal that ended it.
struct Interrupted {
  std::string said;
  int code = 0;

  Interrupted(const fs::path& folder, const std::string& options, int signal, milliseconds after) {
    const std::string line = "cd " + folder.string() +
                             "; echo $$; exec " QUORVEL_PROGRAM " render shot.json " + "--gpu software " +
                             options + " 2>&1";
    FILE* const pipe = popen(line.c_str(), "r");
    pid_t process = 0;
    EXPECT_EQ(std::fscanf(pipe, "%d\n", &process), 1);
    said += static_cast<char>(std::fgetc(pipe));
    std::this_thread::sleep_for(after);
    kill(process, signal);
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) said += static_cast<char>(c);
    const int status = pclose(pipe);
    code = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
  }
};

TEST(Interrupted, LeavesWholeFilesOnlyAndTheNextRunTidiesUp) {
  const fs::path folder = process::new_folder();
  support::write_bytes(folder / "shot.json", shot);
  std::mt19937 random(7);
  for (int round = 0; round < 10; ++round) {
    const int signal = round % 2 ? SIGINT : SIGKILL;
    const Interrupted ended(folder, "--overwrite --progress jsonl", signal, milliseconds(random() % 250));
    EXPECT_EQ(ended.code, signal == SIGKILL ? -SIGKILL : 130) << ended.said;
    for (const fs::path& image : files_in(folder / "out", ".exr")) expect_whole(image);
    EXPECT_TRUE(signal == SIGKILL || files_in(folder / "out", ".part").empty());
  }
  // As if one had been killed in the middle of a write on another machine, days ago.
  const fs::path half = support::write_bytes(folder / "out/.f.0400.exr.elsewhere.00000000-1.9.part", "half");
  fs::last_write_time(half, fs::file_time_type::clock::now() - std::chrono::hours(50));
  EXPECT_EQ(run("quorvel render shot.json -f 1-3 --overwrite", folder).code, 0);
  EXPECT_TRUE(files_in(folder / "out", ".part").empty());
}

TEST(Interrupted, ALongDrawEndsSoonAndSaysSo) {
  const fs::path folder = process::new_folder();
  support::write_bytes(folder / "shot.json", long_draw);
  for (const auto& [signal, style, words] : {std::tuple(SIGINT, "jsonl", R"("outcome":"interrupted")"),
                                             {SIGTERM, "plain", "interrupted: 0 of 2 frames written"}}) {
    const auto begin = std::chrono::steady_clock::now();
    const Interrupted ended(folder, std::string("--progress ") + style, signal, milliseconds(1000));
    EXPECT_EQ(ended.code, signal == SIGTERM ? 75 : 130) << ended.said;
    // Far less than the draw, and more than a second for a machine that has other things to do.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
    EXPECT_NE(ended.said.find(words), std::string::npos) << ended.said;
    EXPECT_TRUE(files_in(folder / "out", ".exr").empty());
  }
}

TEST(FullDisk, IsAnErrorAndLeavesNoBrokenFile) {
  const fs::path folder = process::new_folder();
  support::write_bytes(folder / "shot.json", shot);
  // A third of a file, in blocks of 512 bytes. Ignored, the signal turns into an error of the write.
  const process::Ended ended =
      run("trap '' XFSZ; ulimit -f 1350; quorvel render shot.json -f 1-3 --keep-going", folder);
  EXPECT_EQ(ended.code, 1);
  EXPECT_NE(ended.err.find("out/f.0002.exr: cannot write: File too large"), std::string::npos) << ended.err;
  EXPECT_TRUE(fs::is_empty(folder / "out"));
  // Results are worth as much as files.
  for (const std::string command : {"nodes", "info shot.json"}) {
    const process::Ended unheard = run("quorvel " + command + " >/dev/full", folder);
    EXPECT_EQ(unheard.code, 1);
    EXPECT_NE(unheard.err.find("standard output cannot be written to"), std::string::npos) << unheard.err;
  }
}

TEST(LittleMemory, EndsWithItsCodeAndDoesNotHang) {
  if (support::address_sanitizer) GTEST_SKIP() << "the address sanitizer takes terabytes of addresses";
  const fs::path folder = process::new_folder();
  support::write_bytes(folder / "shot.json", shot);
  process::write_shot(folder / "png.json", process::grey + process::write_node("out", "grey", "p.#.png"),
                      "1");
  int told = 0;
  for (int megabytes = 150; megabytes <= 900; megabytes += 50) {
    for (const std::string file : {"shot.json", "png.json"}) {
      const process::Ended ended = run("ulimit -v " + std::to_string(megabytes) + "000; quorvel render " +
                                           file + " -f 1 --overwrite --gpu software",
                                       folder);
      if (ended.code == 127) continue;  // too little to be loaded at all
      // What a file needs is loaded for that file.
      const bool lacks_module = ended.code == 1 && ended.err.find("cannot be loaded") != std::string::npos;
      EXPECT_TRUE(ended.code == 0 || ended.code == 4 || ended.code == 5 || lacks_module)
          << megabytes << file << ": " << ended.code << ended.err;
      told += ended.err.find("memory") != std::string::npos ? 1 : 0;
    }
  }
  EXPECT_GT(told, 0);
}

}  // namespace
