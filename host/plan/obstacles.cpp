#include "host/plan/obstacles.h"

#include "host/files/atomic_file.h"
#include "host/files/path.h"
#include "host/node/expectation.h"
#include "host/plates/made.h"

#include <cerrno>
#include <exception>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace host::plan {

namespace fs = std::filesystem;

namespace {

std::string made_text(int64_t width, int64_t height, double scale) {
  return std::to_string(width) + " x " + std::to_string(height) + " at scale " + node::number_text(scale);
}

}  // namespace

bool stands(const std::string& path) {
  return files::would_replace(path);
}

std::string obstacle(const std::string& path) {
  std::error_code error;
  if (fs::exists(path, error) && !fs::is_directory(path, error) && !stands(path)) return "";  // a stream
  const fs::path file = files::followed(path);
  if (fs::exists(file, error) && !fs::is_directory(file, error) && !files::would_replace(file)) return "";
  if (file.filename().empty() || fs::is_directory(file, error)) return path + ": is a folder";
  fs::path folder = file.parent_path();
  while (!fs::exists(folder, error) && folder.has_relative_path()) folder = folder.parent_path();
  if (!fs::is_directory(folder, error)) return path + ": " + folder.string() + " is no folder";
  if (::access(folder.c_str(), W_OK | X_OK) == 0) return "";
  return path + ": cannot write to the folder " + folder.string() + ": " +
         std::generic_category().message(errno);
}

std::string exists_text(const std::string& path) {
  return path + " exists already; --overwrite replaces it, --skip-existing keeps it";
}

std::string stale_reason(const std::string& path, double scale, const Format* format) {
  try {
    const files::Made made = plates::made(path);
    const bool other_size = format && (made.width != format->width || made.height != format->height);
    if (made.scale == scale && !other_size) return "";
    return path + " stands, but is " + made_text(made.width, made.height, made.scale) + ", not " +
           (format ? made_text(format->width, format->height, scale)
                   : "at scale " + node::number_text(scale)) +
           "; --overwrite replaces it";
  } catch (const std::exception& error) {
    return path + " stands, but cannot be read; --overwrite replaces it (" + error.what() + ")";
  }
}

}  // namespace host::plan
