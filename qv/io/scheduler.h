#pragma once

#include <qv/export.h>
#include <qv/io/decode.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace qv::io {

// Decodes image files in the background, most urgent first, on threads of its own: plain ones with
// decode_plain, any others with a function of the host's, all in one queue.
//
// A job moves through the DecodeStates queued, running, and what its decode says in the end. It
// leaves the scheduler when its result is taken, or when it is cancelled or cleared; its id is then
// unknown. The smaller a priority the more urgent, 0 at most; equal ones start in the order of
// submission. Threads of a second pool serve priority 0 alone, so that such a job waits behind no
// backlog. Owns its jobs; a result that was taken belongs to its taker for good.
// Thread-safe. Decoding holds no lock. submit and reprioritize cost O(log jobs), choosing the next
// job is O(1) however long the queue, waiting costs no processor time.
// A decode that fails is a state of its job, never a failure here. Every member may throw
// std::bad_alloc; the constructor also std::system_error, with no thread left behind.
class QV_API DecodeScheduler {
 public:
  // Starts max(1, workers) general threads and max(0, priority_workers) for priority 0 alone.
  // `threads` goes to every decode_plain.
  DecodeScheduler(int workers, int priority_workers, int threads);

  // Drops what is queued, lets waiting takes return empty, waits for the decodes in hand and joins
  // the threads. Other members may be waiting in take when this starts, but may not be called anew.
  ~DecodeScheduler();

  DecodeScheduler(const DecodeScheduler&) = delete;
  DecodeScheduler& operator=(const DecodeScheduler&) = delete;

  // Fills a DecodeResult on one of the threads, without any lock held. `threads` is the constructor's. It
  // sets a status of decode_done and beyond; what it leaves below counts as decode_other, and what it
  // throws as decode_failed with its text as the error. It may keep what the result has no room for in
  // what it captured, which is destroyed before the job ends.
  using Decode = std::function<void(int threads, DecodeResult& out)>;

  // Queues a file (`path` in UTF-8), or what a function decodes, and returns the job's id, counting
  // from 1. A priority below 0 counts as 0.
  int64_t submit(const std::string& path, int priority);
  int64_t submit(Decode decode, int priority);

  // The job's state, decode_unknown for an unknown id.
  int state(int64_t id) const;

  // Takes the result of a finished job out, waiting at most `timeout` seconds for it to finish: 0
  // or NaN not at all, a negative one without limit. Empty when the job is unknown, becomes so
  // while waiting, or is not finished in time.
  std::shared_ptr<DecodeResult> take(int64_t id, double timeout);

  // Forgets a job: once this has returned true no result of it is ever seen, though a decode in
  // hand runs to its end. False for an unknown id.
  bool cancel(int64_t id);

  // Moves a queued job to another priority, behind those submitted before it. Nothing for others.
  void reprioritize(int64_t id, int priority);

  // Cancels every job, finished ones included.
  void clear();

  int queued() const;   // jobs not yet started
  int running() const;  // decodes in hand, cancelled ones included

 private:
  struct Job;
  // The order of service: by priority, then by submission. Changing a queued job's priority
  // therefore means taking it out and putting it in again.
  struct MoreUrgent {
    bool operator()(const std::shared_ptr<Job>& a, const std::shared_ptr<Job>& b) const;
  };

  int64_t queue(std::shared_ptr<Job> job, int priority);
  void run(bool priority_only);
  static void decode_with(const Decode& decode, int threads, DecodeResult& out);
  void serve(Job& job);
  bool has_work(bool priority_only) const;
  std::shared_ptr<Job> pop(bool priority_only);
  void stop_and_join();

  const int32_t workers_;
  const int32_t threads_;
  mutable std::mutex mutex_;  // guards everything below
  std::condition_variable work_cv_;
  std::condition_variable done_cv_;
  std::set<std::shared_ptr<Job>, MoreUrgent> queue_;
  std::map<int64_t, std::shared_ptr<Job>> jobs_;
  int64_t next_id_ = 1;
  int32_t running_ = 0;
  bool stop_ = false;
  std::vector<std::thread> pool_;
  int takers_ = 0;  // calls inside take, for which destruction waits
};

}  // namespace qv::io
