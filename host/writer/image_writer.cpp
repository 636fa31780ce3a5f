#include "host/writer/image_writer.h"

#include "host/files/atomic_file.h"
#include "host/writer/encode.h"
#include "host/writer/exr/packer.h"
#include "host/writer/exr/write.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

namespace host::writer {

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

WriteResult write(WriteJob job, Encoder& encoder, exr::Packer& own, exr::Crew& crew) {
  WriteResult result{job.frame, job.file.path, {}, {}, 0, 0};
  const auto begin = Clock::now();
  try {
    const Encoded encoded = encoder.encode(job, own, crew);
    result.encode_ms = ms_since(begin) + encoded.helped_ms;
    job.rgba.reset();  // the disk may take its time
    files::write_whole(job.file.path, encoded.content);
    result.bytes = encoded.content.size();
    if (!encoded.notice.empty()) result.notice = job.file.path + ": " + encoded.notice;
  } catch (const std::bad_alloc&) {
    result.error = job.file.path + ": out of memory";
  } catch (const std::exception& failure) {
    result.error = job.file.path + ": " + failure.what();
  }
  return result;
}

// An encoder and what it holds.
struct Desk {
  Encoder encoder;
  Account account;

  explicit Desk(const MemoryUse& use) : account(use, Owner::encoders) {}
};

// A file's work that other threads may join.
struct Shared {
  exr::Work& work;
  int helpers = 0;
  double helped_ms = 0;
};

}  // namespace

struct ImageWriter::State final : exr::Crew {
  const size_t limit;
  const size_t count;  // of threads
  const std::function<void(const WriteResult&)> done;
  std::mutex mutex;  // guards what follows
  std::condition_variable changed;
  std::deque<WriteJob> queue;
  std::vector<Shared*> shared;               // the oldest first
  std::vector<std::unique_ptr<Desk>> desks;  // at rest; the last one has worked last
  size_t held = 0;                           // in the queue or being encoded
  bool stopping = false;
  std::mutex telling;  // one call of `done` at a time
  const MemoryUse use;
  std::vector<std::thread> members;

  State(size_t most, size_t threads, std::function<void(const WriteResult&)> tell, MemoryUse memory)
      : limit(most), count(threads), done(std::move(tell)), use(std::move(memory)) {
    shared.reserve(count);
    desks.reserve(count);
    for (size_t i = 0; i < count; ++i) desks.push_back(std::make_unique<Desk>(use));
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Ends the threads, be it only those that could be started.
  ~State() override {
    {
      const std::lock_guard lock(mutex);
      stopping = true;
      changed.notify_all();
    }
    for (std::thread& member : members) member.join();
  }

  size_t threads() const override {
    return count;
  }

  double share(exr::Work& work, exr::Packer& own) override {
    Shared here{work};
    {
      const std::lock_guard lock(mutex);
      shared.push_back(&here);
      changed.notify_all();
    }
    work.run(own);
    std::unique_lock lock(mutex);
    std::erase(shared, &here);
    changed.wait(lock, [&here] { return here.helpers == 0; });
    return here.helped_ms;
  }

  void help(std::unique_lock<std::mutex>& lock, Shared& with, exr::Packer& own) {
    ++with.helpers;
    lock.unlock();
    const auto begin = Clock::now();
    with.work.run(own);
    lock.lock();
    std::erase(shared, &with);  // nothing of it is left to begin
    with.helped_ms += ms_since(begin);
    --with.helpers;
    changed.notify_all();
  }

  void encode_next(std::unique_lock<std::mutex>& lock, exr::Packer& own) {
    WriteJob job = std::move(queue.front());
    queue.pop_front();
    std::unique_ptr<Desk> desk = std::move(desks.back());
    desks.pop_back();
    lock.unlock();
    const WriteResult result = write(std::move(job), desk->encoder, own, *this);
    desk->account.set(desk->encoder.bytes());
    {
      const std::lock_guard one(telling);
      done(result);
    }
    lock.lock();
    desks.push_back(std::move(desk));
    --held;
    changed.notify_all();
  }

  void serve() {
    exr::Packer own;
    Account account(use, Owner::encoders);
    std::unique_lock lock(mutex);
    for (;;) {
      account.set(own.bytes());
      changed.wait(lock, [this] { return stopping || !queue.empty() || !shared.empty(); });
      if (!shared.empty()) {
        help(lock, *shared.front(), own);
      } else if (!queue.empty()) {
        encode_next(lock, own);
      } else {
        return;
      }
    }
  }
};

ImageWriter::ImageWriter(int queue_limit, int threads, std::function<void(const WriteResult&)> done,
                         MemoryUse use) {
  const int limit = std::max(1, queue_limit);
  const int all = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
  const auto count = static_cast<size_t>(std::clamp(threads > 0 ? threads : all, 1, limit));
  state_ = std::make_unique<State>(static_cast<size_t>(limit), count, std::move(done), std::move(use));
  for (size_t i = 0; i < count; ++i) state_->members.emplace_back([this] { state_->serve(); });
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

}  // namespace host::writer
