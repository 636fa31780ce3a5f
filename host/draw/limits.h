#pragma once

#include <cstddef>
#include <cstdint>

namespace host::draw {

// How many images may be on their way to files at a time: always two, so that one is drawn while the other is
// encoded; more only while all hold no more than `bytes` together.
struct SentLimit {
  size_t images = 2;
  uint64_t bytes = 0;

  // Whether another of `more` bytes may follow `out` images of `held` bytes.
  bool room(size_t out, uint64_t held, uint64_t more) const;
};

// Of images that are handed out one frame after another, how many are drawn before they are asked for.
constexpr size_t images_ahead = 2;

// Of an image that others which are out already wait for.
constexpr SentLimit unlimited{SIZE_MAX, UINT64_MAX / 2};

// What a run has under way at a time, whoever asks: the run, and who predicts it.
struct Limits {
  int threads = 1;             // decoders, and encoders
  int frames_ahead = 1;        // beyond the one being rendered, whose files are decoded
  uint64_t decoded_bytes = 0;  // of sources, beyond as many as there are threads
  int ring = 1;                // buffers of the transfer ring
  uint64_t strip_bytes = 0;    // of an image, that go through one of them at a time

  // threads: 0 for one a processor; memory: bytes that images may come to.
  Limits(int threads, uint64_t memory, bool software);

  // packed_by_all: that the encoders make the file together, the oldest first.
  SentLimit sent(bool packed_by_all) const;
};

}  // namespace host::draw
