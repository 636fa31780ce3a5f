#pragma once

#include "host/plan/targets.h"
#include "host/render_farm/job.h"
#include "host/render_farm/slurm.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace host::render_farm {

struct ChunkStatus {
  enum class State { waiting, running, done, failed, unknown };
  State state = State::waiting;
  std::string frames;
  int64_t total = 0, whole = 0;
  std::optional<int64_t> at;  // the frame in hand, of a chunk that runs
  std::string node;
  int restarts = 0;
  std::string why;  // it waits or failed
};

struct Status {
  std::vector<ChunkStatus> chunks;
  int64_t frames = 0, whole = 0;  // of the job: chunks, and what stood before
  int64_t failed = 0;             // chunks
  bool ended = false;             // no chunk waits or runs
  double seconds_left = -1;       // below 0 where nothing is known
};

// How a job stands: by its journal, by which files stand, and by what the scheduler knows of its tasks; null
// where it cannot be asked, and chunks that are not done are then unknown. Opens no file but the journal; a
// second for a million lines.
Status status_of(const shot::Composition& composition, const Job& job, const std::map<int, Task>* tasks);

// A bar a chunk, for people; for programs.
std::string status_text(const Job& job, const Status& status);
std::string status_json(const Job& job, const Status& status);

}  // namespace host::render_farm
