#pragma once

#include "host/extent.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace host::files {

// One image wanted of one file: the path, and the layer whose channels become RGBA ("" for the
// file's main image). The same for every node that reads the same thing.
struct Source {
  std::string path;
  std::string layer;
  bool operator<(const Source& other) const {
    return path != other.path ? path < other.path : layer < other.layer;
  }
};

// What a file says of itself before its pixels are read. A file that cannot be opened has `error`
// set and nothing else.
struct Header {
  std::string error;
  Extent extent;                    // y up; of the first subimage
  std::vector<std::string> layers;  // names usable as Source::layer, "" for the main image first
  bool plain = false;               // one subimage of R, G, B, A that fills its display window
  int64_t size = 0;                 // bytes
  int64_t mtime_ns = 0;             // last written, nanoseconds since 1970 UTC
};

// Headers by path, read once a path. Externally synchronised; a lookup of a known path costs a map
// search, of a new one an open of the file.
class Headers {
 public:
  const Header& get(const std::string& path);

 private:
  std::map<std::string, Header> known_;
};

// Decoded pixels: RGBA float, premultiplied as the file has them, rows top to bottom, of the whole
// window of `extent`. The buffer is shared with whoever decoded it.
struct Pixels {
  Extent extent;
  std::shared_ptr<const float[]> rgba;
};

// Decodes sources in the background ahead of need. Plain files go through the decode scheduler,
// layered ones through the layer reader, anything else through the general reader.
// All calls from one thread. Bounded: at most `ahead_limit` decoded or queued files are held.
class Decoder {
 public:
  Decoder(Headers& headers, int threads, int ahead_limit);
  ~Decoder();
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Says that a source is wanted `distance` frames from now; 0 is the frame being rendered, which
  // goes first. Asking again with a smaller distance makes a queued decode more urgent. False when
  // the queue is full: ask again at the next frame.
  bool ahead(const Source& source, int distance);

  // The pixels, waiting for a decode under way or decoding now. The decoder keeps no copy. Throws
  // std::runtime_error that names the path.
  Pixels take(const Source& source);

  // Drops every decode that no frame will take.
  void clear();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace host::files
