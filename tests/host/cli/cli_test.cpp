#include "host/cli/describe.h"
#include "host/nodes/catalogue.h"
#include "host/shot/composition.h"
#include "host/shot/schema.h"
#include "tests/host/cli/process.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using process::run;

std::string composition(std::string nodes, const std::string& frames = "1-3") {
  return R"({"format": {"width": 32, "height": 18}, "frames": ")" + frames + R"(", "nodes": [)" + nodes +
         "]}";
}

const std::string grey = R"({"name": "grey", "type": "constant", "knobs": {"color": [0.5, 0.5, 0.5, 1]}})";
const std::string out =
    R"({"name": "out", "type": "write", "inputs": "grey", "knobs": {"file": "o.####.exr"}})";

TEST(Usage, WrongOnesEndWithACodeAndSayWhatIsWrong) {
  const fs::path folder = process::new_folder();
  const std::string good = process::write_text(folder / "good.json", composition(grey + "," + out)).string();
  const std::string no_file = process::write_text(folder / "none.json", composition(grey)).string();
  const std::string bmp =
      process::write_text(folder / "bmp.json",
                          composition(grey + R"(,{"name": "out", "type": "write", "inputs": "grey",
                                                  "knobs": {"file": "o.####.bmp"}})"))
          .string();
  const struct {
    std::vector<std::string> arguments;
    int code;
    std::string message;
  } cases[] = {
      {{}, 2, "expected a command"},
      {{"rendre"}, 2, "unknown command \"rendre\" (did you mean \"render\"?)"},
      {{"render"}, 2, "composition is required"},
      {{"render", good, "--overwite"}, 2, "unknown option \"--overwite\" (did you mean \"--overwrite\"?)"},
      {{"render", good, "extra"}, 2, "unexpected argument \"extra\""},
      {{"render", good, "-f", "1-"}, 2, "--frames: expected a frame number"},
      {{"render", good, "-f", "7,^7"}, 3, "leaves no frame"},
      {{"render", good, "--proxy", "2"}, 2, "--proxy: expected a number above 0 and at most 1"},
      {{"render", good, "--memory", "4Q"}, 2, "--memory: expected a size such as 4G"},
      {{"render", good, "--gpu", "best"}, 2, "--gpu: expected auto, software or a device number"},
      {{"render", good, "--gpu", "77"}, 5, "no device 77"},
      {{"render", good, "--progress", "jsnl"}, 2, "(did you mean \"jsonl\"?)"},
      {{"render", good, "--overwrite", "--skip-existing"}, 2, "excludes"},
      {{"render", good, "-o", "x.exr"}, 2, "expected #### or %04d"},
      {{"render", good, "-o", "x.####.bmp"}, 2, "unknown image file ending"},
      {{"render", bmp}, 2, "node \"out\": knob \"file\""},
      {{"render", no_file}, 2, "it writes no file"},
      {{"render", good, "--memory", "1K", "-f", "1"}, 4, "memory"},
      {{"render", (folder / "absent.json").string()}, 2, "absent.json: cannot be opened: No such file"},
      {{"nodes", "blurr"}, 2, "unknown node type \"blurr\" (did you mean \"blur\"?)"},
  };
  for (const auto& each : cases) {
    const process::Ended ended = run(each.arguments);
    EXPECT_EQ(ended.code, each.code) << each.message << "\n" << ended.err;
    EXPECT_NE(ended.err.find(each.message), std::string::npos) << each.message << "\n" << ended.err;
    EXPECT_EQ(ended.out, "") << each.message;
  }
  EXPECT_FALSE(fs::exists(folder / "o.0001.exr"));
}

