#pragma once

#include "host/draw/stats.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host::render {

// One frame that is over, well or not.
struct FrameReport {
  int64_t frame = 0;
  std::vector<std::string> files;  // written whole
  std::string error;               // empty when the frame stands
  bool skipped = false;            // its files were there already
  int computed = 0;
  int cached = 0;
  double ms = 0;       // from the frame's start to its last file
  uint64_t bytes = 0;  // of its files
  std::string digest;  // what its files are made from, see plan/digest.h; one a file, with spaces between
};

// How a run ended, as its exit code tells.
enum class Outcome { done, some_failed, nothing, memory, interrupted };

// Whom a render tells how it goes. Called from the render thread alone, in this order: begin, then
// notices and frames as they come, then end. Frames are reported once their files stand.
class Progress {
 public:
  Progress() = default;
  virtual ~Progress() = default;
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  virtual void begin(int64_t frames, const std::string& renderer, bool software) = 0;
  virtual void notice(const std::string& text) = 0;  // a warning that stops nothing
  virtual void frame(const FrameReport& report) = 0;
  virtual void end(Outcome outcome, const draw::Stats& stats) = 0;
};

}  // namespace host::render
