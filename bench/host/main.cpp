#include "bench/host/encode.h"
#include "bench/host/job.h"
#include "bench/host/plates.h"
#include "bench/report.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <unistd.h>

// `quorvel` beside the command lines that people composite with, as processes: wall time from start
// to end and the most memory that a process had. All read the same plates and write half zip EXR,
// but for vips, which cannot write EXR and is given uncompressed files of its own kind instead.
namespace {

namespace fs = std::filesystem;
using Commands = std::vector<std::vector<std::string>>;

struct Setup {
  fs::path folder;
  int frames = 10;
  int rounds = 2;

  std::string file(const std::string& name) const {
    return (folder / name).string();
  }
  std::string all() const {
    return "1-" + std::to_string(frames);
  }
};

const std::string reads = R"({"name": "a", "type": "read", "knobs": {"file": "fg.####.exr"}},
  {"name": "b", "type": "read", "knobs": {"file": "bg.exr"}},
  {"name": "over", "type": "merge", "inputs": ["a", "b"]})";
// 33 taps: a radius of 16, which is three halves of the size.
const std::string blur_and_turn = R"(,
  {"name": "soft", "type": "blur", "inputs": "over", "knobs": {"size": 10.67, "limit": 0, "edges": "repeat"}},
  {"name": "last", "type": "transform", "inputs": "soft", "knobs": {"rotate": 10, "filter": "cubic"}})";

void write_composition(const Setup& setup, const std::string& name, const std::string& nodes,
                       const std::string& last, int width = 1920, int height = 1080) {
  std::ofstream(setup.file(name)) << R"({"format": {"width": )" << width << R"(, "height": )" << height
                                  << R"(}, "nodes": [)" << nodes
                                  << R"(, {"name": "out", "type": "write", "inputs": ")" << last
                                  << R"(", "knobs": {"file": "quorvel.####.exr", "compression": "zip"}}]})";
}

Commands quorvel(const Setup& setup, const std::string& composition, const std::string& frames) {
  return {{QUORVEL_PROGRAM, "render", setup.file(composition), "-f", frames, "--overwrite", "--progress",
           "none", "--stats=" + setup.file("stats.json")}};
}

nlohmann::json stats(const Setup& setup) {
  std::ifstream stream(setup.file("stats.json"));
  return nlohmann::json::parse(stream);
}

std::vector<std::string> oiiotool(const Setup& setup, const std::string& frames, bool whole_chain) {
  std::vector<std::string> command = {"oiiotool",           "--frames", frames, setup.file("fg.#.exr"),
                                      setup.file("bg.exr"), "--over"};
  if (whole_chain) {
    for (const char* size : {"33x1", "1x33"}) {
      command.insert(command.end(), {"--kernel", "gaussian", size, "--convolve"});
    }
    command.insert(command.end(), {"--rotate:filter=cubic", "10"});
  }
  command.insert(command.end(), {"-d", "half", "--compression", "zip", "-o", setup.file("oiiotool.#.exr")});
  return command;
}

Commands oiiotool_each(const Setup& setup, bool whole_chain) {
  Commands commands;
  for (int frame = 1; frame <= setup.frames; ++frame) {
    commands.push_back(oiiotool(setup, std::to_string(frame), whole_chain));
  }
  return commands;
}

Commands vips(const Setup& setup, bool whole_chain) {
  Commands commands;
  for (int frame = 1; frame <= setup.frames; ++frame) {
    const std::string number = bench::padded(frame);
    const std::string over = setup.file(whole_chain ? "vips.over.v" : "vips." + number + ".v");
    commands.push_back({"vips", "composite2", setup.file("bg.exr"), setup.file("fg." + number + ".exr"), over,
                        "over", "--premultiplied"});
    if (!whole_chain) continue;
    commands.push_back({"vips", "gaussblur", over, setup.file("vips.soft.v"), "5.33"});
    commands.push_back({"vips", "rotate", setup.file("vips.soft.v"), setup.file("vips." + number + ".v"),
                        "10", "--interpolate", "bicubic"});
  }
  return commands;
}

// The programs in turn, round after round; the least time and the most memory of each.
std::vector<bench::Cost> measure(const Setup& setup, const std::vector<Commands>& programs) {
  std::vector<bench::Cost> costs(programs.size());
  for (int round = 0; round < setup.rounds; ++round) {
    for (size_t i = 0; i < programs.size(); ++i) {
      const bench::Cost cost = bench::run_commands(programs[i]);
      costs[i].seconds = round == 0 ? cost.seconds : std::min(costs[i].seconds, cost.seconds);
      costs[i].peak_mib = std::max(costs[i].peak_mib, cost.peak_mib);
    }
  }
  return costs;
}

