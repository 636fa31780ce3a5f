#include "tests/host/cli/process.h"

#include "host/cli/cli.h"
#include "tests/support/table.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>
#include <system_error>

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace process {

namespace fs = std::filesystem;

Ended run(const std::string& command, const fs::path& folder) {
  const fs::path said = new_folder();
  const fs::path programs = fs::path(QUORVEL_PROGRAM).parent_path();
  const std::string line = "PATH=" + programs.string() + ":$PATH; cd " + folder.string() + " && (" + command +
                           ") >" + (said / "out").string() + " 2>" + (said / "err").string();
  const int status = std::system(line.c_str());
  return {WEXITSTATUS(status), support::bytes_of(said / "out"), support::bytes_of(said / "err")};
}

Ended call(const std::string& words, const fs::path& folder) {
  std::istringstream line("quorvel " + words);
  std::vector<std::string> arguments{std::istream_iterator<std::string>(line), {}};
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  const auto before = fs::current_path();
  std::ostringstream out, err;
  auto* const out_buffer = std::cout.rdbuf(out.rdbuf());
  auto* const err_buffer = std::cerr.rdbuf(err.rdbuf());
  fs::current_path(folder);
  const int code = host::cli::run(static_cast<int>(argv.size()), argv.data());
  fs::current_path(before);
  std::cout.rdbuf(out_buffer);
  std::cerr.rdbuf(err_buffer);
  return {code, out.str(), err.str()};
}

void check_calls(const std::string& table, const fs::path& folder) {
  for (const auto& [words, code, says] : support::rows<3>(table)) {
    const Ended ended = call(words, folder);
    EXPECT_EQ(std::to_string(ended.code), code) << words << ended.err;
    EXPECT_NE((ended.out + ended.err).find(says), std::string::npos) << words << ended.out << ended.err;
  }
}

std::vector<fs::path> files_in(const fs::path& folder, const std::string& ending) {
  std::vector<fs::path> files;
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(folder, none))
    if (entry.path().extension() == ending && !entry.is_symlink()) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

const std::string grey = R"({"name": "grey", "type": "constant", "knobs": {"color": [0.5, 0.5, 0.5, 1]}})";

std::string write_node(const std::string& name, const std::string& input, const std::string& path) {
  return R"(, {"name": ")" + name + R"(", "type": "write", "inputs": ")" + input + "\"" +
         (path == "-" ? "}" : R"(, "knobs": {"file": ")" + path + "\"}}");
}

std::string write_shot(const fs::path& file, const std::string& nodes, const std::string& frames,
                       const std::string& format) {
  return support::write_bytes(
      file, R"({"format": {)" + format + R"(}, "frames": ")" + frames + R"(", "nodes": [)" + nodes + "]}");
}

}  // namespace process
