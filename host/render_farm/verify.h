#pragma once

#include "host/plan/targets.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host::render_farm {

// A file that is not what its frame should have, and why: "missing", what a decoder said, or what it was
// made from.
struct Flaw {
  int64_t frame = 0;
  std::string path;
  std::string reason;
};

struct Verdict {
  int64_t frames = 0;  // looked at
  int64_t whole = 0;
  std::vector<Flaw> flaws;  // in the frames' order
};

// Looks at the file of every output of these frames: that it is there, that it decodes, and that it was made
// from what the frame is made from now. Draws nothing. `outputs` and `scale` as for a rendering; `threads`
// decode at a time, 0: one a processor. Throws TargetError.
// Costs a decode a file, and a look at the attributes of what each frame reads.
Verdict verify(const shot::Composition& composition, const std::vector<int64_t>& frames,
               const std::vector<std::string>& outputs, double scale, int threads);

// For people and for programs.
std::string verdict_text(const Verdict& verdict);
std::string verdict_json(const Verdict& verdict);

}  // namespace host::render_farm
