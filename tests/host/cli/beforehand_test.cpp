#include "tests/host/cli/process.h"
#include "tests/support/table.h"

#include <cstdlib>

#include <OpenImageIO/imagebuf.h>
#include <gtest/gtest.h>
#include <unistd.h>

// What can be said before the first frame is said before the first frame.

namespace {

namespace fs = std::filesystem;
using process::call;
using process::grey;
using process::write_node;
using process::write_shot;

std::string read_node(const std::string& file, const std::string& layer = "") {
  return R"({"name": "plate", "type": "read", "knobs": {"file": ")" + file + R"(", "layer": ")" + layer +
         R"("}})";
}

// Three frames of an image, p.0001.exr and so on.
void make_plates(const fs::path& folder) {
  write_shot(folder / "plates.json", grey + write_node("p", "grey", "p.####.exr"));
  ASSERT_EQ(call("render plates.json", folder).code, 0);
}

// What it is about, what makes it so, the file and layer that node "plate" reads, the files of the outputs
// "out", "out2", options, the exit code and what is said.
constexpr const char* cases = R"(
the last output stands     | touch o.0003.exr | | o.####.exr | | 1 | o.0003.exr exists already
an output is a folder      | mkdir o.0003.exr | | o.####.exr | --overwrite | 1 | o.0003.exr: is a folder
a folder is read-only      | mkdir -m 500 ro | | ro/new/o.####.exr | | 1 | cannot write to the folder
a file for a folder        | | | p.0001.exr/o.####.exr | | 1 | p.0001.exr is no folder
the last plate is missing  | rm p.0003.exr | p.####.exr | o.####.exr | | 1 | node "plate": frame 3:
a layer is missing         | | p.####.exr nope | o.####.exr | | 1 | has no layer "nope"
wider than textures        | (echo P6 40000 2 255; head -c 240000 /dev/zero) > wide.ppm | wide.ppm | o.####.exr | --gpu software | 1 | wide.ppm: an image of 40000 x 2 pixels is larger than the device's textures
onto its own input         | | p.####.exr | p.####.exr | --overwrite | 2 | p.0001.exr: node "plate" reads this file
onto a frame not asked for | | p.####.exr | o.####.exr | --overwrite -f 1 -o p.0003.exr | 2 | p.0003.exr: node "plate" reads this file
by a linked folder         | ln -s . way | p.####.exr | way/p.####.exr | --overwrite | 2 | way/p.0001.exr: node "plate" reads this file
by a link                  | ln -s p.0002.exr o.0002.exr | p.####.exr | o.####.exr | --overwrite | 2 | o.0002.exr: node "plate" reads this file
two outputs with one path  | | | o.####.exr x/../o.####.exr | | 2 | node "out2": knob "file":
one path for all frames    | | | o.exr | | 2 | every frame would go to this file
an output without a file   | | | - | | 2 | shot.json: node "out": knob "file": expected a path
a compression not had      | | | o.####.exr","compression":"dwaa | -o o.####.tif | 2 | knob "compression": .tif files have no "dwaa"; they have "none", "lzw"
an unset output variable   | | | ${QUORVEL_UNSET}/o.####.exr | | 2 | $QUORVEL_UNSET is not set
an unset input variable    | | $QUORVEL_UNSET/p.exr | o.####.exr | | 1 | node "plate": frame 1: $QUORVEL_UNSET is not set
)";

// The nodes of a row; behind a file's name may stand a layer.
std::string nodes_of(const std::string& input, const std::string& outputs) {
  std::istringstream read(input), written(outputs);
  std::string path, layer, name = "out";
  read >> path >> layer;
  std::string text = path.empty() ? grey : read_node(path, layer);
  for (std::string file; written >> file; name = "out2")
    text += write_node(name, path.empty() ? "grey" : "plate", file);
  return text;
}

