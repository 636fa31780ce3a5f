#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace support {

// An empty folder, removed at the end of the process.
inline std::filesystem::path new_folder() {
  struct Root {
    std::filesystem::path path;
    int folders = 0;
    Root() {
      std::string name = (std::filesystem::temp_directory_path() / "quorvel-test-XXXXXX").string();
      if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
      path = name;
    }
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;
    ~Root() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static Root root;
  const auto folder = root.path / std::to_string(root.folders++);
  std::filesystem::create_directory(folder);
  return folder;
}

inline std::string write_bytes(const std::filesystem::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
  return file.string();
}

inline std::string bytes_of(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace support
