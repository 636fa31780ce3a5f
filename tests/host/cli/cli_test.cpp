#include "host/nodes/catalogue.h"
#include "host/report/describe.h"
#include "host/shot/composition.h"
#include "tests/host/cli/process.h"
#include "tests/support/table.h"

#include <cstdlib>
#include <fstream>
#include <set>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using process::call;
using process::grey;
using process::run;
using process::write_shot;

const std::string out = process::write_node("out", "grey", "o.####.exr");

// The words, the exit code and what is said.
constexpr const char* wrong = R"(
render range.json | 2 | range.json: "frames": expected a frame number
render end.json | 2 | end.json: not JSON: parse error at line 1
render type.json | 2 | type.json: node "soft": unknown type "blurr" (did you mean "blur"?)
render input.json | 2 | node "soft": input "image": there is no node "sfot" (did you mean "soft"?)
render ring.json | 2 | "a"
render knob.json | 2 | node "soft": knob "size": expected 1 to 2 numbers from 0 to 100000, found -3
render deep.json | 2 | deep.json: more than 100 lists and objects stand within each other
| 2 | expected a command
rendre | 2 | unknown command "rendre" (did you mean "render"?)
render | 2 | composition is required
render good.json --overwite | 2 | unknown option "--overwite" (did you mean "--overwrite"?)
render good.json extra | 2 | unexpected argument "extra"
render good.json -f 1- | 2 | --frames: expected a frame number
render good.json -f 7,^7 | 3 | leaves no frame
render good.json --proxy 2 | 2 | --proxy: expected a number above 0 and at most 1
render good.json --memory 4Q | 2 | --memory: expected a size such as 4G
render good.json --gpu best | 2 | --gpu: expected auto, software or a device number
render good.json --gpu 77 | 5 | no device 77
render good.json --progress jsnl | 2 | (did you mean "jsonl"?)
render good.json --overwrite --skip-existing | 2 | excludes
render good.json -o x.exr | 2 | expected #### or %04d
render good.json -o x.####.bmp | 2 | unknown image file ending
render bmp.json | 2 | node "out": knob "file"
render none.json | 2 | it writes no file
farm | 2 | expected a command: submit, status, retry, cancel or export
farm submit good.json --chunk 0 | 2 | --chunk: expected auto or a number of frames, found "0"
farm submit good.json -f 7,^7 | 3 | leaves no frame
farm submit none.json | 2 | it writes no file
farm submit good.json --gpu best | 2 | --gpu: expected auto, software or a device number
farm cancel good.json | 2 | nothing has been submitted
farm export good.json --retries 101 | 2 | --retries
farm retry good.json | 2 | nothing has been submitted; quorvel farm submit does so
farm export good.json --format job | 2 | --format
render good.json --memory 1K -f 1 | 4 | memory
render absent.json | 2 | absent.json: cannot be opened: No such file
nodes blurr | 2 | unknown node type "blurr" (did you mean "blur"?)
)";

TEST(Words, AndCompositionsThatAreWrongEndWithACodeAndSayWhatIsWrong) {
  const fs::path folder = process::new_folder();
  write_shot(folder / "good.json", grey + out);
  write_shot(folder / "none.json", grey);
  write_shot(folder / "bmp.json", grey + process::write_node("out", "grey", "o.####.bmp"));
  write_shot(folder / "range.json", grey + out, "1-x");
  write_shot(folder / "end.json", R"({"format": )");
  write_shot(folder / "type.json", R"({"name": "soft", "type": "blurr"})");
  write_shot(folder / "input.json", R"({"name": "soft", "type": "blur", "inputs": "sfot"})");
  write_shot(folder / "ring.json",
             R"({"name": "a", "type": "blur", "inputs": "b"}, {"name": "b", "type": "blur", "inputs": "a"})");
  write_shot(folder / "knob.json",
             grey + R"(,{"name": "soft", "type": "blur", "inputs": "grey", "knobs": {"size": -3}})");
  write_shot(folder / "deep.json", std::string(200000, '[') + std::string(200000, ']'));
  for (const auto& [words, code, message] : support::rows<3>(wrong)) {
    const process::Ended ended = call(words, folder);
    EXPECT_EQ(std::to_string(ended.code), code) << words << ended.err;
    EXPECT_NE(ended.err.find(message), std::string::npos) << words << ended.err;
    EXPECT_EQ(ended.out, "") << words;
  }
  EXPECT_FALSE(fs::exists(folder / "o.0001.exr"));
  // Not from a file alone.
  EXPECT_EQ(run("quorvel render - -f 1 <good.json", folder).code, 0);
  EXPECT_TRUE(fs::exists(folder / "o.0001.exr"));
}

