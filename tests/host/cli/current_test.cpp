// Files that say what they were made from, and who believes them.

#include "host/render_farm/journal.h"
#include "tests/host/cli/process.h"

#include <chrono>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using process::call;

constexpr const char* shot = R"({"format": {"width": 32, "height": 18}, "frames": "1-4", "nodes": [
  {"name": "plate", "type": "read", "knobs": {"file": "plate.0001.png"}},
  {"name": "look", "type": "grade", "inputs": "plate", "knobs": {"gamma": {"keys": [[2, 1, "step"], [3, 2]]}}},
  {"name": "out", "type": "write", "inputs": "look", "knobs": {"file": "o.####.exr"}}]})";
constexpr const char* same_shot = R"({"nodes": [  // told otherwise
  {"name": "o", "type": "write", "inputs": "g", "knobs": {"file": "o.####.exr"}, "comment": "it"},
  {"name": "g", "type": "grade", "inputs": "p", "knobs": {"gamma": {"keys": [[2, 1, "step"], [3, 2]]}}},
  {"name": "p", "type": "read", "knobs": {"file": "plate.0001.png"}}, {"name": "else", "type": "constant"}],
  "output": "o", "frames": "1-4", "format": {"height": 18, "width": 32}})";

std::string with(const std::string& from, const std::string& to) {
  std::string text = shot;
  return text.replace(text.find(from), from.size(), to);
}

void make_plate(const fs::path& folder, const char* color) {
  process::write_shot(
      folder / "plate.json",
      R"({"name": "c", "type": "constant", "knobs": {"color": )" + std::string(color) +
          R"(}}, {"name": "w", "type": "write", "inputs": "c", "knobs": {"file": "plate.####.png"}})",
      "1");
  ASSERT_EQ(call("render plate.json --overwrite --progress none", folder).code, 0);
}

TEST(Current, ExactlyTheFramesThatAreMadeFromSomethingElseAreRenderedAnew) {
  enum class Plate { same, touched, other_bytes };
  const struct {
    const char* what;
    std::string shot, options;
    Plate plate;
    const char* anew;
  } rows[] = {
      {"nothing", shot, "", Plate::same, ""},
      {"names, order, comments, a node beside", same_shot, "", Plate::same, ""},
      {"a key that frames 1 and 2 do not see", with("[3, 2]", "[3, 2.5]"), "", Plate::same, "3 4 "},
      {"what happens between keys", with("step", "linear"), "", Plate::same, ""},
      {"how the file is packed", with("o.####.exr\"", "o.####.exr\", \"compression\": \"rle\""), "",
       Plate::same, "1 2 3 4 "},
      {"the scale", shot, "--proxy 0.5", Plate::same, "1 2 3 4 "},
      {"the plate's date", shot, "", Plate::touched, "1 2 3 4 "},
      {"the plate's date, known by bytes", shot, "--content", Plate::touched, ""},
      {"the plate's bytes, with the size and date of before", shot, "", Plate::other_bytes, ""},
      {"the plate's bytes, known by bytes", shot, "--content", Plate::other_bytes, "1 2 3 4 "},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const fs::path folder = process::new_folder();
    make_plate(folder, "[0.25, 0.5, 0.75, 1]");
    support::write_bytes(folder / "shot.json", shot);
    const std::string known = row.options == "--content" ? row.options : "";
    ASSERT_EQ(call("render shot.json --progress none " + known, folder).code, 0);
    EXPECT_EQ(call("verify shot.json", folder).out, "4 of 4 frames are whole\n");
    const auto told = nlohmann::json::parse(call("info o.0001.exr --json", folder).out);
    EXPECT_TRUE(told[0]["made_from"].get<std::string>().starts_with(known.empty() ? 'd' : 'c')) << told;

    const fs::path plate = folder / "plate.0001.png";
    const auto date = fs::last_write_time(plate);
    const auto size = fs::file_size(plate);
    if (row.plate == Plate::other_bytes) make_plate(folder, "[0.75, 0.5, 0.25, 1]");
    ASSERT_EQ(fs::file_size(plate), size) << "no row for a file of the same size";
    fs::last_write_time(plate, date + std::chrono::seconds(row.plate == Plate::touched ? 1 : 0));
    support::write_bytes(folder / "shot.json", row.shot);
    const std::string scale = row.options == "--content" ? "" : row.options;
    EXPECT_EQ(call("verify shot.json " + scale, folder).code, *row.anew ? 1 : 0);
    const process::Ended ended =
        call("render shot.json --skip-current --progress jsonl " + row.options, folder);
    std::istringstream lines(ended.out);
    std::string anew;
    for (std::string line; std::getline(lines, line);) {
      const auto event = nlohmann::json::parse(line);
      if (event.at("event") == "frame" && !event.at("skipped")) anew += event.at("frame").dump() + " ";
    }
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(anew, row.anew);
  }
}

