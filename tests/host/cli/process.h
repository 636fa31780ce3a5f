#pragma once

#include "tests/support/files.h"

#include <vector>

namespace process {

using support::new_folder;

struct Ended {
  int code = 0;
  std::string out, err;
};

// A shell's command in a folder to its end; `quorvel` is the program under test.
Ended run(const std::string& command, const std::filesystem::path& folder);

// `quorvel` within this process, which takes no start: the words of a command line, from a folder.
Ended call(const std::string& words, const std::filesystem::path& folder);

// Calls `quorvel` for each line of a table: the words, the exit code, and what is said.
void check_calls(const std::string& table, const std::filesystem::path& folder);

// The files of a folder whose names end so, links left out, in order.
std::vector<std::filesystem::path> files_in(const std::filesystem::path& folder, const std::string& ending);

// A composition of 32 x 18 pixels, or what `format` says, as a file. It may use the node `grey`.
std::string write_shot(const std::filesystem::path& file, const std::string& nodes,
                       const std::string& frames = "1-3",
                       const std::string& format = R"("width": 32, "height": 18)");

extern const std::string grey;  // a constant of 0.5
// A comma and a node that writes; without a file where the path is "-".
std::string write_node(const std::string& name, const std::string& input, const std::string& path);

}  // namespace process
