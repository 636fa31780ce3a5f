#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace host::draw {

// An image in host memory that somebody holds.
struct HeldImage {
  std::string node;
  int64_t frame = 0;
  uint64_t bytes = 0;
};

// An image for which there is no room beside those that are held. The text names them.
class MemoryBudget : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The images that are held, and how much they may come to. A handle; copies keep the same list. Thread-safe.
class HeldImages {
 public:
  explicit HeldImages(uint64_t most_bytes) : state_(std::make_shared<State>()) {
    state_->most = most_bytes;
  }

  // Counts an image until the result goes. Throws MemoryBudget.
  std::shared_ptr<void> hold(const HeldImage& image);

  // Whether one of so many bytes would find room.
  bool room(uint64_t bytes) const;

  // In the order in which they came.
  std::vector<HeldImage> list() const;

 private:
  struct State {
    std::mutex mutex;
    uint64_t most = 0;
    uint64_t bytes = 0;
    std::list<HeldImage> images;
  };
  std::shared_ptr<State> state_;
};

}  // namespace host::draw
