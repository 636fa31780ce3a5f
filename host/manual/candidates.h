#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace host::manual {

// What may be typed, and what it is.
struct Candidate {
  std::string text, help;
};

struct Candidates {
  std::vector<Candidate> words;
  bool files = false;  // and paths
};

// How a command line may go on: commands, options, their values, and the nodes, knobs and views of the
// composition that it names. words: what stands behind the program's name, the last one begun, maybe empty.
// All from the table; an option's value by the name of its type: choices part by "|", the others in
// candidates.cpp. Opens the composition and no device.
Candidates candidates(const CLI::App& program, const std::vector<std::string>& words);

// A line each for the scripts: the text, a tab, the help; ":files" for paths.
std::string candidate_lines(const Candidates& found);

}  // namespace host::manual