// Where the time of the last run went, for a person who wonders.
std::string whereabouts(const Setup& setup) {
  const nlohmann::json numbers = stats(setup);
  std::string text = "in ms:";
  for (const char* name : {"wall_ms", "start_ms", "wait_decode_ms", "decode_ms", "upload_ms", "draw_ms",
                           "read_back_ms", "wait_write_ms", "encode_ms"}) {
    text += " " + std::string(name, std::string(name).size() - 3) + " " +
            std::to_string(static_cast<long long>(numbers.at(name).get<double>()));
  }
  return text;
}

// What --dry-run says that the run takes at most.
double predicted_mib(const Setup& setup, const std::string& composition) {
  Commands words = quorvel(setup, composition, setup.all());
  words[0].push_back("--dry-run");
  bench::run_commands(words);
  const std::string text = bench::last_output();
  const std::string front = "at most";
  const size_t at = text.find(front);
  return at == std::string::npos ? 0 : std::stod(text.substr(at + front.size()));
}

void compare(bench::Report& report, const Setup& setup, const std::string& name, bool whole_chain,
             double limit) {
  if (!report.wants(name)) return;
  write_composition(setup, "comp.json", reads + (whole_chain ? blur_and_turn : ""),
                    whole_chain ? "last" : "over");
  std::vector<Commands> programs = {quorvel(setup, "comp.json", setup.all()),
                                    {oiiotool(setup, setup.all(), whole_chain)},
                                    oiiotool_each(setup, whole_chain)};
  if (bench::has_program("vips")) programs.push_back(vips(setup, whole_chain));
  const std::vector<bench::Cost> costs = measure(setup, programs);
  if (!whole_chain) {
    const double difference =
        bench::largest_difference(setup.file("quorvel.0001.exr"), setup.file("oiiotool.0001.exr"));
    report.require(difference <= 1.0 / 1024, "over differs from oiiotool's by " + std::to_string(difference));
  }
  const std::string what = name + ", " + std::to_string(setup.frames) + " frames of 1920x1080";
  report.row(what, "s", bench::Better::less, costs[0].seconds,
             {{"oiiotool", costs[1].seconds}, {"oiiotool a frame", costs[2].seconds}}, limit);
  bench::run_commands(quorvel(setup, "comp.json", setup.all()));
  report.note(whereabouts(setup));
  report.row(what + ", memory", "MiB", bench::Better::less, costs[0].peak_mib,
             {{"oiiotool", costs[1].peak_mib}, {"oiiotool a frame", costs[2].peak_mib}});
  // A ratio of 0.91 is a tenth above what is measured; beyond 1 the run took more than was said.
  report.row(what + ", memory predicted", "MiB", bench::Better::less, predicted_mib(setup, "comp.json"),
             {{"measured", costs[0].peak_mib}}, 1 / 1.1);
  if (!whole_chain) {
    report.row(what + ", memory beside what is wanted", "MiB", bench::Better::less, costs[0].peak_mib,
               {{"wanted", 300}}, 1);
  }
  // No limit where the peer neither compresses nor converts to half.
  if (costs.size() > 3) {
    report.row(what + ", vips without compression", "s", bench::Better::less, costs[0].seconds,
               {{"vips a frame", costs[3].seconds}});
  }
}

// All layers of a file read, one of them graded, and all written, beside `oiiotool`, which multiplies each
// channel by a number.
void pass_layers(bench::Report& report, const Setup& setup) {
  constexpr int layers = 20;
  if (!report.wants("layers in and out")) return;
  bench::write_layers(setup.folder / "layers.exr", 1920, 1080, layers);
  std::string nodes, inputs, factors;
  for (int i = 0; i < layers; ++i) {
    const std::string name = i == 0 ? "rgba" : bench::layer_name(i);
    nodes += R"({"name": ")" + name + R"(", "type": "read", "knobs": {"file": "layers.exr", "layer": ")" +
             bench::layer_name(i) + R"("}}, )";
    inputs += (i == 0 ? "\"" : ", \"") + name + R"(": ")" + (i == 1 ? "graded" : name) + "\"";
    for (int c = 0; c < 4; ++c)
      factors += (factors.empty() ? "" : ",") + std::string(i == 1 && c < 3 ? "0.5" : "1");
  }
  std::ofstream(setup.file("layers.json"))
      << R"({"format": {"width": 1920, "height": 1080}, "nodes": [)" << nodes
      << R"({"name": "graded", "type": "grade", "inputs": "l01", "knobs": {"multiply": 0.5}},
      {"name": "out", "type": "write", "inputs": {)"
      << inputs << R"(}, "knobs": {"file": "quorvel.layers.exr", "compression": "zip"}}]})";
  const std::vector<bench::Cost> costs =
      measure(setup, {quorvel(setup, "layers.json", "1"),
                      {{"oiiotool", setup.file("layers.exr"), "--mulc", factors, "-d", "half",
                        "--compression", "zip", "-o", setup.file("oiiotool.layers.exr")}}});
  const double difference =
      bench::largest_difference(setup.file("quorvel.layers.exr"), setup.file("oiiotool.layers.exr"));
  report.require(difference <= 1.0 / 1024, "layers differ from oiiotool's by " + std::to_string(difference));
  const std::string what = "layers in and out, 20 of 1920x1080";
  report.row(what, "s", bench::Better::less, costs[0].seconds, {{"oiiotool", costs[1].seconds}}, 2);
  bench::run_commands(quorvel(setup, "layers.json", "1"));
  report.note(whereabouts(setup));
  report.row(what + ", memory", "MiB", bench::Better::less, costs[0].peak_mib,
             {{"oiiotool", costs[1].peak_mib}});
}