TEST(Beforehand, NothingIsDrawnWhenAFrameIsKnownToFail) {
  // With permissions of files that count even for root, which takes a process.
  const std::string mortal = geteuid() == 0 ? "setpriv --bounding-set=-dac_override " : "";
  for (const auto& [about, prepare, input, outputs, options, code, message] : support::rows<7>(cases)) {
    const fs::path folder = process::new_folder();
    make_plates(folder);
    ASSERT_EQ(process::run("true; " + prepare, folder).code, 0);
    write_shot(folder / "shot.json", nodes_of(input, outputs));
    const auto images = process::files_in(folder, ".exr");
    std::vector<std::string> commands = {"render shot.json " + options,
                                         "render shot.json --dry-run " + options};
    // What holds for the composition as it stands is told of it as well.
    if ((options.empty() || options == "--overwrite") && message.find("exists") == std::string::npos)
      commands.emplace_back("info shot.json");
    for (const std::string& words : commands) {
      const process::Ended ended = prepare.starts_with("mkdir -m")
                                       ? process::run(mortal + "quorvel " + words, folder)
                                       : call(words, folder);
      const std::string said = (words == commands[0] ? "" : ended.out) + ended.err;
      EXPECT_EQ(std::to_string(ended.code), code) << about << ": " << words << said;
      EXPECT_NE(said.find(message), std::string::npos) << about << ": " << words << said;
      EXPECT_EQ(process::files_in(folder, ".exr"), images) << about;
    }
  }
}

TEST(Beforehand, WhatStandsIsKeptOnlyIfItIsWhatWouldBeMade) {
  for (const std::string ending : {"exr", "png", "tif"}) {
    const fs::path folder = process::new_folder();
    const std::string nodes = grey + write_node("out", "grey", "o.####." + ending);
    write_shot(folder / "full.json", nodes);
    // As large as the other one at half its size.
    write_shot(folder / "half.json", nodes, "1-3", R"("width": 16, "height": 9)");
    process::check_calls(R"(
render full.json --proxy 0.5 | 0 |
render full.json --proxy 0.5 --skip-existing | 0 |
render full.json --skip-existing | 1 | is 16 x 9 at scale 0.5, not 32 x 18 at scale 1
render half.json --skip-existing | 1 | is 16 x 9 at scale 0.5, not 16 x 9 at scale 1
render half.json --skip-existing --keep-going | 1 | is 16 x 9 at scale 0.5, not 16 x 9 at scale 1
render full.json --overwrite | 0 |
render full.json --skip-existing | 0 |
)",
                         folder);
    support::write_bytes(folder / ("o.0002." + ending), "no image");
    EXPECT_EQ(call("render full.json --skip-existing", folder).code, 1) << ending;
  }
}

TEST(Paths, KnowTheEnvironmentAndAreWrittenThroughLinks) {
  const fs::path folder = process::new_folder();
  ASSERT_EQ(setenv("QUORVEL_TEST", folder.c_str(), 1), 0);
  ASSERT_EQ(setenv("HOME", folder.c_str(), 1), 0);
  make_plates(folder);
  fs::create_directory(folder / "a$b");
  write_shot(folder / "shot.json", read_node("${QUORVEL_TEST}/p.####.exr") +
                                       write_node("out", "plate", "$QUORVEL_TEST/a$$b/o.####.exr"));
  EXPECT_EQ(call("render shot.json", folder).code, 0);
  EXPECT_TRUE(fs::exists(folder / "a$b" / "o.0003.exr"));
  fs::create_directory(folder / "store");
  fs::create_symlink("store/kept.exr", folder / "h.0001.exr");
  EXPECT_EQ(call("render shot.json -f 1 -o ~/h.####.exr", folder).code, 0);
  EXPECT_TRUE(fs::is_symlink(folder / "h.0001.exr"));
  EXPECT_EQ(OIIO::ImageBuf((folder / "store" / "kept.exr").string()).spec().width, 32);
}

}  // namespace
