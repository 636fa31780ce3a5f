#include "host/files/layer_queue.h"

#include "host/base/stopwatch.h"
#include "host/files/read_layers.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace host::files {

LayerQueue::LayerQueue(int threads) : threads_(threads) {
  try {
    for (int i = 0; i < threads; ++i) pool_.emplace_back([this] { work(); });
  } catch (...) {
    stop_and_join();
    throw;
  }
}

LayerQueue::~LayerQueue() {
  stop_and_join();
}

void LayerQueue::stop_and_join() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  work_cv_.notify_all();
  for (std::thread& thread : pool_) thread.join();
}

void LayerQueue::submit(std::shared_ptr<LayerJob> job) {
  {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(job));
  }
  work_cv_.notify_one();
}

void LayerQueue::set_distance(LayerJob& job, int distance) {
  const std::lock_guard lock(mutex_);
  job.distance = distance;
}

void LayerQueue::drop(const std::shared_ptr<LayerJob>& job) {
  const std::lock_guard lock(mutex_);
  waiting_.remove(job);
}

void LayerQueue::finish(const std::shared_ptr<LayerJob>& job) {
  std::unique_lock lock(mutex_);
  if (const auto place = std::find(waiting_.begin(), waiting_.end(), job); place != waiting_.end()) {
    waiting_.erase(place);
    lock.unlock();
    complete(job);
    return;
  }
  done_cv_.wait(lock, [&] { return job->done; });
}

void LayerQueue::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    work_cv_.wait(lock, [this] { return stop_ || !waiting_.empty(); });
    if (stop_) return;
    const auto nearest = std::min_element(waiting_.begin(), waiting_.end(), [](const auto& a, const auto& b) {
      return a->distance < b->distance;
    });
    const std::shared_ptr<LayerJob> job = *nearest;
    waiting_.erase(nearest);
    lock.unlock();
    complete(job);
    lock.lock();
  }
}

void LayerQueue::complete(const std::shared_ptr<LayerJob>& job) {
  read(*job);
  {
    const std::lock_guard lock(mutex_);
    job->done = true;
  }
  done_cv_.notify_all();
}

void LayerQueue::read(LayerJob& job) const {
  const Stopwatch watch(job.decode_ms);
  try {
    std::vector<Pixels> pixels = read_layers(job.path, job.layers, job.layered, threads_);
    for (size_t i = 0; i < pixels.size(); ++i) job.results[job.sources[i]] = std::move(pixels[i]);
  } catch (const std::bad_alloc&) {
    job.error = job.path + ": out of memory";
  } catch (const std::exception& error) {
    job.error = error.what();
  }
}

}  // namespace host::files
