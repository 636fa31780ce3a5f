#include <qv/io/scheduler.h>

#include "bench/io/benches.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include <OpenImageIO/imageio.h>

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// What a job costs from its choice to its result, with so many less urgent ones in the queue. A
// device is refused before anything is opened, so that what is timed is the queue.
double job_ns(const std::string& busy, int length) {
  qv::io::DecodeScheduler scheduler(1, 0, 1);
  const std::string refused = "/dev/null";
  scheduler.submit(busy, 0);
  for (int i = 0; i < length; ++i) scheduler.submit(refused, 1 + i % 8);
  constexpr int urgent = 20000;
  const int64_t first = scheduler.submit(refused, 0);
  int64_t last = first;
  for (int i = 1; i < urgent; ++i) last = scheduler.submit(refused, 0);
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

// The same files without a queue: two threads that only open, read and close.
double reads_a_second(const std::string& tiny, int reads) {
  const auto read = [&] {
    for (int i = 0; i < reads / 2; ++i) {
      OIIO::ImageSpec config(OIIO::TypeUnknown);
      config.attribute("oiio:threads", 1);
      const auto input = OIIO::ImageInput::open(tiny, &config);
      std::vector<float> pixels(8 * 8 * 4);
      input->read_image(0, 0, 0, 4, OIIO::TypeFloat, pixels.data());
    }
  };
  const auto start = Clock::now();
  std::thread other(read);
  read();
  other.join();
  return reads / seconds_since(start);
}

}  // namespace

void bench_scheduler(bench::Report& report) {
  const Folder folder;
  const std::string tiny = folder.image("zip", 8, 8, 1), slow = folder.image("zip", 960, 540, 1);
  const int jobs = report.quick() ? 2000 : 10000;
  double queued = 0, plain = 0;
  for (int round = 0; round < 3; ++round) {
    queued = std::max(queued, jobs_a_second(tiny, jobs));
    plain = std::max(plain, reads_a_second(tiny, jobs));
  }
  report.row("scheduler, tiny files through 2 workers", "jobs/s", bench::Better::more, queued,
             {{"wanted", 10000}}, 1);
  report.row("scheduler, tiny files, to bare reading", "jobs/s", bench::Better::more, queued,
             {{"2 threads of read_image", plain}});
  double one_decode = 0;
  const double wait = urgent_wait(slow, tiny, one_decode);
  report.row("scheduler, urgent behind 1,000, longest wait", "ms", bench::Better::less, wait * 1e3,
             {{"one decode", one_decode * 1e3}}, 1);
  const double few = job_ns(slow, 100), many = job_ns(slow, 100000);
  report.row("scheduler, one job with 100,000 queued", "ns", bench::Better::less, many,
             {{"with 100 queued", few}}, 0.7);
}
