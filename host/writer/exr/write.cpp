#include "host/writer/exr/write.h"

#include "host/writer/exr/file.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <optional>

namespace host::writer::exr {
namespace {

// Hands out a file's chunks in order and puts them into it in order. Between the two each has a place in a
// ring; who would run ahead of the ring waits for the chunk behind, whose thread waits for nobody.
class Assembly final : public Work {
 public:
  Assembly(std::span<const Part> parts, File& file, std::vector<Bytes>& memory)
      : parts_(parts), file_(file), memory_(memory), ring_(memory.size()) {}

  void run(Packer& packer) noexcept override {
    Extremes found;
    try {
      while (const std::optional<size_t> place = begin_next()) {
        const Chunk chunk = ring_[*place].chunk;
        const Part& part = parts_[static_cast<size_t>(chunk.part)];
        put(*place, packer.pack(file_, part, chunk, memory_[*place], found));
      }
    } catch (...) {
      const std::lock_guard lock(mutex_);
      if (!failure_) failure_ = std::current_exception();
      moved_.notify_all();
    }
    const std::lock_guard lock(mutex_);
    found_ += found;
  }

  // After all have left.
  Extremes found() const {
    if (failure_) std::rethrow_exception(failure_);
    return found_;
  }

 private:
  struct Place {
    Chunk chunk;
    std::span<const uint8_t> packed;  // empty as long as it is not
  };

  // The place of a chunk that is now to be packed; nothing when there is none left, or a failure.
  std::optional<size_t> begin_next() {
    std::unique_lock lock(mutex_);
    moved_.wait(lock, [this] { return failure_ || begun_ - appended_ < ring_.size(); });
    const auto part = static_cast<size_t>(next_.part);
    if (failure_ || part == parts_.size()) return std::nullopt;
    const int32_t height = parts_[part].data.height;
    next_.rows = std::min(file_.chunk_rows(next_.part), height - next_.row);
    const size_t place = begun_++ % ring_.size();
    ring_[place] = {next_, {}};
    next_.row += next_.rows;
    if (next_.row == height) next_ = {next_.part + 1, 0, 0};
    return place;
  }

  void put(size_t place, std::span<const uint8_t> packed) {
    const std::lock_guard lock(mutex_);
    ring_[place].packed = packed;
    while (!failure_ && appended_ < begun_) {
      Place& first = ring_[appended_ % ring_.size()];
      if (first.packed.empty()) break;
      file_.append(first.chunk.part, first.chunk.row, first.packed);
      first.packed = {};
      ++appended_;
    }
    moved_.notify_all();
  }

  const std::span<const Part> parts_;
  File& file_;
  std::vector<Bytes>& memory_;  // of the places
  std::mutex mutex_;            // guards what follows, and the file
  std::condition_variable moved_;
  std::vector<Place> ring_;
  Chunk next_;
  size_t begun_ = 0, appended_ = 0;
  std::exception_ptr failure_;
  Extremes found_;
};

}  // namespace

Written write(std::span<const Part> parts, Packer& own, Crew& crew, Memory& memory) {
  // Growing would copy it again and again, and leave all these behind.
  size_t most = size_t{1} << 16;
  for (const Part& part : parts) most += row_bytes(part) * static_cast<size_t>(part.data.height);
  memory.content.reserve(most);
  // One that is being packed and one that waits for its turn, a thread.
  memory.chunks.resize(std::max(memory.chunks.size(), 2 * crew.threads()));
  File file(parts, memory.content);
  Assembly assembly(parts, file, memory.chunks);
  const double helped_ms = crew.share(assembly, own);
  return {assembly.found(), helped_ms};
}

}  // namespace host::writer::exr
