#include "tests/host/cli/process.h"
#include "tests/support/table.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

#include <OpenImageIO/imagebuf.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

// What a person asks for on the command line beside what a composition says, and how shells help with it.

namespace {

namespace fs = std::filesystem;
using process::call;
using process::grey;
using process::run;
using process::write_node;

// Two views of a plate, 0.25 and 0.75, each with the same grey of 0.5 added; and that grey alone.
fs::path make_stereo() {
  const fs::path folder = process::new_folder();
  process::write_shot(folder / "mono.json", grey + write_node("out", "grey", "o.####.exr"));
  for (const std::string set :
       {"left.####.exr --set grey.color=0.25", "right.####.exr --set grey.color=0.75"})
    EXPECT_EQ(call("render mono.json --progress none -o p/" + set, folder).code, 0);
  process::write_shot(folder / "stereo.json",
                      R"({"name": "plate", "type": "read", "knobs": {"file": "p/%V.####.exr"}}, )" + grey +
                          R"(, {"name": "sum", "type": "merge", "inputs": ["plate", "grey"], "knobs": {
                              "operation": "plus"}})" +
                          write_node("out", "sum", "o.%v.####.exr") +
                          write_node("flat", "grey", "flat.####.exr"),
                      R"(1-3", "views": ["left", "right"], "comment": ")");
  return folder;
}

// The images of a folder and their red, which is the same all over: "flat.0001.exr 0.5".
std::string images_in(const fs::path& folder) {
  std::ostringstream text;
  for (const fs::path& file : process::files_in(folder, ".exr")) {
    const OIIO::ImageBuf image(file.string());
    text << (text.tellp() > 0 ? ", " : "") << file.filename().string() << ' '
         << std::round(image.getchannel(3, 3, 0, 0) * 1000) / 1000;
    fs::remove(file);
  }
  return text.str();
}

// The words, and what is made or, where nothing is, said.
constexpr const char* asked = R"(
| flat.0001.exr 0.5, o.l.0001.exr 0.75, o.r.0001.exr 1.25
--set grey.color=0.1 --views right | flat.0001.exr 0.1, o.r.0001.exr 0.85
--set grey.color={"keys":[[0,0],[4,1]]} --views left | flat.0001.exr 0.25, o.l.0001.exr 0.5
--set sum.operation=minus --set flat.file=7 -o flat=7.exr --set sum.operation=max | 7.exr 0.5, o.l.0001.exr 0.5, o.r.0001.exr 0.75
--node sum | stereo.sum.left.0001.exr 0.75, stereo.sum.right.0001.exr 1.25
--node sum --node grey -o sum=s%V.exr | sleft.exr 0.75, sright.exr 1.25, stereo.grey.0001.exr 0.5
--node out -o a=%v.exr | there is no node "a"
--node out -o ./a=%v.exr | a=l.exr 0.75, a=r.exr 1.25
-o out=a.%v.exr -o flat=b.exr | a.l.exr 0.75, a.r.exr 1.25, b.exr 0.5
--set grey=1 | --set: expected node.knob=VALUE, found "grey=1"
--set gray.color=1 | --set gray.color: there is no node "gray" (did you mean "grey"?)
--set grey.colour=1 | --set grey.colour: unknown knob "colour" (did you mean "color"?)
--set grey.color=[1,2] | --set grey.color: expected 4 numbers
--set sum.operation=ovr | --set sum.operation: expected one of
--set plate.channels=["nope",1] | --set plate.channels: expected
--node summ | --node: expected a node's name, found "summ" (did you mean "sum"?)
--views lft | --views: there is no view "lft" (did you mean "left"?)
-o ot=x.exr | --output: there is no node "ot" (did you mean "out"?)
-o sum=x.exr | --output: node "sum" is no output; --node sum makes it one
-o x.exr | has 2 outputs; say which by NODE=PATH
-o flat=%V.exr | node "flat" depends on no view
--set out.file=o.####.exr | node "out.right": knob "file": o.0001.exr: every view would go to this file; put %V
)";

TEST(Asked, KnobsNodesOutputsAndViewsAreTakenOrRefusedByTheirNames) {
  const fs::path folder = make_stereo();
  for (const auto& [words, expected] : support::rows<2>(asked)) {
    const process::Ended ended = call("render stereo.json -f 1 " + words, folder);
    const std::string made = images_in(folder);
    EXPECT_EQ(ended.code, made.empty() ? 2 : 0) << words << "\n" << ended.err;
    EXPECT_TRUE(made.empty() || made == expected) << words << "\n" << made;
    EXPECT_TRUE(!made.empty() || ended.err.find(expected) != std::string::npos) << words << "\n" << ended.err;
  }
  const std::string none = call("render mono.json --set out.file=o.%V.exr", folder).err;
  EXPECT_NE(none.find("the composition has no \"views\""), std::string::npos) << none;
  const std::string told = call("info stereo.json --set grey.color=[1,2]", folder).err;
  EXPECT_NE(told.find("--set grey.color: expected"), std::string::npos) << told;
}

