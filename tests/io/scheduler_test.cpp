#include <qv/io/scheduler.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using qv::io::DecodeScheduler;

// Decodes nothing: notes the path, waits while it is held, and puts it into the result.
struct Decoder {
  std::mutex mutex;
  std::condition_variable cv;
  std::vector<std::string> started;
  std::set<std::string> held = {};

  int64_t submit(DecodeScheduler& scheduler, const std::string& path, int priority) {
    const auto decode = [this, path](int, qv::io::DecodeResult& out) {
      std::unique_lock lock(mutex);
      started.push_back(path);
      cv.notify_all();
      cv.wait(lock, [&] { return held.count(path) == 0; });
      out.error = path;
      out.status = 4;
    };
    return scheduler.submit(decode, priority);
  }
  void let_go(const std::string& path) {
    const std::lock_guard lock(mutex);
    held.erase(path);
    cv.notify_all();
  }
  void wait_for(const std::string& path) {
    std::unique_lock lock(mutex);
    cv.wait(lock, [&] { return std::count(started.begin(), started.end(), path) > 0; });
  }
};

TEST(scheduler, takes_what_a_function_of_the_hosts_says_or_throws) {
  using namespace qv::io;
  DecodeScheduler scheduler(1, 1, 3);
  const auto missing = scheduler.take(scheduler.submit("/no/such/plate.exr", 0), -1);
  ASSERT_TRUE(missing && missing->status == decode_failed && !missing->error.empty());
  auto captured = std::make_shared<int>(7);
  const std::weak_ptr<int> kept = captured;
  auto whole = [held = std::move(captured)](int threads, DecodeResult& out) {
    out.status = decode_done;
    out.width = *held + threads;
  };
  const auto done = scheduler.take(scheduler.submit(std::move(whole), 0), -1);
  EXPECT_TRUE(done && done->status == decode_done && done->width == 10 && kept.expired());
  // What a function says and throws, and what comes of it.
  const std::tuple<int, std::exception_ptr, int, const char*> rows[] = {
      {decode_queued, nullptr, decode_other, ""},
      {decode_running, nullptr, decode_other, ""},
      {17, nullptr, 17, ""},
      {decode_done, std::make_exception_ptr(std::runtime_error("no plate")), decode_failed, "no plate"},
      {decode_done, std::make_exception_ptr(5), decode_failed, "the decode failed"}};
  for (const auto& [says, thrown, status, error] : rows) {
    const auto decode = [says = says, thrown = thrown](int, DecodeResult& out) {
      out.status = says;
      if (thrown) std::rethrow_exception(thrown);
    };
    const auto result = scheduler.take(scheduler.submit(decode, 0), -1);
    EXPECT_TRUE(result && result->status == status && result->error == error && result->width == 0)
        << status << error;
  }
}

// Random changes to a queue behind a busy worker, then the order of service, against scanning a list.
// The worker of the second round serves priority 0 alone.
TEST(scheduler, serves_in_the_order_of_a_scanned_list) {
  for (const bool priority_only : {false, true}) {
    std::mt19937 random(23);
    Decoder decoder;
    decoder.held = {"general", "urgent"};
    DecodeScheduler scheduler(-3, priority_only ? 1 : -1, 1);
    const int64_t general = decoder.submit(scheduler, "general", 3);
    decoder.wait_for("general");
    if (priority_only) decoder.submit(scheduler, "urgent", -5), decoder.wait_for("urgent");
    struct Queued {
      int64_t id;
      int priority;
    };
    std::vector<Queued> queue;
    int64_t last = general + priority_only;
    for (int step = 0; step < 3000; ++step) {
      const int priority = static_cast<int>(random() % 6) - 1;
      if (const auto what = random() % 4; what < 2 || queue.empty()) {
        ++last;
        queue.push_back({decoder.submit(scheduler, std::to_string(last), priority), std::max(0, priority)});
        ASSERT_EQ(queue.back().id, last);
      } else if (const auto at = queue.begin() + static_cast<long>(random() % queue.size()); what == 2) {
        scheduler.reprioritize(at->id, priority);
        at->priority = std::max(0, priority);
      } else {
        ASSERT_TRUE(scheduler.cancel(at->id) && !scheduler.cancel(at->id) && scheduler.state(at->id) == -1);
        queue.erase(at);
      }
      ASSERT_EQ(scheduler.queued(), static_cast<int>(queue.size()));
    }
    ASSERT_EQ(scheduler.running(), 1 + priority_only);
    ASSERT_EQ(scheduler.state(general), 1);
    ASSERT_EQ(scheduler.take(queue.front().id, 0), nullptr);
    std::stable_sort(queue.begin(), queue.end(), [](Queued a, Queued b) { return a.priority < b.priority; });
    if (priority_only) std::erase_if(queue, [](Queued job) { return job.priority > 0; });
    decoder.let_go(priority_only ? "urgent" : "general");
    for (const Queued& job : queue) {
      const auto result = scheduler.take(job.id, -1);
      ASSERT_TRUE(result && result->status == 4 && result->error == std::to_string(job.id));
      ASSERT_TRUE(!scheduler.take(job.id, -1) && scheduler.state(job.id) == -1);
    }
    std::vector<std::string> expected = {"general"};
    if (priority_only) expected.emplace_back("urgent");
    for (const Queued& job : queue) expected.push_back(std::to_string(job.id));
    EXPECT_EQ(decoder.started, expected);
    EXPECT_EQ(scheduler.take(general, priority_only ? NAN : 1e-9) == nullptr, priority_only);
    decoder.let_go("general");
  }
}

