#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace host::programs {

// The texts of a folder of fragment programs, found by file name, whichever sub-folder holds them.
// Throws ShaderError that names the file. Externally synchronised.
class ShaderTexts {
 public:
  explicit ShaderTexts(std::filesystem::path root);

  // A file with its #include "name" lines spliced: of files of that name, the one in the folder of
  // the including file counts first, then the one in the root, then any other. A file is spliced
  // once a program.
  std::string source(std::string_view file) const;

  // The same for a text that is no file; `name` stands in messages.
  std::string splice(const std::string& text, const std::string& name) const;

 private:
  std::filesystem::path find(const std::string& file, const std::filesystem::path& near,
                             const std::string& wanted_by) const;
  void append(const std::string& text, const std::filesystem::path& folder, const std::string& name,
              std::set<std::filesystem::path>& seen, std::string& out) const;

  std::filesystem::path root_;
  std::map<std::string, std::filesystem::path> by_name_;  // the first by path where several have a name
};

}  // namespace host::programs
