#include "tests/host/cli/process.h"

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <gtest/gtest.h>

// What can be said before the first frame is said before the first frame.

namespace {

namespace fs = std::filesystem;
using process::run;

std::string shot(const std::string& nodes, const std::string& format = R"("width": 32, "height": 18)") {
  return R"({"format": {)" + format + R"(}, "frames": "1-3", "nodes": [)" + nodes + "]}";
}

const std::string grey = R"({"name": "grey", "type": "constant", "knobs": {"color": [0.5, 0.5, 0.5, 1]}})";

std::string write_node(const std::string& name, const std::string& input, const std::string& file) {
  return R"(,{"name": ")" + name + R"(", "type": "write", "inputs": ")" + input +
         R"(", "knobs": {"file": ")" + file + R"("}})";
}

std::string read_node(const std::string& file, const std::string& layer = "") {
  return R"({"name": "plate", "type": "read", "knobs": {"file": ")" + file + R"(", "layer": ")" + layer +
         R"("}})";
}

// Three frames of an image, p.0001.exr and so on.
void make_plates(const fs::path& folder) {
  const auto file =
      process::write_text(folder / "plates.json", shot(grey + write_node("p", "grey", "p.####.exr")));
  ASSERT_EQ(run({"render", file.string()}).code, 0);
}

size_t images_in(const fs::path& folder) {
  size_t count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    count += entry.path().extension() == ".exr" && fs::is_regular_file(entry.symlink_status()) ? 1 : 0;
  }
  return count;
}

struct Case {
  const char* name;
  std::string nodes;
  std::vector<std::string> options;
  int code;
  std::string message;
  std::function<void(const fs::path&)> prepare = [](const fs::path&) {};
};

