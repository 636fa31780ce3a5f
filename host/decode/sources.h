#pragma once

#include "host/base/memory_use.h"
#include "host/base/notices.h"
#include "host/base/spans.h"
#include "host/decode/pixels.h"
#include "host/plates/headers.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace host::decode {

// A source that will be taken `distance` frames from now; 0 is the frame being rendered. Listed once
// for every node that will take it.
struct Wanted {
  plates::Source source;
  int distance = 0;
};

// What the decoder has done. `decode_ms` sums over its threads.
struct DecoderStats {
  int64_t files = 0;
  double decode_ms = 0;
};

// Decodes sources in the background ahead of need, all in one queue, and opens them there for their headers
// first, as far as those are not known: plain files, layered ones through the
// layer reader, all wanted layers of a file in one go, anything else through the general reader. What several
// nodes want is decoded once. All calls from one thread. Bounded: sources decoded or being decoded hold at
// most `ahead_bytes`, or are as few as there are threads; the others wait their turn, as do those of which
// nothing is known while there are as many.
class Decoder {
 public:
  // threads: decodes at once, at least 1. `headers` and `notices` outlive the decoder. use: whose
  // Owner::decoded the sources are that are decoded or being decoded, as far as their headers are known.
  // spans: told when each file is decoded; may be null.
  Decoder(plates::Headers& headers, int threads, uint64_t ahead_bytes, Notices& notices,
          MemoryUse use = MemoryUse(), Spans* spans = nullptr);
  ~Decoder();
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Replaces the list of what will be taken: new sources are queued, those wanted sooner become more
  // urgent, those no longer listed are dropped. Sources that cannot be read are passed over.
  void want(std::span<const Wanted> list);

  // The pixels, waiting for a decode under way or decoding now. The decoder keeps them for those who
  // are still to take them in this frame, no longer. Throws
  // std::runtime_error that names the path, and the layer when it is that which is missing.
  Pixels take(const plates::Source& source);

  DecoderStats stats() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace host::decode
