#pragma once

#include "host/frame/keyed_frame.h"
#include "host/node/node.h"
#include "host/plan/targets.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace host::plan {

// What the file of a target is made from, as a short text that the file carries: the nodes upstream of it as
// they are at the frame, the files that these read, format and scale, how the file is encoded, and the
// library's version. Names, comments, places in the composition and knobs that the frame does not see do
// not count, nor does the file's own name. It begins with "d" where files that are read are known by path as
// written, size and date, and with "c" where by path and bytes (Project::by_content).
// `keyed` is of the composition's outputs.
std::string digest(const shot::Composition& composition, const frame::KeyedFrame& keyed, const Target& target,
                   const node::Project& project);

// Works out the digests of one frame after another, and whether files have them.
// Externally synchronised; the composition outlives it.
class Digests {
 public:
  Digests(const shot::Composition& composition, const node::Project& project);
  ~Digests();
  Digests(const Digests&) = delete;
  Digests& operator=(const Digests&) = delete;

  // In the way of `like`, another digest, or the project's where that is "". Throws FrameError.
  std::string of(const Target& target, int64_t frame, std::string_view like = "");

  // Whether the file stands and says that it was made from what the frame is made from now. Opens it for its
  // header; one that cannot be read is not current. Throws FrameError.
  bool current(const Target& target, int64_t frame);

 private:
  struct Known;
  Known& known(bool by_content);
  const shot::Composition& composition_;
  node::Project project_;
  std::unique_ptr<Known> by_date_, by_content_;
};

}  // namespace host::plan