TEST(Composition, NamesAreNoCommandsToATerminal) {
  const fs::path folder = process::new_folder();
  write_shot(folder / "shot.json", R"({"name": "\u001b[2J\u009b", "type": "blurr"})");
  write_shot(folder / "good.json", grey + out);
  EXPECT_NE(call("info shot.json", folder).err.find("node \"\x1b[2J\xc2\x9b\""), std::string::npos);
  const std::string shown = run("script -qec 'quorvel info shot.json' /dev/null", folder).out;
  EXPECT_NE(shown.find(R"(node "\x1b[2J\x9b": unknown type)"), std::string::npos) << shown;
  // A bar is still drawn.
  const std::string drawn = run("script -qec 'quorvel render good.json' /dev/null", folder).out;
  EXPECT_NE(drawn.find("\r\x1b[K[=="), std::string::npos) << drawn;
}

TEST(Render, CodesAndEventsTellWhatHappenedToEveryFrame) {
  const fs::path folder = process::new_folder();
  write_shot(folder / "shot.json", grey + out);
  const fs::path second = folder / "o.0002.exr";
  ASSERT_EQ(call("render shot.json -f 2", folder).code, 0);
  const auto made = fs::last_write_time(second);

  const auto failed = call("render shot.json --keep-going", folder);
  EXPECT_EQ(failed.code, 1);
  EXPECT_NE(failed.err.find("frame 2: o.0002.exr exists already"), std::string::npos) << failed.err;
  EXPECT_NE(failed.err.find("2 of 3 frames written"), std::string::npos) << failed.err;

  const auto skipped = call("render shot.json --skip-existing --progress jsonl -f 2-4", folder);
  EXPECT_EQ(skipped.code, 0) << skipped.err;
  std::istringstream lines(skipped.out);
  std::string kinds;
  for (std::string line; std::getline(lines, line);) {
    const auto event = nlohmann::json::parse(line);
    kinds += event.at("event").get<std::string>() + (event.value("skipped", false) ? "(skipped) " : " ");
  }
  EXPECT_EQ(kinds, "begin frame(skipped) frame(skipped) frame end ");
  EXPECT_EQ(fs::last_write_time(second), made);

  EXPECT_EQ(call("render shot.json --overwrite --stats=stats.json --progress none", folder).code, 0);
  EXPECT_GT(fs::last_write_time(second), made);
  const auto numbers = nlohmann::json::parse(support::bytes_of(folder / "stats.json"));
  EXPECT_EQ(numbers.at("frames"), 3);
  EXPECT_EQ(numbers.at("files_written"), 3);
  // Nothing is animated: the constant and its writer are computed once.
  EXPECT_EQ(numbers.at("computed"), 2);
}

// What is read out of a pipe, and that the pipe is still one, whoever writes to it.
TEST(Render, PipesAndDevicesAreWrittenToAndStay) {
  const fs::path folder = process::new_folder();
  write_shot(folder / "shot.json", grey + out);
  const fs::path pipe = folder / "pipe.exr";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const auto& [options, starts] :
       {std::pair("--overwrite --stats=pipe.exr", "{"), {"-o pipe.exr", "\x76\x2f\x31\x01"}}) {
    std::string content;
    std::thread reader([&] { content = support::bytes_of(pipe); });
    const process::Ended ended =
        call(std::string("render shot.json -f 1 --progress none ") + options, folder);
    EXPECT_EQ(ended.code, 0) << ended.err;
    // A reader whom nobody has written to is let go.
    close(open(pipe.c_str(), O_RDWR | O_NONBLOCK));
    reader.join();
    EXPECT_TRUE(content.starts_with(starts)) << options;
    EXPECT_TRUE(fs::is_fifo(pipe));
  }
  // Through a link, so that the device itself is not at stake.
  fs::create_symlink("/dev/full", folder / "full");
  const auto full = call("render shot.json -f 1 --progress none --overwrite --stats=full", folder);
  EXPECT_NE(full.err.find("No space left on device"), std::string::npos) << full.err;
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST(DryRun, SaysWhatWouldBeComputedAndNamesWhatIsMissing) {
  const fs::path folder = process::new_folder();
  const std::string file = write_shot(
      folder / "shot.json", R"({"name": "plate", "type": "read", "knobs": {"file": "p.####.exr"}},)" + grey +
                                R"(,{"name": "sum", "type": "merge", "inputs": ["plate", "grey"]})" +
                                process::write_node("out", "sum", "o/o.%04d.png"));
  write_shot(folder / "good.json", grey + out);
  ASSERT_EQ(call("render good.json -f 1,3 -o p.####.exr", folder).code, 0);

  const auto plan = call("render " + file + " --dry-run", folder);
  EXPECT_EQ(plan.code, 1);
  for (const std::string line :
       {"frame 1\n  computes 4: plate @ 1, grey @ 1, sum @ 1, out @ 1\n",
        "frame 3\n  computes 3: plate @ 3, sum @ 3, out @ 3\n  reuses   1: grey @ 3\n"}) {
    EXPECT_NE(plan.out.find(line), std::string::npos) << plan.out;
  }
  const std::string missing = file + ": node \"plate\": frame 2: " + (folder / "p.0002.exr").string();
  EXPECT_NE(plan.out.find("MISSING  " + missing), std::string::npos) << plan.out;
  EXPECT_NE(plan.out.find("writes   " + (folder / "o/o.0003.png").string()), std::string::npos) << plan.out;
  EXPECT_FALSE(fs::exists(folder / "o"));

  const auto info = call("info " + file, folder);
  EXPECT_EQ(info.code, 1);
  EXPECT_NE(info.out.find("1 problem:\n  " + missing), std::string::npos) << info.out;
  EXPECT_NE(call("info --dot " + file, folder).out.find("\"plate\" -> \"sum\" [label=\"a\"]"),
            std::string::npos);

  const auto failed = call("render --keep-going " + file, folder);
  EXPECT_EQ(failed.code, 1);
  EXPECT_NE(failed.err.find(missing), std::string::npos) << failed.err;
  EXPECT_TRUE(fs::exists(folder / "o/o.0003.png"));
}

TEST(Notices, TellOfColoursEncodedTwiceAndOfPixelsThatAFileCannotHold) {
  const fs::path folder = process::new_folder();
  write_shot(folder / "good.json", grey + process::write_node("out", "grey", "p.exr"), "1");
  const auto shot = [&](const char* file, const std::string& color, const std::string& output) {
    write_shot(folder / file,
               R"({"name": "plate", "type": "read", "knobs": {"file": "p.png", "color": ")" + color +
                   R"("}}, {"name": "bright", "type": "grade", "inputs": "plate", "knobs": {"gain": 1e6}})" +
                   process::write_node("out", "bright", output),
               "1");
  };
  shot("twice.json", "linear", "t.png");
  shot("once.json", "auto", "o.exr");
  ASSERT_EQ(call("render good.json -o p.png", folder).code, 0);
  for (const std::string frame : {"1", "3"})
    fs::copy_file(folder / "p.png", folder / ("h." + frame + ".png"));
  write_shot(folder / "hole.json",
             R"({"name": "h", "type": "read", "knobs": {"file": "h.#.png", "missing": "black"}})" +
                 process::write_node("out", "h", "hole.#.exr"));
  for (const auto& [words, said] : support::rows<2>(R"(
info twice.json | ): sRGB, taken as it stands
info twice.json | notice: twice.json: node "plate": its file is sRGB and read as linear
render twice.json --progress jsonl | read as linear; node \"out\" encodes it once more
info once.json | ): sRGB, made linear
render once.json | o.exr: 576 pixels lie beyond 65504
render hole.json --dry-run | h.2.png: no such file; it is black
render hole.json --progress jsonl | node \"h\": frame 2:
)")) {
    const process::Ended ended = call(words, folder);
    EXPECT_NE((ended.out + ended.err).find(said), std::string::npos) << words << ended.out << ended.err;
    EXPECT_EQ(ended.err.find("once more"), std::string::npos) << ended.err;
  }
}