// One frame where nothing is kept from an earlier start, neither by the program nor by the driver, and
// the same once more.
void start_again(bench::Report& report, const Setup& setup) {
  if (!report.wants("second start")) return;
  Setup small = setup;
  small.folder /= "small";
  fs::create_directories(small.folder);
  bench::write_plates(small.folder, 960, 540, 1);
  write_composition(small, "one.json", reads + blur_and_turn, "last", 960, 540);
  Commands render = quorvel(small, "one.json", "1");
  render[0].insert(render[0].begin(), {"env", "XDG_CACHE_HOME=" + small.file("cache")});
  std::vector<double> first, second;
  for (int round = 0; round < (report.quick() ? 1 : 5); ++round) {
    fs::remove_all(small.folder / "cache");
    first.push_back(bench::run_commands(render).seconds);
    second.push_back(bench::run_commands(render).seconds);
  }
  report.row("second start, one frame of 960x540", "s", bench::Better::less,
             *std::min_element(second.begin(), second.end()),
             {{"first start", *std::min_element(first.begin(), first.end())}}, 2);
}

// A still branch is computed for the first frame alone, whatever the length of the shot.
void count_static_branch(bench::Report& report, const Setup& setup) {
  if (!report.wants("still background")) return;
  const std::string nodes = R"({"name": "b", "type": "read", "knobs": {"file": "bg.exr"}},
    {"name": "dim", "type": "grade", "inputs": "b", "knobs": {"multiply": 0.5}},
    {"name": "soft", "type": "blur", "inputs": "dim", "knobs": {"size": 30}},
    {"name": "a", "type": "read", "knobs": {"file": "fg.####.exr"}},
    {"name": "over", "type": "merge", "inputs": ["a", "soft"]})";
  write_composition(setup, "still.json", nodes, "over");
  bench::run_commands(quorvel(setup, "still.json", setup.all()));
  const auto computed = stats(setup).at("computed").get<int64_t>();
  // Three of the branch once; the plate, the merge and the output each frame.
  const int64_t expected = 3 + 3 * setup.frames;
  report.require(computed == expected, "still background: " + std::to_string(computed) +
                                           " results were computed, not " + std::to_string(expected));
  report.row("still background, results computed a frame", "results", bench::Better::less,
             static_cast<double>(computed) / setup.frames, {{"all of them", 6}});
}

// Ten times the frames, the same memory and the same GL textures.
void hold_memory(bench::Report& report, const Setup& setup) {
  if (!report.wants("memory of a long shot")) return;
  const std::string nodes =
      R"({"name": "c", "type": "constant", "knobs": {"color": {"keys": [[1, 0], [1000, 1]]}}},
      {"name": "soft", "type": "blur", "inputs": "c"})";
  write_composition(setup, "long.json", nodes, "soft", 480, 270);
  const bench::Cost brief = bench::run_commands(quorvel(setup, "long.json", "1-100"));
  const auto textures = stats(setup).at("textures_created").get<int64_t>();
  const bench::Cost longer = bench::run_commands(quorvel(setup, "long.json", "1-1000"));
  report.require(stats(setup).at("textures_created").get<int64_t>() == textures,
                 "a longer shot made more GL textures");
  report.row("memory of a long shot, 1000 frames", "MiB", bench::Better::less, longer.peak_mib,
             {{"100 frames", brief.peak_mib}});
}

