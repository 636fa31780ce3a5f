#pragma once

#include "host/base/extent.h"
#include "host/files/headers.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace host::files {

// One image wanted of one file: the path, and the layer whose channels become RGBA ("" for the
// file's main image). The same for every node that reads the same thing.
struct Source {
  std::string path;
  std::string layer;
  bool operator<(const Source& other) const {
    return path != other.path ? path < other.path : layer < other.layer;
  }
  bool operator==(const Source&) const = default;
};

// A source that will be taken `distance` frames from now; 0 is the frame being rendered.
struct Wanted {
  Source source;
  int distance = 0;
};

// Decoded pixels: RGBA float, premultiplied as the file has them, rows top to bottom, of the whole
// window of `extent`. The buffer is shared with whoever decoded it.
struct Pixels {
  Extent extent;
  std::shared_ptr<const float[]> rgba;
};

// What the decoder has done. `decode_ms` sums over its threads.
struct DecoderStats {
  int64_t files = 0;
  double decode_ms = 0;
};

// Decodes sources in the background ahead of need. Plain files go through the decode scheduler,
// layered ones through the layer reader, all wanted layers of a file in one go, anything else through
// the general reader. All calls from one thread.
// Bounded: sources decoded or being decoded hold at most `ahead_bytes`, or are as few as there are
// threads; the others wait their turn.
class Decoder {
 public:
  // threads: decodes at once, at least 1. `headers` outlives the decoder.
  Decoder(Headers& headers, int threads, uint64_t ahead_bytes);
  ~Decoder();
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Replaces the list of what will be taken: new sources are queued, those wanted sooner become more
  // urgent, those no longer listed are dropped. Sources that cannot be read are passed over.
  void want(std::span<const Wanted> list);

  // The pixels, waiting for a decode under way or decoding now. The decoder keeps no copy. Throws
  // std::runtime_error that names the path, and the layer when it is that which is missing.
  Pixels take(const Source& source);

  DecoderStats stats() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace host::files
