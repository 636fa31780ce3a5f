#include <qv/io/decode.h>
#include <qv/io/layers.h>

#include "tests/io/files.h"

#include <atomic>
#include <functional>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

static std::atomic<int> started = 0;

// Every thread that is started passes here, whatever library starts it; the sanitizers have one of their own.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                              void* argument) {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto create = reinterpret_cast<Create>(::dlsym(RTLD_NEXT, "pthread_create"));
  ++started;
  return create(thread, attributes, run, argument);
}

namespace {

using namespace qv::io;

double cpu_seconds(int who) {
  rusage usage = {};
  ::getrusage(who, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

// A pool of OpenEXR's is there, ready and idle: what is handed to it would count as time that no thread of
// ours has taken.
TEST(threads, are_as_many_as_the_number_given_with_no_pool_behind_them) {
  OIIO::attribute("exr_threads", 3);
  const Kind kind = {"zip.exr", "zip", {"R", "G", "B", "A"}, {OIIO::TypeHalf}};
  const std::string path = make(support::new_folder(), kind, 1500, 1500);
  const auto decode = [&](int number) {
    DecodeResult result;
    decode_plain(path, number, result);
    ASSERT_EQ(result.status, 2);
  };
  const auto load = [&](int number) {
    std::vector<float> out(size_t{1500} * 1500 * 4);
    std::string err;
    ASSERT_TRUE(load_layers(path, {{0, 0, 4, 0, 0, 1500, 1500}},
                            {{Slot{0, 0, 0}, Slot{0, 1, 0}, Slot{0, 2, 0}, {}}}, 1500, 1500, number,
                            {out.data()}, err, nullptr));
  };
  decode(1);
  for (const int number : {1, 2, 3})
    for (const auto& read : {std::function<void(int)>(decode), std::function<void(int)>(load)}) {
      const double others = cpu_seconds(RUSAGE_SELF) - cpu_seconds(RUSAGE_THREAD),
                   own = cpu_seconds(RUSAGE_THREAD);
      started = 0;
      read(number);
      EXPECT_EQ(started, number - 1);
      const double of_others = cpu_seconds(RUSAGE_SELF) - cpu_seconds(RUSAGE_THREAD) - others;
      EXPECT_TRUE(number > 1 || of_others < (cpu_seconds(RUSAGE_THREAD) - own) / 4) << of_others;
    }
}

}  // namespace
