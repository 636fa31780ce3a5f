#include "host/files/image_writer.h"

#include "host/files/atomic_file.h"
#include "host/files/encode.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace host::files {

namespace {

WriteResult write(const WriteJob& job) {
  WriteResult result{job.frame, job.file.path, {}, {}, 0, 0};
  const auto begin = std::chrono::steady_clock::now();
  try {
    const Encoded encoded = encode(job);
    result.encode_ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
    write_whole(job.file.path, encoded.content);
    result.bytes = encoded.content.size();
    if (!encoded.notice.empty()) result.notice = job.file.path + ": " + encoded.notice;
  } catch (const std::exception& failure) {
    result.error = job.file.path + ": " + failure.what();
  }
  return result;
}

}  // namespace

struct ImageWriter::State {
  const size_t limit;
  const std::function<void(const WriteResult&)> done;
  std::mutex mutex;  // guards what follows
  std::condition_variable changed;
  std::deque<WriteJob> queue;
  size_t held = 0;  // in the queue or being encoded
  bool stopping = false;
  std::mutex telling;  // one call of `done` at a time
  std::vector<std::thread> threads;

  State(size_t most, std::function<void(const WriteResult&)> tell) : limit(most), done(std::move(tell)) {}
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Ends the threads, be it only those that could be started.
  ~State() {
    {
      const std::lock_guard lock(mutex);
      stopping = true;
      changed.notify_all();
    }
    for (std::thread& thread : threads) thread.join();
  }

  void encode_jobs() {
    std::unique_lock lock(mutex);
    while (true) {
      changed.wait(lock, [this] { return stopping || !queue.empty(); });
      if (queue.empty()) return;
      WriteJob job = std::move(queue.front());
      queue.pop_front();
      lock.unlock();
      const WriteResult result = write(job);
      job = {};  // the pixels go before there is room for the next ones
      {
        const std::lock_guard one(telling);
        done(result);
      }
      lock.lock();
      --held;
      changed.notify_all();
    }
  }
};

ImageWriter::ImageWriter(int queue_limit, int threads, std::function<void(const WriteResult&)> done)
    : state_(std::make_unique<State>(static_cast<size_t>(std::max(1, queue_limit)), std::move(done))) {
  const int all = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
  const int count = std::clamp(threads > 0 ? threads : all, 1, std::max(1, queue_limit));
  for (int i = 0; i < count; ++i) state_->threads.emplace_back([this] { state_->encode_jobs(); });
}

ImageWriter::~ImageWriter() = default;

void ImageWriter::put(WriteJob job) {
  std::unique_lock lock(state_->mutex);
  state_->changed.wait(lock, [this] { return state_->held < state_->limit; });
  state_->queue.push_back(std::move(job));
  ++state_->held;
  state_->changed.notify_all();
}

void ImageWriter::finish() {
  std::unique_lock lock(state_->mutex);
  state_->changed.wait(lock, [this] { return state_->held == 0; });
}

}  // namespace host::files
