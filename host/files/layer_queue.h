#pragma once

#include "host/files/sources.h"

#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace host::files {

// Several layers of one file, to be read together.
struct LayerJob {
  std::string path;
  std::vector<Source> sources;  // of this file
  std::vector<Layer> layers;    // one a source
  bool layered = true;          // read through the layer reader
  int distance = 0;             // the nearest goes first

  // Guarded by the queue until `done`.
  bool done = false;
  std::map<Source, Pixels> results;  // each is taken out once
  std::string error;
  double decode_ms = 0;
};

// Reads files of layers on threads of its own, nearest frame first: what the decode scheduler does
// for plain files. Owns the jobs while they wait; destruction drops those and ends those in hand.
// Thread-safe.
class LayerQueue {
 public:
  // threads: jobs at once, and threads for each.
  explicit LayerQueue(int threads);
  ~LayerQueue();
  LayerQueue(const LayerQueue&) = delete;
  LayerQueue& operator=(const LayerQueue&) = delete;

  void submit(std::shared_ptr<LayerJob> job);
  void set_distance(LayerJob& job, int distance);

  // Forgets a job that has not been started.
  void drop(const std::shared_ptr<LayerJob>& job);

  // Waits until the job is done; one that nobody has started is read on the calling thread.
  void finish(const std::shared_ptr<LayerJob>& job);

 private:
  void stop_and_join();
  void work();
  void read(LayerJob& job) const;
  void complete(const std::shared_ptr<LayerJob>& job);

  const int threads_;
  std::mutex mutex_;
  std::condition_variable work_cv_;
  std::condition_variable done_cv_;
  std::list<std::shared_ptr<LayerJob>> waiting_;
  bool stop_ = false;
  std::vector<std::thread> pool_;
};

}  // namespace host::files
