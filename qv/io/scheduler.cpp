#include <qv/io/scheduler.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

namespace qv::io {

struct DecodeScheduler::Job {
  int64_t id = 0;
  int32_t priority = 0;
  std::string path;  // decoded as a plain file where there is no function
  Decode decode;
  bool cancelled = false;
  bool awaited = false;  // by a take, now or before: the only jobs whose end wakes anybody
  std::shared_ptr<DecodeResult> result = std::make_shared<DecodeResult>();
};

bool DecodeScheduler::MoreUrgent::operator()(const std::shared_ptr<Job>& a,
                                             const std::shared_ptr<Job>& b) const {
  return std::pair(a->priority, a->id) < std::pair(b->priority, b->id);
}

DecodeScheduler::DecodeScheduler(int workers, int priority_workers, int threads)
    : workers_(std::max(1, workers)), threads_(threads) {
  try {
    for (int i = 0; i < workers_; ++i) pool_.emplace_back([this] { run(false); });
    for (int i = 0; i < priority_workers; ++i) pool_.emplace_back([this] { run(true); });
  } catch (...) {
    stop_and_join();
    throw;
  }
}

DecodeScheduler::~DecodeScheduler() {
  stop_and_join();
}

void DecodeScheduler::stop_and_join() {
  {
    std::unique_lock lock(mutex_);
    stop_ = true;
    queue_.clear();
    work_cv_.notify_all();
    done_cv_.notify_all();
    done_cv_.wait(lock, [this] { return takers_ == 0; });
  }
  for (std::thread& thread : pool_) thread.join();
}

int64_t DecodeScheduler::submit(const std::string& path, int priority) {
  auto job = std::make_shared<Job>();
  job->path = path;
  return queue(std::move(job), priority);
}

int64_t DecodeScheduler::submit(Decode decode, int priority) {
  auto job = std::make_shared<Job>();
  job->decode = std::move(decode);
  return queue(std::move(job), priority);
}

int64_t DecodeScheduler::queue(std::shared_ptr<Job> job, int priority) {
  job->priority = std::max(0, priority);
  // The nodes are made beforehand, so that nothing can fail once one of the containers has the job.
  decltype(queue_) queued = {job};
  decltype(jobs_) known = {{0, job}};
  auto queued_node = queued.extract(queued.begin());
  auto known_node = known.extract(known.begin());
  {
    const std::lock_guard lock(mutex_);
    known_node.key() = job->id = next_id_++;
    jobs_.insert(jobs_.end(), std::move(known_node));
    queue_.insert(std::move(queued_node));
  }
  work_cv_.notify_all();
  return job->id;
}

int DecodeScheduler::state(int64_t id) const {
  const std::lock_guard lock(mutex_);
  const auto found = jobs_.find(id);
  return found == jobs_.end() ? int{decode_unknown} : found->second->result->status;
}

std::shared_ptr<DecodeResult> DecodeScheduler::take(int64_t id, double timeout) {
  // Beyond what the clock can count a wait is without end for all purposes.
  constexpr double longest = 1e9;
  std::unique_lock lock(mutex_);
  const auto settled = [&] {
    const auto found = jobs_.find(id);
    return stop_ || found == jobs_.end() || found->second->result->status >= decode_done;
  };
  ++takers_;
  if (const auto found = jobs_.find(id); found != jobs_.end()) found->second->awaited = true;
  if (timeout < 0) {
    done_cv_.wait(lock, settled);
  } else if (timeout > 0) {
    const std::chrono::duration<double> limit(std::min(timeout, longest));
    done_cv_.wait_for(lock, std::chrono::duration_cast<std::chrono::nanoseconds>(limit), settled);
  }
  if (--takers_ == 0 && stop_) done_cv_.notify_all();
  const auto found = jobs_.find(id);
  if (found == jobs_.end() || found->second->result->status < decode_done) return nullptr;
  std::shared_ptr<DecodeResult> result = std::move(found->second->result);
  jobs_.erase(found);
  return result;
}

bool DecodeScheduler::cancel(int64_t id) {
  std::shared_ptr<Job> dropped;  // its pixels are freed after the lock, as are those below
  {
    const std::lock_guard lock(mutex_);
    const auto found = jobs_.find(id);
    if (found == jobs_.end()) return false;
    dropped = found->second;
    dropped->cancelled = true;
    queue_.erase(dropped);
    jobs_.erase(found);
  }
  done_cv_.notify_all();
  return true;
}

void DecodeScheduler::reprioritize(int64_t id, int priority) {
  {
    const std::lock_guard lock(mutex_);
    const auto found = jobs_.find(id);
    if (found == jobs_.end()) return;
    // The queue's node is moved, not freed and made again, so that nothing here can fail.
    auto node = queue_.extract(found->second);
    found->second->priority = std::max(0, priority);
    if (node) queue_.insert(std::move(node));
  }
  work_cv_.notify_all();
}

void DecodeScheduler::clear() {
  decltype(jobs_) dropped;
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [id, job] : jobs_) job->cancelled = true;
    queue_.clear();
    dropped.swap(jobs_);
  }
  done_cv_.notify_all();
}

int DecodeScheduler::queued() const {
  const std::lock_guard lock(mutex_);
  return static_cast<int>(queue_.size());
}

int DecodeScheduler::running() const {
  const std::lock_guard lock(mutex_);
  return running_;
}

bool DecodeScheduler::has_work(bool priority_only) const {
  return !queue_.empty() && (!priority_only || (*queue_.begin())->priority == 0);
}

std::shared_ptr<DecodeScheduler::Job> DecodeScheduler::pop(bool priority_only) {
  if (!has_work(priority_only)) return nullptr;
  return std::move(queue_.extract(queue_.begin()).value());
}

void DecodeScheduler::run(bool priority_only) {
  while (true) {
    std::shared_ptr<Job> job;
    {
      std::unique_lock lock(mutex_);
      work_cv_.wait(lock, [&] { return stop_ || has_work(priority_only); });
      if (stop_) return;
      job = pop(priority_only);
      job->result->status = decode_running;
      ++running_;
    }
    serve(*job);
  }
}

// Runs a function of the host's.
void DecodeScheduler::decode_with(const Decode& decode, int threads, DecodeResult& out) {
  try {
    decode(threads, out);
    if (out.status < decode_done) out.status = decode_other;
  } catch (const std::exception& failure) {
    out = {};
    out.status = decode_failed;
    out.error = failure.what();
  } catch (...) {
    out = {};
    out.status = decode_failed;
    out.error = "the decode failed";
  }
}

void DecodeScheduler::serve(Job& job) {
  DecodeResult result;
  if (job.decode) {
    const Decode decode = std::exchange(job.decode, nullptr);  // gone before the job ends
    decode_with(decode, threads_, result);
  } else {
    decode_plain(job.path, threads_, result);
  }
  bool awaited = false;
  {
    const std::lock_guard lock(mutex_);
    --running_;
    // Whoever sees the status sees the rest: all of it is read under the mutex.
    if (!job.cancelled) *job.result = std::move(result);
    awaited = job.awaited;
  }
  if (awaited) done_cv_.notify_all();
}

}  // namespace qv::io
