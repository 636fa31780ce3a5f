#pragma once

#include "host/shot/composition.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace host::live {

// A version that is not the newest one any more, where that is needed.
class Outdated : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A composition's text while it is worked on: its versions, counted from 1, each checked as `render` checks
// it, and what the file holds meanwhile. The file is written by `save` alone. Thread-safe.
class Document {
 public:
  using CompositionPtr = std::shared_ptr<const shot::Composition>;
  static constexpr size_t kept_versions = 32;  // whose compositions can still be asked for

  struct State {
    int64_t version = 0;
    std::shared_ptr<const std::string> text;
    CompositionPtr composition;
    bool saved = false;         // the file says the same
    bool disk_changed = false;  // the file is another one than the text was read from or saved to
  };

  // What it takes to go on with a document elsewhere.
  struct Kept {
    int64_t version = 0;
    std::string text;
    std::string known;  // what it was read from or saved to
  };

  // Reads the file; goes on with what was kept, if that is given, and looks at the file then. Throws
  // shot::CompositionError.
  explicit Document(const std::filesystem::path& file, const std::optional<Kept>& kept = std::nullopt);

  const std::filesystem::path& file() const {
    return file_;
  }
  State now() const;
  Kept kept() const;

  // Of a version, 0 for the newest; null where it is not known (any more).
  CompositionPtr composition(int64_t version) const;

  // Makes a text the newest version, if it was made from the one that is. Throws Outdated, and
  // shot::CompositionError where it cannot be used; all is then as before.
  State edit(int64_t base, std::string text);

  // Writes the newest version to the file, whole or not at all. Where the file has changed meanwhile, nothing
  // is written and its text comes back, unless forced. Throws Outdated for another version, and
  // std::runtime_error with what the system said.
  std::optional<std::string> save(int64_t version, bool force);

  // Makes the file's text the newest version. Throws shot::CompositionError.
  State reload();

  // Looks at the file, after something has happened to it. A text that was saved follows it; one with edits
  // stays, and the file counts as changed. Returns why a text that was to be followed cannot be, ""
  // otherwise.
  std::string look();

 private:
  State state() const;
  void take(std::string text);  // as the newest version
  void take(std::string text, int64_t number);
  bool changed() const;

  struct Version {
    int64_t number = 0;
    CompositionPtr composition;
  };

  const std::filesystem::path file_;
  mutable std::mutex mutex_;
  std::shared_ptr<const std::string> text_;
  std::deque<Version> versions_;
  std::string known_;                // what the text was read from or saved to
  std::optional<std::string> disk_;  // what the file holds; nothing where there is none
};

}  // namespace host::live
