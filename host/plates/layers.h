#pragma once

#include "host/base/extent.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace host::plates {

// Four channels of a file that make an image.
struct Layer {
  // What a composition may call it, the full name first: "" for the file's main image, its part,
  // "part.layer", and the layer alone, which is what stands before the last dot of its channels.
  std::vector<std::string> names;
  int subimage = 0;
  Extent extent;  // y up; the format is the file's display window
  // The file's channels that become R, G, B, A. -1: none, colour is 0 there and alpha 1.
  std::array<int, 4> channels = {-1, -1, -1, -1};
  // Alpha says how much of a pixel the colour covers, so colour may be divided by it. False for
  // data: one channel, vectors, ids, and whatever has no alpha of its own.
  bool coverage = false;
  bool ids = false;   // some channel holds whole numbers
  bool half = false;  // all are halves, and are decoded as such
  bool deep = false;  // any number of samples a pixel
};

// A channel by itself, for who picks some by name.
struct Channel {
  std::string name;  // as the file has it: "left.Z"
  std::string part;
  int subimage = 0;
  int index = 0;
  bool whole = false;  // an unsigned 32-bit number
};

// What a file can be asked for.
struct Contents {
  std::vector<Layer> layers;  // the main image first; never empty in a file that can be read
  std::vector<Channel> channels;
};

// The layer of a name, or up to four channels by their names: within the layer when one is given,
// else anywhere in the file. One channel is grey; more become R, G, B and A in their order. Throws
// std::runtime_error, without the path, that lists what there is or what the name may mean.
Layer select(const Contents& contents, std::string_view layer, const std::vector<std::string>& channels);

}  // namespace host::plates