// True once a thread of this process sleeps in the kernel: a `take` that has begun to wait.
bool asleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return text.find(") S ") != std::string::npos;
}

// A job that is being decoded is forgotten in each way while somebody waits for it: the wait ends before
// the decode does, and nothing of it is published.
TEST(scheduler, forgetting_a_running_job_ends_the_wait_for_it) {
  for (const char* how : {"cancel", "clear", "destroy"}) {
    SCOPED_TRACE(how);
    Decoder decoder;
    decoder.held = {"held"};
    auto scheduler = std::make_unique<DecodeScheduler>(1, 0, 1);
    const int64_t held = decoder.submit(*scheduler, "held", 0);
    decoder.wait_for("held");
    std::atomic<pid_t> waiting = 0;
    std::thread waiter([&, taken_from = scheduler.get()] {
      waiting = gettid();
      EXPECT_EQ(taken_from->take(held, -1), nullptr);
    });
    while (waiting == 0 || !asleep(waiting)) std::this_thread::yield();
    std::thread forgetting([&] {
      if (*how == 'd') {
        decoder.submit(*scheduler, "dropped", 0);
        scheduler.reset();
      } else if (how[1] == 'l') {
        scheduler->clear();
      } else {
        EXPECT_TRUE(scheduler->cancel(held));
      }
    });
    waiter.join();
    decoder.let_go("held");
    forgetting.join();
    if (scheduler) {
      const auto next = scheduler->take(decoder.submit(*scheduler, "next", 0), -1);  // the worker has gone on
      EXPECT_TRUE(next && next->error == "next" && scheduler->state(held) == -1 &&
                  !scheduler->take(held, -1));
    }
    EXPECT_EQ(std::count(decoder.started.begin(), decoder.started.end(), "dropped"), 0);
  }
}

// What four threads saw of one scheduler's jobs.
struct Seen {
  std::mutex mutex;
  std::map<int64_t, std::string> submitted;
  std::set<int64_t> taken, cancelled;
};

void storm(DecodeScheduler& scheduler, Decoder& decoder, Seen& seen, unsigned seed, bool clears) {
  std::mt19937 random(seed);
  for (int step = 0; step < 400; ++step) {
    const int64_t id = static_cast<int64_t>(random() % 700) + 1;
    const auto what = random() % 10;
    if (what == 0) {
      scheduler.reprioritize(id, static_cast<int>(random() % 3));
    } else if (what == 1 && scheduler.cancel(id)) {
      const std::lock_guard lock(seen.mutex);
      EXPECT_TRUE(seen.cancelled.insert(id).second && seen.taken.count(id) == 0) << id;
    } else if (what == 2 && clears && step % 50 == 0) {
      scheduler.clear();
    } else if (what < 6) {
      EXPECT_TRUE(scheduler.state(id) >= -1 && scheduler.state(id) <= 4 && scheduler.queued() >= 0 &&
                  scheduler.running() <= 3);
      const auto result = scheduler.take(id, random() % 2 ? 0 : 1e-4);
      if (!result) continue;
      const std::lock_guard lock(seen.mutex);
      EXPECT_TRUE(seen.taken.insert(id).second && seen.cancelled.count(id) == 0) << id;
      const auto found = seen.submitted.find(id);
      EXPECT_TRUE(found == seen.submitted.end() || result->error == found->second) << id;
    } else {
      const std::string path = std::to_string(seed) + "/" + std::to_string(step);
      const int64_t submitted = decoder.submit(scheduler, path, static_cast<int>(random() % 3));
      const std::lock_guard lock(seen.mutex);
      EXPECT_TRUE(seen.submitted.emplace(submitted, path).second);
    }
  }
}

// Odd rounds clear now and then and end by destruction under load; even ones are accounted for.
TEST(scheduler, loses_and_doubles_nothing_in_a_storm) {
  for (unsigned round = 0; round < 60; ++round) {
    Decoder decoder;
    DecodeScheduler scheduler(2, 1, 1);
    Seen seen;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
      threads.emplace_back([&, i] { storm(scheduler, decoder, seen, round * 4 + i, round % 2 == 1); });
    for (std::thread& thread : threads) thread.join();
    if (round % 2 == 1) continue;
    for (const auto& [id, path] : seen.submitted) {
      const auto result = scheduler.take(id, -1);
      ASSERT_EQ(result != nullptr, seen.taken.count(id) + seen.cancelled.count(id) == 0)
          << id << " in round " << round;
      ASSERT_TRUE(!result || result->error == path) << id;
    }
    ASSERT_TRUE(scheduler.queued() == 0 && scheduler.state(1) == -1);
  }
}

}  // namespace
