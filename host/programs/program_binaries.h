#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace host::programs {

// Linked programs as the driver packs them, kept in a folder from one run to the next, so that a text
// is compiled once a driver. An entry serves only the driver, the version of this system and the texts
// that it was made of, which it holds and which are compared; damaged and foreign ones count as absent
// and are replaced. Entries are put there whole and the least used go, so any number of processes may
// share a folder. Whatever goes wrong costs compiling, and nobody is told.
// GL thread only, with one context current from its construction on.
class ProgramBinaries {
 public:
  // "": nothing is kept. The folder is made with the first entry.
  explicit ProgramBinaries(std::filesystem::path folder);

  // Holds the folder to 512 entries and 64 MiB, if any were added.
  ~ProgramBinaries();
  ProgramBinaries(const ProgramBinaries&) = delete;
  ProgramBinaries& operator=(const ProgramBinaries&) = delete;

  // The user's: quorvel/programs under XDG_CACHE_HOME, else under ~/.cache; "" where there is no home.
  static std::filesystem::path default_folder();

  // Makes a new program of what is kept for these texts; false when that is nothing, or nothing that
  // the driver takes. The program is then as it was.
  bool restore(uint32_t program, std::string_view vertex, std::string_view fragment);

  // To be called before a program is linked that will be kept, and after.
  void announce(uint32_t program) const;
  void keep(uint32_t program, std::string_view vertex, std::string_view fragment);

 private:
  std::string identity(std::string_view vertex, std::string_view fragment) const;

  std::filesystem::path folder_;
  std::string driver_;
  std::vector<int> formats_;  // that the driver takes; empty: nothing can be kept
  bool added_ = false;
};

}  // namespace host::programs