TEST(Composition, BrokenOnesNameFileNodeAndKnob) {
  const struct {
    std::string text;
    std::string message;
  } cases[] = {
      {"{\"format\": ", "shot.json: not JSON: parse error at line 1"},
      {composition(R"({"name": "soft", "type": "blurr"})"),
       R"(shot.json: node "soft": unknown type "blurr" (did you mean "blur"?))"},
      {composition(R"({"name": "soft", "type": "blur", "inputs": "sfot"})"),
       R"(node "soft": input "image": there is no node "sfot" (did you mean "soft"?))"},
      {composition(
           R"({"name": "a", "type": "blur", "inputs": "b"}, {"name": "b", "type": "blur", "inputs": "a"})"),
       R"("a")"},
      {composition(grey + R"(,{"name": "soft", "type": "blur", "inputs": "grey", "knobs": {"size": -3}})"),
       R"(node "soft": knob "size": expected 1 to 2 numbers from 0 to 100000, found -3)"},
      {composition(grey + "," + out, "1-x"), R"(shot.json: "frames": expected a frame number)"},
      {R"({"nodes": )" + std::string(200000, '[') + std::string(200000, ']') + "}",
       "shot.json: more than 100 lists and objects stand within each other"},
  };
  const fs::path folder = process::new_folder();
  for (const auto& each : cases) {
    const process::Ended ended =
        run({"render", process::write_text(folder / "shot.json", each.text).string(), "-o", "x.####.exr"});
    EXPECT_EQ(ended.code, 2) << each.message;
    EXPECT_NE(ended.err.find(each.message), std::string::npos) << each.message << "\n" << ended.err;
  }
}

TEST(Composition, ComesFromStandardInputToo) {
  const fs::path folder = process::new_folder();
  process::Setup setup;
  setup.folder = folder.string();
  setup.in_path = process::write_text(folder / "shot.json", composition(grey + "," + out)).string();
  const process::Ended ended = run({"render", "-", "-f", "1"}, setup);
  EXPECT_EQ(ended.code, 0) << ended.err;
  EXPECT_TRUE(fs::exists(folder / "o.0001.exr"));
}

