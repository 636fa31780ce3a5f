#include <qv/io/scheduler.h>

#include "bench/io/benches.h"

#include <algorithm>
#include <chrono>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// What a job costs from its choice to its result, with so many less urgent ones in the queue.
double job_ns(const std::string& busy, int length) {
  qv::io::DecodeScheduler scheduler(1, 0, 1);
  // Jobs that fail at once, so that what is timed is the queue.
  const std::string missing = "/nonexistent/none.exr";
  scheduler.submit(busy, 0);
  for (int i = 0; i < length; ++i) scheduler.submit(missing, 1 + i % 8);
  constexpr int urgent = 2000;
  const int64_t first = scheduler.submit(missing, 0);
  int64_t last = first;
  for (int i = 1; i < urgent; ++i) last = scheduler.submit(missing, 0);
  scheduler.take(first, -1);
  const auto start = Clock::now();
  scheduler.take(last, -1);
  const double ns = seconds_since(start) / (urgent - 1) * 1e9;
  scheduler.clear();
  return ns;
}

// The longest of some urgent jobs' waits behind a backlog of slow ones, in decodes of such a job.
double urgent_wait(const std::string& slow, const std::string& tiny, double& one_decode) {
  qv::io::DecodeScheduler scheduler(1, 1, 1);
  const auto alone = Clock::now();
  scheduler.take(scheduler.submit(slow, 0), -1);
  one_decode = seconds_since(alone);
  for (int i = 0; i < 1000; ++i) scheduler.submit(slow, 1 + i % 5);
  double longest = 0;
  for (int i = 0; i < 20; ++i) {
    const auto start = Clock::now();
    scheduler.take(scheduler.submit(tiny, 0), -1);
    longest = std::max(longest, seconds_since(start));
  }
  scheduler.clear();
  return longest;
}

double jobs_a_second(const std::string& tiny, int jobs) {
  qv::io::DecodeScheduler scheduler(2, 0, 1);
  const auto start = Clock::now();
  std::vector<int64_t> ids;
  for (int i = 0; i < jobs; ++i) ids.push_back(scheduler.submit(tiny, i % 3));
  for (const int64_t id : ids) scheduler.take(id, -1);
  return jobs / seconds_since(start);
}

}  // namespace

void bench_scheduler(bench::Report& report) {
  const Folder folder;
  const std::string tiny = folder.image("none", 8, 8, 1), slow = folder.image("zip", 960, 540, 1);
  report.row("scheduler, tiny files through 2 workers", "jobs/s", bench::Better::more,
             jobs_a_second(tiny, report.quick() ? 2000 : 20000), {{"wanted", 10000}}, 1);
  double one_decode = 0;
  const double wait = urgent_wait(slow, tiny, one_decode);
  report.row("scheduler, urgent behind 1,000, longest wait", "ms", bench::Better::less, wait * 1e3,
             {{"one decode", one_decode * 1e3}}, 1);
  const double few = job_ns(slow, 100), many = job_ns(slow, 100000);
  report.row("scheduler, one job with 100,000 queued", "ns", bench::Better::less, many,
             {{"with 100 queued", few}}, 0.7);
}