TEST(Views, ShareWhatDependsOnNone) {
  const fs::path folder = make_stereo();
  ASSERT_EQ(call("render stereo.json -f 1,2 --progress none --stats=stats.json", folder).code, 0);
  // The grey and its file once for both frames; plate, sum and file once a frame and view.
  EXPECT_EQ(nlohmann::json::parse(support::bytes_of(folder / "stats.json")).at("computed"), 2 + 2 * 2 * 3);
}

TEST(LogLevel, SaysHowMuchIsTold) {
  const fs::path folder = process::new_folder();
  process::write_shot(folder / "shot.json", grey + write_node("out", "grey", "o.####.exr"), "1");
  std::string told;
  for (const char* const level : {"error", "warning", "info", "debug"}) {
    const std::string words = "render shot.json --overwrite --set grey.color=1e6 --log-level ";
    const std::string err = call(words + level, folder).err;
    for (const char* const part : {"beyond 65504", "rendering 1 frame", "programs "}) {
      told += err.find(part) == std::string::npos ? '-' : 'x';
    }
    told += ' ';
  }
  EXPECT_EQ(told, "--- x-- xx- xxx ");
}

TEST(Completion, KnowsTheTableAndTheCompositionInEveryShell) {
  const fs::path folder = make_stereo();
  const std::pair<const char*, const char*> cases[] = {
      {"ren", "render\t"},
      {"render stereo.json --overw", "--overwrite\t"},
      {"render stereo.json --progress=j", "--progress=jsonl\t"},
      {"render stereo.json --log-level w", "warning\t"},
      {"render stereo.json --set gre", "grey.\tconstant"},
      {"render --keep-going stereo.json --set grey.col", "grey.color=\tRed"},
      {"info stereo.json --set sum.operation=hy", "sum.operation=hypot\t"},
      {"render stereo.json -f 1 --node su", "sum\tmerge"},
      {"render stereo.json --views left,r", "left,right\t"},
      {"render stereo.json -o fl", "flat=\twrite\n:files"},
      {"render ster", ":files"},
      {"info stereo.json ster", ":files"},
      {"render stereo.json ster", ""},
      {"nodes disc_", "disc_blur\t"},
      {"render stereo.json --nope x", ""},
  };
  for (const auto& [words, lines] : cases) {
    const process::Ended ended = call(std::string("complete -- ") + words, folder);
    EXPECT_TRUE(ended.out.starts_with(lines)) << words << ended.out << ended.err;
    EXPECT_LE(std::count(ended.out.begin(), ended.out.end(), '\n'), 2) << words << ended.out;
  }
  const std::string bash =
      "quorvel completion bash > c; bash -c '. ./c; COMP_CWORD=$(($# - 1)); COMP_WORDS=(\"$@\"); "
      "_quorvel; printf \"%s;\" \"${COMPREPLY[@]}\"' - quorvel ";
  EXPECT_EQ(run(bash + "render stereo.json --set grey.", folder).out, "grey.color=;grey.channels=;");
  EXPECT_EQ(run(bash + "render stereo.json --set sum.operation = hy", folder).out, "hypot;");
  EXPECT_EQ(run(bash + "render stereo.json --node ''", folder).out, "plate;grey;sum;out;flat;");
  EXPECT_EQ(run(bash + "render stereo.json -o out = mo", folder).out, "mono.json;");
  const std::string fish = "quorvel completion fish > c; fish --no-config -c '. c; complete -C \"quorvel ";
  EXPECT_EQ(run(fish + "info stereo.json --set sum.operation=hy\"'", folder).out, "sum.operation=hypot\n");
  EXPECT_EQ(run(fish + "render stereo.json --node \"' | cut -f1", folder).out,
            "flat\ngrey\nout\nplate\nsum\n");
  // Its completions want a terminal: here the words alone are followed through the script.
  const std::string zsh =
      "quorvel completion zsh > c; zsh -fc 'compdef() { : }; . ./c; compadd() { print -r -- ${(P)@[-1]} }; "
      "words=(\"$@\"); CURRENT=$#; _quorvel' - quorvel ";
  EXPECT_EQ(run(zsh + "render stereo.json --node ''", folder).out, "plate grey sum out flat\n");
}

TEST(ManPage, HasEveryCommandAndIsGoodRoff) {
  const process::Ended page = run("quorvel man | groff -man -ww -Tascii -P-cbou", ".");
  EXPECT_EQ(page.err, "");
  for (const char* const part :
       {"quorvel compare [option ...] first second", "--set NODE.KNOB=VALUE", "-o, --output",
        "EXIT STATUS\n       0      every frame stands", "quorvel man"}) {
    EXPECT_NE(page.out.find(part), std::string::npos) << part << page.out;
  }
}

}  // namespace