TEST(Verify, NamesEveryFileThatIsNotWhole) {
  const fs::path folder = process::new_folder();
  const std::string parts = R"(, {"name": "out", "type": "write", "inputs": {"image": "grey", "more": "grey"},
                                  "knobs": {"file": "o.####.EXR", "parts": true}})";
  for (const std::string ending : {"exr", "png", "tif", "jpg", "dpx", "EXR"}) {
    const std::string written =
        process::write_node("out", "grey", "o.####." + ending + R"(", "channels": "rgb)");
    process::write_shot(folder / "shot.json", process::grey + (ending == "EXR" ? parts : written), "1-4");
    ASSERT_EQ(call("render shot.json --progress none", folder).code, 0);
    EXPECT_EQ(call("verify shot.json", folder).code, 0) << ending;
    fs::remove(folder / ("o.0001." + ending));
    fs::resize_file(folder / ("o.0002." + ending), fs::file_size(folder / ("o.0002." + ending)) - 40);
    support::write_bytes(folder / ("o.0003." + ending), "no image");
    const process::Ended ended = call("verify shot.json --json", folder);
    EXPECT_EQ(ended.code, 1);
    const auto verdict = nlohmann::json::parse(ended.out);
    std::string said;
    for (const auto& flaw : verdict.at("flaws"))
      said += flaw.at("frame").dump() + " " + flaw.at("reason").get<std::string>().substr(0, 11) + ";";
    EXPECT_EQ(said, "1 missing;2 cannot be r;3 cannot be r;") << ended.out;
    EXPECT_EQ(verdict.at("whole"), 1);
  }
}

TEST(Journal, LinesOfSeveralWritersAreReadAndTornOnesReadOver) {
  const fs::path file = process::new_folder() / "a/b/shot.jsonl";
  using host::render_farm::Entry;
  const Entry told{1, "done", "n1", "7_0.0", "s", "e", 12.5, 99, "d1", ""};
  const Entry failed{-2, "failed", "n\"2", "", "s", "e", 0, 0, "", "\"file\": a\nb\\c"};
  {
    host::render_farm::Journal one(file), other(file);
    one.add(told);
    std::ofstream(file, std::ios::app) << R"({"frame":5,"outcome":"do)";
    other.add(failed);
    one.add(told);
  }
  std::ofstream(file, std::ios::app)
      << "[1]\n{\"outcome\":\"done\",\"frame\":8}\n{\"outcome\":\"done\",\"frame\":6}";
  std::ostringstream read;
  host::render_farm::read_journal(file, [&](const Entry& each) {
    read << each.frame << each.outcome << ' ' << each.host << ' ' << each.task << ' ' << each.ms << ' '
         << each.bytes << each.digest << each.error << ';';
  });
  const std::string first = "1done n1 7_0.0 12.5 99d1;";
  EXPECT_EQ(read.str(), first + "-2failed n\"2  0 0" + failed.error + ";" + first + "8done   0 0;");
}

}  // namespace