TEST(Catalogue, SchemaInTheDocsIsTheOneOfTheProgramAndListsEveryType) {
  EXPECT_EQ(call("nodes --schema", ".").out, support::bytes_of(SOURCE_FOLDER "/docs/composition.schema.json"))
      << "run: quorvel nodes --schema > docs/composition.schema.json";
  const std::string list = call("nodes", ".").out;
  for (const host::node::NodeType& type : host::nodes::catalogue()) {
    EXPECT_NE(list.find("\n  " + type.name + " "), std::string::npos) << type.name;
    EXPECT_EQ(call("nodes " + type.name, ".").out, host::report::describe(type));
  }
}

TEST(Examples, RenderAtAProxyAndUseEveryNodeTypeAndTheCommandsOfTheReadme) {
  const fs::path folder = process::new_folder();
  const fs::path examples = folder / "examples";
  fs::copy(SOURCE_FOLDER "/examples", examples, fs::copy_options::recursive);
  fs::remove_all(examples / "plates");
  const std::string paint = PLATES_PROGRAM " --width 96 --height 54 " + (examples / "plates").string();
  ASSERT_EQ(std::system(paint.c_str()), 0);
  std::set<std::string> used;
  for (const auto& entry : fs::recursive_directory_iterator(examples)) {
    if (entry.path().extension() != ".json") continue;
    for (const auto& node : host::shot::read_composition(entry.path()).nodes) used.insert(node.type->name);
    const auto ended = call("render -f 2 --proxy 0.1 --gpu software " + entry.path().string(), folder);
    EXPECT_EQ(ended.code, 0) << entry.path() << ended.err;
  }
  for (const auto& type : host::nodes::catalogue()) EXPECT_TRUE(used.count(type.name)) << type.name;
  // The passes of a render, none of them graded, add up to what its tracer took for the picture.
  const std::string ungraded =
      "render examples/jobs/slap_comp.json --proxy 0.1 --gpu software --node balls --node beauty -o "
      "balls=a.exr "
      "-o beauty=b.exr --set dim.multiply=1 --set warm.multiply=1 --set sky.multiply=1";
  EXPECT_EQ(call(ungraded, folder).code, 0);
  const auto same = call("compare a.exr b.exr --tolerance 0.005", folder);
  EXPECT_EQ(same.code, 0) << same.out << same.err;

  // Where the demo leaves its reader.
  ASSERT_EQ(call("render examples/shot.json -f 1 --overwrite --proxy 0.05", folder).code, 0);
  std::ifstream readme(SOURCE_FOLDER "/README.md");
  int commands = 0;
  for (std::string line; std::getline(readme, line);) {
    const std::string program = "build/demo/host/quorvel ";
    // What is live ends when somebody ends it.
    if (line.rfind(program, 0) != 0 || line.rfind(program + "live ", 0) == 0) continue;
    std::string words = line.substr(program.size(), line.find('#', line.find("  ")) - program.size());
    if (const size_t half = words.find("0.5"); half != std::string::npos) words.insert(half + 2, "0");
    const process::Ended ended = call(words, folder);
    EXPECT_EQ(ended.code, 0) << line << "\n" << ended.out << ended.err;
    ++commands;
  }
  EXPECT_EQ(commands, 4);
}

}  // namespace
