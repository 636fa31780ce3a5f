#include "host/programs/shader_text.h"

#include "host/programs/shader_library.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>
#include <utility>

namespace host::programs {
namespace {

namespace fs = std::filesystem;

std::string read_text(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (!stream) throw ShaderError(file.string() + ": cannot be read");
  return text;
}

// The name in an #include line, or "" for any other line.
std::string included(const std::string& line, const std::string& where) {
  constexpr std::string_view start = "#include \"";
  if (line.compare(0, 8, "#include") != 0) return {};
  const size_t end = line.find('"', start.size());
  if (line.compare(0, start.size(), start) != 0 || end == std::string::npos) {
    throw ShaderError(where + ": expected #include \"name\", found " + line);
  }
  return line.substr(start.size(), end - start.size());
}

}  // namespace

ShaderTexts::ShaderTexts(fs::path root) : root_(std::move(root)) {
  std::error_code error;
  for (fs::recursive_directory_iterator at(root_, error), end; !error && at != end; at.increment(error)) {
    if (!at->is_regular_file()) continue;
    const auto [place, added] = by_name_.emplace(at->path().filename().string(), at->path());
    if (!added && at->path() < place->second) place->second = at->path();
  }
  if (error) throw ShaderError(root_.string() + ": " + error.message());
}

fs::path ShaderTexts::find(const std::string& file, const fs::path& near,
                           const std::string& wanted_by) const {
  for (const fs::path& folder : {near, root_}) {
    std::error_code error;
    if (fs::is_regular_file(folder / file, error)) return folder / file;
  }
  const auto found = by_name_.find(file);
  if (found != by_name_.end()) return found->second;
  throw ShaderError(wanted_by + "no file \"" + file + "\" under " + root_.string());
}

std::string ShaderTexts::source(std::string_view file) const {
  const fs::path path = find(std::string(file), root_, "");
  std::set<fs::path> seen;
  std::string out;
  append(read_text(path), path.parent_path(), path.string(), seen, out);
  return out;
}

std::string ShaderTexts::splice(const std::string& text, const std::string& name) const {
  std::set<fs::path> seen;
  std::string out;
  append(text, root_, name, seen, out);
  return out;
}

void ShaderTexts::append(const std::string& text, const fs::path& folder, const std::string& name,
                         std::set<fs::path>& seen, std::string& out) const {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::string file = included(line, name);
    if (file.empty()) {
      out += line;
      out += '\n';
      continue;
    }
    const fs::path path = find(file, folder, name + ": ");
    if (seen.insert(path).second) append(read_text(path), path.parent_path(), path.string(), seen, out);
  }
}

}  // namespace host::programs