TEST(Composition, NamesAreNoCommandsToATerminal) {
  const fs::path folder = process::new_folder();
  const std::string text = composition(R"({"name": "\u001b[2J\u009b", "type": "blurr"})");
  const std::string file = process::write_text(folder / "shot.json", text).string();
  process::Setup setup;
  EXPECT_NE(run({"info", file}, setup).err.find("node \"\x1b[2J\xc2\x9b\""), std::string::npos);
  setup.terminal = true;
  const process::Ended shown = run({"info", file}, setup);
  EXPECT_NE(shown.err.find(R"(node "\x1b[2J\x9b": unknown type)"), std::string::npos) << shown.err;
  // A bar is still drawn.
  const std::string good = process::write_text(folder / "good.json", composition(grey + "," + out)).string();
  EXPECT_NE(run({"render", good}, setup).err.find("\r\x1b[K[=="), std::string::npos);
}

TEST(Render, CodesAndEventsTellWhatHappenedToEveryFrame) {
  const fs::path folder = process::new_folder();
  const std::string file = process::write_text(folder / "shot.json", composition(grey + "," + out)).string();
  const fs::path second = folder / "o.0002.exr";
  ASSERT_EQ(run({"render", file, "-f", "2"}).code, 0);
  const auto made = fs::last_write_time(second);
  const std::string stats = (folder / "stats.json").string();

  const auto failed = run({"render", file, "--keep-going"});
  EXPECT_EQ(failed.code, 1);
  EXPECT_NE(failed.err.find("frame 2: " + second.string() + " exists already"), std::string::npos)
      << failed.err;
  EXPECT_NE(failed.err.find("2 of 3 frames written"), std::string::npos) << failed.err;

  const auto skipped = run({"render", file, "--skip-existing", "--progress", "jsonl", "-f", "2-4"});
  EXPECT_EQ(skipped.code, 0) << skipped.err;
  std::istringstream lines(skipped.out);
  std::string kinds;
  for (std::string line; std::getline(lines, line);) {
    const auto event = nlohmann::json::parse(line);
    kinds += event.at("event").get<std::string>() + (event.value("skipped", false) ? "(skipped) " : " ");
  }
  EXPECT_EQ(kinds, "begin frame(skipped) frame(skipped) frame end ");
  EXPECT_EQ(fs::last_write_time(second), made);

  EXPECT_EQ(run({"render", file, "--overwrite", "--stats=" + stats, "--progress", "none"}).code, 0);
  EXPECT_GT(fs::last_write_time(second), made);
  std::ifstream stream(stats);
  const auto numbers = nlohmann::json::parse(stream);
  EXPECT_EQ(numbers.at("frames"), 3);
  EXPECT_EQ(numbers.at("files_written"), 3);
  // Nothing is animated: the constant and its writer are computed once.
  EXPECT_EQ(numbers.at("computed"), 2);
}

// What is read out of a pipe, and that the pipe is still one, whoever writes to it.
TEST(Render, PipesAndDevicesAreWrittenToAndStay) {
  const fs::path folder = process::new_folder();
  const std::string file = process::write_text(folder / "shot.json", composition(grey + "," + out)).string();
  const std::string pipe = (folder / "pipe.exr").string();
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::vector<std::string> render = {"render", file, "-f", "1", "--progress", "none"};
  const struct {
    std::vector<std::string> options;
    std::string starts;
  } cases[] = {{{"--overwrite", "--stats=" + pipe}, "{"}, {{"-o", pipe}, "\x76\x2f\x31\x01"}};
  for (const auto& each : cases) {
    std::vector<std::string> arguments = render;
    arguments.insert(arguments.end(), each.options.begin(), each.options.end());
    process::Quorvel child(arguments);
    std::string content;
    std::thread reader([&] {
      std::ifstream stream(pipe, std::ios::binary);
      content.assign(std::istreambuf_iterator<char>(stream), {});
    });
    EXPECT_EQ(child.finish(), 0) << child.err;
    // A reader whom nobody has written to is let go.
    close(open(pipe.c_str(), O_RDWR | O_NONBLOCK));
    reader.join();
    EXPECT_EQ(content.substr(0, each.starts.size()), each.starts);
    EXPECT_TRUE(fs::is_fifo(pipe));
  }
  // Through a link, so that the device itself is not at stake.
  fs::create_symlink("/dev/full", folder / "full");
  std::vector<std::string> arguments = render;
  arguments.insert(arguments.end(), {"--overwrite", "--stats=" + (folder / "full").string()});
  const auto full = run(arguments);
  EXPECT_NE(full.err.find("No space left on device"), std::string::npos) << full.err;
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST(Render, AnOutputGivenByHandIsEncodedAsItsOwnFileTypeIs) {
  const fs::path folder = process::new_folder();
  const std::string file = process::write_text(folder / "shot.json", composition(grey + "," + out)).string();
  ASSERT_EQ(run({"render", file, "-f", "1", "-o", (folder / "p.####.png").string()}).code, 0);
  const OIIO::ImageBuf stored((folder / "p.0001.png").string());
  EXPECT_NEAR(stored.getchannel(5, 5, 0, 0) * 255, 188, 0.5);  // 0.5 on the sRGB curve
}

TEST(DryRun, SaysWhatWouldBeComputedAndNamesWhatIsMissing) {
  const fs::path folder = process::new_folder();
  const std::string plate = R"({"name": "plate", "type": "read", "knobs": {"file": "p.####.exr"}},)";
  const std::string over = R"({"name": "sum", "type": "merge", "inputs": ["plate", "grey"]},)";
  const std::string write =
      R"({"name": "out", "type": "write", "inputs": "sum", "knobs": {"file": "o/o.%04d.png"}})";
  const std::string file =
      process::write_text(folder / "shot.json", composition(plate + grey + "," + over + write)).string();
  const std::string good = process::write_text(folder / "good.json", composition(grey + "," + out)).string();
  ASSERT_EQ(run({"render", good, "-f", "1-2", "-o", (folder / "p.####.exr").string()}).code, 0);

  const auto plan = run({"render", file, "--dry-run"});
  EXPECT_EQ(plan.code, 1);
  for (const std::string line :
       {"frame 1\n  computes 4: plate @ 1, grey @ 1, sum @ 1, out @ 1\n",
        "frame 2\n  computes 3: plate @ 2, sum @ 2, out @ 2\n  reuses   1: grey @ 2\n"}) {
    EXPECT_NE(plan.out.find(line), std::string::npos) << plan.out;
  }
  const std::string missing = file + ": node \"plate\": frame 3: " + (folder / "p.0003.exr").string();
  EXPECT_NE(plan.out.find("MISSING  " + missing), std::string::npos) << plan.out;
  EXPECT_NE(plan.out.find("writes   " + (folder / "o/o.0002.png").string()), std::string::npos) << plan.out;
  EXPECT_FALSE(fs::exists(folder / "o"));

  const auto info = run({"info", file});
  EXPECT_EQ(info.code, 1);
  EXPECT_NE(info.out.find("1 problem:\n  " + missing), std::string::npos) << info.out;
  EXPECT_NE(run({"info", file, "--dot"}).out.find("\"plate\" -> \"sum\" [label=\"a\"]"), std::string::npos);

  const auto failed = run({"render", file, "--keep-going"});
  EXPECT_EQ(failed.code, 1);
  EXPECT_NE(failed.err.find(missing), std::string::npos) << failed.err;
  EXPECT_TRUE(fs::exists(folder / "o/o.0002.png"));
}

TEST(Catalogue, SchemaInTheDocsIsTheOneOfTheProgramAndListsEveryType) {
  std::ifstream stream(SOURCE_FOLDER "/docs/composition.schema.json");
  const std::string kept{std::istreambuf_iterator<char>(stream), {}};
  EXPECT_EQ(kept, host::shot::composition_schema())
      << "run: quorvel nodes --schema > docs/composition.schema.json";
  EXPECT_EQ(run({"nodes", "--schema"}).out, kept);
  const std::string list = run({"nodes"}).out;
  EXPECT_EQ(run({"nodes", "blur"}).out, host::cli::describe(*host::nodes::find_type("blur")));
  for (const host::node::NodeType& type : host::nodes::catalogue()) {
    EXPECT_NE(list.find("\n  " + type.name + " "), std::string::npos) << type.name;
    const std::string words = host::cli::describe(type);
    for (const auto& knob : type.knobs)
      EXPECT_NE(words.find("  " + knob.name + " "), std::string::npos) << knob.name;
  }
}

TEST(Examples, RenderAtAProxyAndUseEveryNodeType) {
  const fs::path folder = process::new_folder();
  const fs::path examples = folder / "examples";
  fs::copy(SOURCE_FOLDER "/examples", examples, fs::copy_options::recursive);
  fs::remove_all(examples / "plates");
  const std::string paint =
      PLATES_PROGRAM " --width 96 --height 54 --frames 3 " + (examples / "plates").string();
  ASSERT_EQ(std::system(paint.c_str()), 0);
  std::set<std::string> used;
  for (const auto& entry : fs::recursive_directory_iterator(examples)) {
    if (entry.path().extension() != ".json") continue;
    for (const auto& node : host::shot::read_composition(entry.path()).nodes) used.insert(node.type->name);
    const auto ended =
        run({"render", entry.path().string(), "-f", "2", "--proxy", "0.1", "--gpu", "software"});
    EXPECT_EQ(ended.code, 0) << entry.path() << ended.err;
  }
  for (const auto& type : host::nodes::catalogue()) EXPECT_TRUE(used.count(type.name)) << type.name;
}

// The commands that README shows, where the demo leaves its reader.
TEST(Examples, CommandsOfTheReadmeWorkAfterTheDemo) {
  process::Setup setup;
  const fs::path folder = process::new_folder();
  setup.folder = folder.string();
  fs::create_directory(folder / "examples");
  fs::copy(SOURCE_FOLDER "/examples/shot.json", folder / "examples");
  const std::string paint = PLATES_PROGRAM " --width 48 --height 27 " + (folder / "examples/plates").string();
  ASSERT_EQ(std::system(paint.c_str()), 0);
  ASSERT_EQ(run({"render", "examples/shot.json", "-f", "1", "--proxy", "0.05"}, setup).code, 0);
  std::ifstream readme(SOURCE_FOLDER "/README.md");
  int commands = 0;
  for (std::string line; std::getline(readme, line);) {
    const std::string program = "build/demo/host/quorvel ";
    if (line.rfind(program, 0) != 0) continue;
    std::vector<std::string> words;
    std::istringstream rest(line.substr(program.size(), line.find('#', line.find("  ")) - program.size()));
    for (std::string word; rest >> word;) words.push_back(word == "0.5" ? "0.05" : word);
    const process::Ended ended = run(words, setup);
    EXPECT_EQ(ended.code, 0) << line << "\n" << ended.out << ended.err;
    ++commands;
  }
  EXPECT_EQ(commands, 3);
}

}  // namespace
