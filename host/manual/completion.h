#pragma once

#include <string>
#include <vector>

namespace host::manual {

// The shells that have a script.
const std::vector<std::string>& shells();

// What a shell reads to complete the command: it asks `quorvel complete` at every tab, so that it always
// knows the installed program's options, and the composition at hand. "" for another shell.
std::string completion_script(const std::string& shell);

}  // namespace host::manual
