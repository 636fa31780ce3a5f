#pragma once

#include "host/node/image.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace host::render {

// Buffers in host memory that are used again and again, because fresh memory costs as much as
// filling it. Thread-safe; a buffer outlives the pool if it must.
class BufferPool {
 public:
  // most: buffers that are out at a time, at least 1.
  explicit BufferPool(size_t most);

  // Room for this many floats, undefined contents. Comes back when the last holder lets go, which is waited
  // for while `most` are out; not for one that others already out wait for (`joins`).
  std::shared_ptr<float[]> acquire(size_t floats, bool joins);

  // Bytes of the buffers that are out and of those kept; and the most that there were.
  uint64_t bytes() const;
  uint64_t peak_bytes() const;

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable back;
    size_t most = 1;
    size_t out = 0;
    size_t floats = 0;  // of each kept buffer; those of another size are not kept
    std::vector<std::unique_ptr<float[]>> kept;
    uint64_t bytes = 0;
    uint64_t peak_bytes = 0;

    std::unique_ptr<float[]> take(size_t wanted);
    void give_back(std::unique_ptr<float[]> buffer, size_t size);
    void drop_kept();
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

// Pixels that have left the GPU; rgba is null when the driver let the transfer down.
struct ReadBack {
  Box window{};
  std::shared_ptr<const float[]> rgba;
};

// Starts reading the part of an image that lies in `area` through the transfer ring. The texture may
// be drawn into by later calls at once. `done` runs on the ring's thread, in order of the calls. An
// image without pixels there gives one transparent pixel, because no file can have none. Waits while
// every slot of the ring is in flight, and for a buffer as acquire does. Returns the ticket to wait for, 0
// when `done` has run already. GL thread only.
uint64_t read_back(const node::Image& image, const Box& area, BufferPool& buffers, bool joins,
                   std::function<void(ReadBack)> done);

}  // namespace host::render
