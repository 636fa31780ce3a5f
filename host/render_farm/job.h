#pragma once

#include "host/shot/composition.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace host::render_farm {

// Frames that are rendered by one process, in order.
using Chunk = std::vector<int64_t>;

// A composition's frames as they are handed to a scheduler. Paths are absolute.
struct Job {
  std::string name;  // the composition's, without folder and ending
  std::filesystem::path composition, program;
  std::filesystem::path folder;  // of everything that is kept about the job: OUT/.quorvel/NAME
  // As the options of a rendering are.
  shot::Asked asked;
  std::vector<std::string> outputs;  // --output
  std::string gpu = "auto";
  double scale = 1;
  int threads = 0;
  uint64_t memory = 0;  // at most for images
  bool by_content = false;

  std::vector<int64_t> frames;          // that are to stand in the end
  std::vector<Chunk> chunks;            // of those that did not when it was submitted
  uint64_t base = uint64_t{768} << 20;  // bytes of a chunk's process beside its images
  uint64_t images = 0;                  // bytes of images at the peak, as predicted; 0: unknown
  int retries = 3;                      // of a chunk, beyond the first try
  std::vector<std::string> extra;       // further options for sbatch
  std::string array_id, check_id;       // the scheduler's; "" when it has not been submitted
};

// Where a composition's job is kept: beside the files of its first output, as far up as no frame number
// stands. `outputs` as for a rendering. Throws TargetError.
std::filesystem::path job_folder(const shot::Composition& composition,
                                 const std::vector<std::string>& outputs);

// The journal of all renderings of the job: OUT/.quorvel/NAME.jsonl.
std::filesystem::path journal_of(const Job& job);

// Writes the job into its folder; nothing where there is none. Throw std::runtime_error that names the path.
void save(const Job& job);
std::optional<Job> load(const std::filesystem::path& folder);

// What one rendering of the job takes: the program with its arguments but for --frames and --journal, and the
// same that verifies its frames.
std::vector<std::string> render_words(const Job& job);
std::vector<std::string> verify_words(const Job& job);

// Bytes that the images of a chunk's process may come to: what they are predicted to, or else the budget.
uint64_t image_bytes(const Job& job);

// MiB that a chunk's process is given: those of its images, and what stands beside them.
uint64_t memory_mib(const Job& job);

// What frames took, in milliseconds.
struct Times {
  double first = 0;  // one for which everything had to be computed
  double each = 0;   // those after it; 0 when nothing is known
};

// From the latest frames that the journal has.
Times times_in(const std::filesystem::path& journal);

// So many frames that a chunk takes about ten minutes, and longer where its first frame would matter; half an
// hour at most. Fewer where `frames` would else leave some of those idle that run `at_once`, unless the first
// frame of a chunk took longer than all others.
int64_t automatic_chunk(const Times& times, int64_t frames, int64_t at_once);

// The frames in their order, in chunks of `size`, and larger ones where there would be more than `most`.
std::vector<Chunk> chunks_of(const std::vector<int64_t>& frames, int64_t size, int64_t most);

}  // namespace host::render_farm
