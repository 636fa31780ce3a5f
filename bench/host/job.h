#pragma once

#include <string>
#include <vector>

namespace bench {

// What running a command to its end took. Memory: the most that any one of its processes had.
struct Cost {
  double seconds = 0;
  double peak_mib = 0;
};

// Runs commands one after another, each a program with its arguments, without their output. Ends the
// bench with what they printed when one fails.
Cost run_commands(const std::vector<std::vector<std::string>>& commands);

// What the last of them printed.
std::string last_output();

// Whether a program can be found.
bool has_program(const std::string& name);

}  // namespace bench