TEST(Beforehand, NothingIsDrawnWhenAFrameIsKnownToFail) {
  const std::string to_o = write_node("out", "plate", "o.####.exr");
  const std::string onto_input = write_node("out", "plate", "p.####.exr");
  const Case cases[] = {
      {"the last output stands",
       grey + write_node("out", "grey", "o.####.exr"),
       {},
       1,
       "o.0003.exr exists already",
       [](const fs::path& f) { process::write_text(f / "o.0003.exr", "x"); }},
      {"an output is a folder",
       grey + write_node("out", "grey", "o.####.exr"),
       {"--overwrite"},
       1,
       "o.0003.exr: is a folder",
       [](const fs::path& f) { fs::create_directory(f / "o.0003.exr"); }},
      {"a folder is read-only",
       grey + write_node("out", "grey", "ro/new/o.####.exr"),
       {},
       1,
       "cannot write to the folder",
       [](const fs::path& f) {
         fs::create_directory(f / "ro");
         fs::permissions(f / "ro", fs::perms::owner_read | fs::perms::owner_exec);
       }},
      {"a file where a folder should be",
       grey + write_node("out", "grey", "p.0001.exr/o.####.exr"),
       {},
       1,
       "p.0001.exr is no folder"},
      {"the last plate is missing",
       read_node("p.####.exr") + to_o,
       {},
       1,
       "node \"plate\": frame 3: ",
       [](const fs::path& f) { fs::remove(f / "p.0003.exr"); }},
      {"a layer is missing", read_node("p.####.exr", "nope") + to_o, {}, 1, "has no layer \"nope\""},
      {"a width that no texture holds",
       read_node("wide.ppm") + to_o,
       {"--gpu", "software"},
       1,
       "wide.ppm: an image of 70000 x 2 pixels is larger than the device's textures",
       [](const fs::path& f) {
         process::write_text(f / "wide.ppm", "P6 70000 2 255\n" + std::string(420000, 'x'));
       }},
      {"onto its own input",
       read_node("p.####.exr") + onto_input,
       {"--overwrite"},
       2,
       "p.0001.exr: node \"plate\" reads this file"},
      {"onto a frame of its input that is not asked for",
       read_node("p.####.exr") + to_o,
       {"--overwrite", "-f", "1", "-o", "p.0003.exr"},
       2,
       "p.0003.exr: node \"plate\" reads this file"},
      {"onto its own input by a linked folder",
       read_node("p.####.exr") + write_node("out", "plate", "way/p.####.exr"),
       {"--overwrite"},
       2,
       "way/p.0001.exr: node \"plate\" reads this file",
       [](const fs::path& f) { fs::create_directory_symlink(".", f / "way"); }},
      {"onto its own input by a link",
       read_node("p.####.exr") + to_o,
       {"--overwrite"},
       2,
       "o.0002.exr: node \"plate\" reads this file",
       [](const fs::path& f) { fs::create_symlink("p.0002.exr", f / "o.0002.exr"); }},
      {"two outputs with one path",
       grey + write_node("a", "grey", "o.####.exr") + write_node("b", "grey", "x/../o.####.exr"),
       {},
       2,
       "node \"b\": knob \"file\": "},
      {"one path for all frames",
       grey + write_node("out", "grey", "o.exr"),
       {},
       2,
       "every frame would go to this file"},
      {"an output without a file",
       grey + R"(,{"name": "out", "type": "write", "inputs": "grey"})",
       {},
       2,
       "shot.json: node \"out\": knob \"file\": expected a path"},
      {"an output under a variable that is not set",
       grey + write_node("out", "grey", "${QUORVEL_UNSET}/o.####.exr"),
       {},
       2,
       "$QUORVEL_UNSET is not set"},
      {"an input under a variable that is not set",
       read_node("$QUORVEL_UNSET/p.exr") + to_o,
       {},
       1,
       "node \"plate\": frame 1: $QUORVEL_UNSET is not set"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    const fs::path folder = process::new_folder();
    make_plates(folder);
    each.prepare(folder);
    process::write_text(folder / "shot.json", shot(each.nodes));
    const size_t images = images_in(folder);
    process::Setup setup;
    setup.folder = folder.string();
    setup.mortal = true;
    std::vector<std::string> arguments = {"render", "shot.json"};
    arguments.insert(arguments.end(), each.options.begin(), each.options.end());
    const process::Ended ended = run(arguments, setup);
    EXPECT_EQ(ended.code, each.code) << ended.err;
    EXPECT_NE(ended.err.find(each.message), std::string::npos) << ended.err;
    EXPECT_EQ(images_in(folder), images);
    arguments.emplace_back("--dry-run");
    const process::Ended dry = run(arguments, setup);
    EXPECT_EQ(dry.code, each.code) << dry.out << dry.err;
    EXPECT_NE((dry.out + dry.err).find(each.message), std::string::npos) << dry.out << dry.err;
    // What holds for the composition as it stands is told of it as well.
    if (!each.options.empty() && each.options.back() != "--overwrite") continue;
    if (each.message.find("exists") != std::string::npos) continue;
    const process::Ended info = run({"info", "shot.json"}, setup);
    EXPECT_EQ(info.code, each.code) << info.out << info.err;
    EXPECT_NE(info.out.find(each.message), std::string::npos) << info.out << info.err;
  }
}

TEST(Beforehand, WhatStandsIsKeptOnlyIfItIsWhatWouldBeMade) {
  for (const std::string ending : {"exr", "png", "tif"}) {
    const fs::path folder = process::new_folder();
    const std::string nodes = grey + write_node("out", "grey", "o.####." + ending);
    const std::string full = process::write_text(folder / "shot.json", shot(nodes)).string();
    // As large as the other one at half its size.
    const std::string half =
        process::write_text(folder / "half.json", shot(nodes, R"("width": 16, "height": 9)")).string();
    ASSERT_EQ(run({"render", full, "--proxy", "0.5"}).code, 0);
    EXPECT_EQ(run({"render", full, "--proxy", "0.5", "--skip-existing"}).code, 0) << ending;

    const process::Ended other_size = run({"render", full, "--skip-existing"});
    EXPECT_EQ(other_size.code, 1) << ending;
    EXPECT_NE(other_size.err.find("is 16 x 9 at scale 0.5, not 32 x 18 at scale 1"), std::string::npos)
        << other_size.err;
    EXPECT_EQ(run({"render", half, "--skip-existing"}).code, 1) << ending;
    EXPECT_EQ(run({"render", half, "--skip-existing", "--keep-going"}).code, 1) << ending;

    EXPECT_EQ(run({"render", full, "--overwrite"}).code, 0);
    EXPECT_EQ(run({"render", full, "--skip-existing"}).code, 0) << ending;
    process::write_text(folder / ("o.0002." + ending), "no image");
    EXPECT_EQ(run({"render", full, "--skip-existing"}).code, 1) << ending;
  }
}

TEST(Paths, KnowTheEnvironmentAndAreWrittenThroughLinks) {
  const fs::path folder = process::new_folder();
  ASSERT_EQ(setenv("QUORVEL_TEST", folder.c_str(), 1), 0);
  ASSERT_EQ(setenv("HOME", folder.c_str(), 1), 0);
  make_plates(folder);
  fs::create_directory(folder / "a$b");
  const std::string file =
      process::write_text(folder / "shot.json",
                          shot(read_node("${QUORVEL_TEST}/p.####.exr") +
                               write_node("out", "plate", "$QUORVEL_TEST/a$$b/o.####.exr")))
          .string();
  EXPECT_EQ(run({"render", file}).code, 0);
  EXPECT_TRUE(fs::exists(folder / "a$b" / "o.0003.exr"));
  fs::create_directory(folder / "store");
  fs::create_symlink("store/kept.exr", folder / "h.0001.exr");
  EXPECT_EQ(run({"render", file, "-f", "1", "-o", "~/h.####.exr"}).code, 0);
  EXPECT_TRUE(fs::is_symlink(folder / "h.0001.exr"));
  EXPECT_EQ(OIIO::ImageBuf((folder / "store" / "kept.exr").string()).spec().width, 32);
}

}  // namespace
