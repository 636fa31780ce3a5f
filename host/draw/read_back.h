#pragma once

#include "host/base/memory_use.h"
#include "host/draw/limits.h"
#include "host/node/image.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace host::draw {

// Buffers in host memory that are used again and again, because fresh memory costs as much as
// filling it. Thread-safe; a buffer outlives the pool if it must.
class BufferPool {
 public:
  // most_kept: of those that are not out, at least two; strip_bytes: of what comes from the device, that pass
  // a buffer of the transfer ring at a time; use: whose Owner::sent all are.
  BufferPool(size_t most_kept, uint64_t strip_bytes, MemoryUse use = MemoryUse());

  uint64_t strip_bytes() const {
    return strip_bytes_;
  }

  // Room for this many floats, undefined contents. Comes back when the last holder lets go, which is waited
  // for while the limit has no room.
  std::shared_ptr<float[]> acquire(size_t floats, const SentLimit& limit);

  // Pixels that are not its own, let go by the last holder of the result: for the limit they are a buffer
  // that is out.
  std::shared_ptr<const float[]> pass(std::shared_ptr<const node::Decoded> decoded, size_t floats,
                                      const SentLimit& limit);

  // What has been read into its buffers, in bytes; counted by read_back.
  void note_read(uint64_t bytes);
  uint64_t bytes_read() const;

 private:
  struct State {
    explicit State(MemoryUse use) : account(std::move(use), Owner::sent) {}

    std::mutex mutex;
    std::condition_variable back;
    size_t out = 0;
    uint64_t out_bytes = 0;
    uint64_t passing_bytes = 0;  // of what is out, those that are not its own
    uint64_t bytes_read = 0;
    size_t floats = 0;  // of each kept buffer; those of another size are not kept
    std::vector<std::unique_ptr<float[]>> kept;
    Account account;

    std::unique_ptr<float[]> take(size_t wanted);
    void give_back(std::unique_ptr<float[]> buffer, size_t size);
    void tell();
  };
  const uint64_t strip_bytes_;
  std::shared_ptr<State> state_;
};

// Pixels that have left the GPU; rgba is null when the driver let the transfer down.
struct ReadBack {
  Box window{};
  std::shared_ptr<const float[]> rgba;
};

// The part of an image that a reading of `area` is of; empty where it has no pixels there.
Box read_window(const node::Image& image, const Box& area);

// What becomes of the part of an area in which an image has no pixels. `left_out`: of an area without any,
// one transparent pixel is read all the same, because no file can have none.
enum class Outside : uint8_t { left_out, transparent };

// Starts reading the part of an image that lies in `area` through the transfer ring. The texture may
// be drawn into by later calls at once. Decoded floats are handed out as they are where all of them are
// wanted; other decoded pixels are copied. `done` runs on the ring's thread, in order of the calls. Waits
// while every slot of the ring is in flight, or `limit` has no room. Returns the ticket to wait for, 0 when
// `done` has run already. GL thread only.
uint64_t read_back(const node::Image& image, const Box& area, Outside outside, BufferPool& buffers,
                   const SentLimit& limit, std::function<void(ReadBack)> done);

}  // namespace host::draw