// The least time, in seconds, that the draws of each composition took, one after the other in turn.
std::vector<double> draw_seconds(const Setup& setup, const std::vector<std::string>& compositions) {
  std::vector<double> least(compositions.size(), 1e9);
  for (int round = 0; round < setup.rounds + 2; ++round) {
    for (size_t i = 0; i < compositions.size(); ++i) {
      bench::run_commands(quorvel(setup, compositions[i], setup.all()));
      least[i] = std::min(least[i], stats(setup).at("draw_ms").get<double>() / 1000);
    }
  }
  return least;
}

// One node beside another, by what their draws take; behind both stands a crop, so that little is written.
void compare_nodes(bench::Report& report, const Setup& setup, const std::string& name, int width, int height,
                   const std::string& before, const std::string& ours,
                   const std::pair<std::string, std::string>& peer, double limit) {
  if (!report.wants(name)) return;
  const std::string end =
      R"(, {"name": "c", "type": "crop", "inputs": "n", "knobs": {"box": [0, 0, 16, 16]}})";
  write_composition(setup, "ours.json", before + ours + end, "c", width, height);
  write_composition(setup, "peer.json", before + peer.second + end, "c", width, height);
  const std::vector<double> seconds = draw_seconds(setup, {"ours.json", "peer.json"});
  report.row(name + ", " + std::to_string(setup.frames) + " frames of " + std::to_string(width) + "x" +
                 std::to_string(height),
             "s", bench::Better::less, seconds[0], {{peer.first, seconds[1]}}, limit);
}

// What mask and mix cost beside the operation that they hold back; both draw the mask.
void hold_back_grade(bench::Report& report, const Setup& setup) {
  const std::string before =
      R"({"name": "p", "type": "constant", "knobs": {"color": [0.2, 0.4, 0.6, 0.8]}},
      {"name": "m", "type": "constant", "knobs": {"color": [0.2, 0.4, 0.6, 0.3]}},
      {"name": "n", "type": "merge", "inputs": {"a": "m", "b": "g"}, "knobs": {"mix": 0}},
      {"name": "g", "type": "grade", "inputs": )";
  const std::string knobs = R"("lift": 0.01, "offset": 0.02, "gamma": 1.2, "whitepoint": 0.95,
      "gain": {"keys": [[1, 0.5], [10, 1.5]]}}})";
  compare_nodes(report, setup, "mask and mix on a grade", 3840, 2160, before,
                R"({"image": "p", "mask": "m"}, "knobs": {"mix": 0.5, )" + knobs,
                {"grade alone", R"("p", "knobs": {)" + knobs}, 1 / 1.3);
}

// A picture with depths from near to far, all discs up to 32 pixels among them.
void defocus_depths(bench::Report& report, const Setup& setup) {
  const std::string before =
      R"({"name": "p", "type": "checkerboard"},
      {"name": "z", "type": "ramp", "knobs": {"first": [0.5, 0, 0, 1], "second": [8, 0, 0, 1]}}, )";
  compare_nodes(report, setup, "defocus up to a radius of 32", 1920, 1080, before,
                R"({"name": "n", "type": "defocus", "inputs": ["p", "z"], "knobs": {"size": 32,
                    "focus": {"keys": [[1, 1.5], [10, 2]]}}})",
                {"disc_blur of 32", R"({"name": "n", "type": "disc_blur", "inputs": "p", "knobs": {"radius":
                    {"keys": [[1, 31.9], [10, 32]]}}})"},
                1 / 3.0);
}

// Takes "--frames N" out of the arguments; the report knows the others.
int take_frames(int& argc, char** argv, int otherwise) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::string(argv[i]) != "--frames") continue;
    const int frames = std::max(1, std::atoi(argv[i + 1]));
    std::copy(argv + i + 2, argv + argc + 1, argv + i);
    argc -= 2;
    return frames;
  }
  return otherwise;
}

}  // namespace

int main(int argc, char** argv) {
  Setup setup;
  const int asked = take_frames(argc, argv, 0);
  bench::Report report("host", argc, argv);
  setup.frames = asked > 0 ? asked : (report.quick() ? 3 : 10);
  if (report.quick()) setup.rounds = 1;
  setup.folder = fs::temp_directory_path() / ("quorvel-bench-" + std::to_string(getpid()));
  fs::create_directories(setup.folder);
  bench::encode_frames(report, setup.folder);
  bench::write_plates(setup.folder, 1920, 1080, setup.frames);
  compare(report, setup, "over", false, 2.2);
  compare(report, setup, "over, blur, rotate", true, 5);
  pass_layers(report, setup);
  start_again(report, setup);
  count_static_branch(report, setup);
  hold_memory(report, setup);
  hold_back_grade(report, setup);
  defocus_depths(report, setup);
  fs::remove_all(setup.folder);
  return report.finish();
}
