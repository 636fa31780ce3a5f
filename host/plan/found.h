#pragma once

#include "host/node/node.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host::plan {

// What a node that reads a file finds on disk.
struct Found {
  std::string node;
  int64_t frame = 0;            // of the node, which time nodes make differ from the output's
  std::string pattern;          // as the node names it, in full
  std::vector<int64_t> frames;  // of a pattern: those that stand, in order
  std::string path;             // of the frame
  plates::Layer layer;          // that it takes of the file, and
  plates::Contents contents;    // what there is
  std::optional<plates::ReadColor> color;
  plates::ColorSpace space;
  std::string error;  // why the file cannot be read, without its place; the rest is then empty
};

// Of every node that a frame reads files by. Opens files for their headers alone; a frame whose nodes
// cannot be told has none.
std::vector<Found> found_by_reads(const shot::Composition& composition, const node::Project& project,
                                  int64_t frame);

}  // namespace host::plan
