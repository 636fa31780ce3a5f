#pragma once

#include "host/render/progress.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace host::render_farm {

// One attempt at a frame: a line of a journal.
struct Entry {
  int64_t frame = 0;
  std::string outcome;     // "done", "kept" (its files stood and stay), "failed"
  std::string host;        // that it ran on
  std::string task;        // "JOB_CHUNK.TRY" under a scheduler, as QUORVEL_TASK says; else ""
  std::string start, end;  // UTC, as 2026-01-31T12:34:56.789Z
  double ms = 0;
  uint64_t bytes = 0;
  std::string digest;
  std::string error;
};

// A file with a JSON object a line, to which renderers on any machine append: a line is one write, which is
// on the disk when add returns. What one of them left torn spoils no other's line.
class Journal {
 public:
  // Makes missing folders. Throws std::runtime_error that names the path.
  explicit Journal(const std::filesystem::path& path);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // Throws std::runtime_error.
  void add(const Entry& entry);

 private:
  std::filesystem::path path_;
  int descriptor_ = -1;
};

// Tells `each` of every whole line, in the file's order; lines that are torn are read over. A file that is
// not there has none. About a microsecond a line.
void read_journal(const std::filesystem::path& path, const std::function<void(const Entry&)>& each);

// Hands everything on to `shown` and writes the frames down. A journal that cannot be written to is a notice:
// the frames stand without it. Both outlive the result.
std::unique_ptr<render::Progress> journalled(render::Progress& shown, Journal& journal);

}  // namespace host::render_farm
