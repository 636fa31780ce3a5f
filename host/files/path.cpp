#include "host/files/path.h"

#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace host::files {

namespace fs = std::filesystem;

namespace {

constexpr int most_links = 40;

std::string variable(const std::string& name) {
  const char* const value = std::getenv(name.c_str());
  if (!value) throw std::runtime_error("$" + name + " is not set in the environment");
  return value;
}

bool in_name(char c, bool first) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || (!first && c >= '0' && c <= '9');
}

// What stands for the text behind a dollar sign, which is taken off its front.
std::string take_variable(std::string_view& text) {
  if (text.starts_with('$')) {
    text.remove_prefix(1);
    return "$";
  }
  if (text.starts_with('{')) {
    const size_t end = text.find('}');
    if (end == std::string_view::npos) {
      throw std::runtime_error("expected } behind $" + std::string(text));
    }
    const std::string name(text.substr(1, end - 1));
    text.remove_prefix(end + 1);
    return variable(name);
  }
  size_t end = 0;
  while (end < text.size() && in_name(text[end], end == 0)) ++end;
  const std::string name(text.substr(0, end));
  text.remove_prefix(end);
  return name.empty() ? "$" : variable(name);
}

}  // namespace

std::string expanded(std::string_view path) {
  std::string text;
  if (path == "~" || path.starts_with("~/")) {
    text = variable("HOME");
    path.remove_prefix(1);
  }
  while (true) {
    const size_t dollar = path.find('$');
    text += path.substr(0, dollar);
    if (dollar == std::string_view::npos) return text;
    path.remove_prefix(dollar + 1);
    text += take_variable(path);
  }
}

fs::path followed(const fs::path& path) {
  std::error_code error;
  fs::path at = fs::absolute(path, error);
  for (int links = 0; links < most_links && fs::is_symlink(fs::symlink_status(at, error)); ++links) {
    at = at.parent_path() / fs::read_symlink(at, error);
  }
  const fs::path folder = fs::weakly_canonical(at.parent_path(), error);
  return error ? at.lexically_normal() : folder / at.filename();
}

}  // namespace host::files
