#include <qv/io/scheduler.h>

#include "python/bindings/arrays.h"
#include "python/bindings/core.h"
#include "python/bindings/pixels.h"

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include <pybind11/stl.h>
#include <unistd.h>

namespace bindings {

namespace py = pybind11;
using namespace py::literals;

namespace {

// What the workers have finished and nobody has fetched. It outlives the scheduler, for workers and for
// whoever waits in next().
struct Finished {
  struct Job {
    int64_t id = 0;
    std::string path;
    Pixels pixels;
  };
  std::mutex mutex;
  std::condition_variable arrived;
  std::list<Job> jobs;
  bool closed = false;
};

// A DecodeScheduler whose jobs come back in the order in which they finish. The workers take no lock of
// the interpreter's and touch no object of its, so that any thread may close it.
class DecodeQueue {
 public:
  DecodeQueue(int workers, int priority_workers, int threads)
      : scheduler_(std::make_unique<qv::io::DecodeScheduler>(workers, priority_workers, threads)) {}
  DecodeQueue(const DecodeQueue&) = delete;
  DecodeQueue& operator=(const DecodeQueue&) = delete;
  ~DecodeQueue() {
    PyThreadState* const locked = PyEval_SaveThread();  // which, unlike pybind11's own, cannot throw
    close();
    PyEval_RestoreThread(locked);
  }

  int64_t submit(const Path& path, int priority) {
    // A list of its own first, so that a job that has finished cannot fail to be handed over.
    const auto job = std::make_shared<std::list<Finished::Job>>(1);
    job->front().path = path.bytes;
    auto decode = [finished = finished_, job](int threads, qv::io::DecodeResult& out) {
      try {
        job->front().pixels = read_pixels(job->front().path, threads);
      } catch (const std::exception& failure) {
        job->front().pixels.error = failure.what();
      }
      out.status = qv::io::decode_done;
      const std::lock_guard lock(finished->mutex);
      if (!finished->closed) finished->jobs.splice(finished->jobs.end(), *job);
      finished->arrived.notify_one();
    };
    const auto held = scheduler();
    // The number is there before the job can say that it has finished.
    const std::lock_guard lock(finished_->mutex);
    return job->front().id = held->submit(std::move(decode), priority);
  }

  // The next finished job, waiting for one; nothing once closed.
  std::optional<Finished::Job> next() {
    if (forked()) return std::nullopt;
    std::unique_lock lock(finished_->mutex);
    finished_->arrived.wait(lock, [&] { return finished_->closed || !finished_->jobs.empty(); });
    if (finished_->jobs.empty()) return std::nullopt;
    Finished::Job job = std::move(finished_->jobs.front());
    finished_->jobs.pop_front();
    lock.unlock();
    cancel(job.id);  // what is left of it
    return job;
  }

  bool cancel(int64_t id) {
    const auto held = open();
    return held && held->cancel(id);
  }
  void reprioritize(int64_t id, int priority) {
    if (const auto held = open()) held->reprioritize(id, priority);
  }
  int queued() const {
    const auto held = open();
    return held ? held->queued() : 0;
  }
  int running() const {
    const auto held = open();
    return held ? held->running() : 0;
  }

  // Drops what is queued, waits for the decodes in hand, ends the threads, and lets next() return.
  void close() {
    if (forked()) return leave();
    std::shared_ptr<qv::io::DecodeScheduler> last;
    {
      const std::lock_guard lock(finished_->mutex);
      last.swap(scheduler_);
      finished_->closed = true;
      finished_->jobs.clear();
    }
    last.reset();
    finished_->arrived.notify_all();
  }

 private:
  // Whether this is another process than the one whose threads work here: it has neither them nor, maybe,
  // the mutexes as they should be.
  bool forked() const {
    return getpid() != process_;
  }
  void leave() {
    [[maybe_unused]] static const std::shared_ptr<qv::io::DecodeScheduler>* left = nullptr;  // for ever
    left = new std::shared_ptr<qv::io::DecodeScheduler>(std::move(scheduler_));
  }
  std::shared_ptr<qv::io::DecodeScheduler> open() const {
    if (forked()) return nullptr;
    const std::lock_guard lock(finished_->mutex);
    return scheduler_;
  }
  std::shared_ptr<qv::io::DecodeScheduler> scheduler() const {
    if (auto held = open()) return held;
    throw std::runtime_error(forked() ? "decode scheduler: made before this process was forked"
                                      : "decode scheduler: closed");
  }

  const pid_t process_ = getpid();
  std::shared_ptr<Finished> finished_ = std::make_shared<Finished>();
  std::shared_ptr<qv::io::DecodeScheduler> scheduler_;
};

using Result = std::tuple<int64_t, std::optional<Array<float>>, std::optional<Exception>>;

// A finished job as its id and the array, or the exception that it ended with.
std::optional<Result> next(DecodeQueue& queue) {
  std::optional<Finished::Job> job;
  {
    const py::gil_scoped_release unlocked;
    job = queue.next();
  }
  if (!job) return std::nullopt;
  if (job->pixels.error.empty()) return Result(job->id, array_of(job->pixels), std::nullopt);
  try {
    throw_unreadable(job->path, job->pixels.error);
  } catch (py::error_already_set& error) {
    return Result(job->id, std::nullopt, Exception{error.value()});
  }
}

}  // namespace

void add_decoder(py::module_& core) {
  using Unlocked = py::call_guard<py::gil_scoped_release>;
  py::class_<DecodeQueue>(core, "DecodeQueue",
                          "What DecodeScheduler works with: jobs by number, in the order in which they end.")
      .def(py::init<int, int, int>(), "workers"_a, "priority_workers"_a, "threads"_a, Unlocked())
      .def("submit", &DecodeQueue::submit, "path"_a, "priority"_a, Unlocked())
      .def("next", &next,
           "The next finished job, waiting for one: its number, its image or its error. None once closed.")
      .def("cancel", &DecodeQueue::cancel, "id"_a, Unlocked())
      .def("reprioritize", &DecodeQueue::reprioritize, "id"_a, "priority"_a, Unlocked())
      .def("queued", &DecodeQueue::queued, Unlocked())
      .def("running", &DecodeQueue::running, Unlocked())
      .def("close", &DecodeQueue::close, Unlocked());
}

}  // namespace bindings
