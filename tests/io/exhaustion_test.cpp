#include <qv/io/scheduler.h>

#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

namespace {

thread_local long allocations_left = -1;  // until one fails; negative: none does

// Out of line: g++ takes what it sees of it for a mismatch.
[[gnu::noinline]] void release(void* memory) noexcept {
  std::free(memory);
}

}  // namespace

void* operator new(size_t size) {
  if (allocations_left >= 0 && allocations_left-- == 0) throw std::bad_alloc();
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, size_t) noexcept {
  release(memory);
}

// Whichever allocation fails, no trace of the job is left, not even its number.
TEST(scheduler, a_submission_that_fails_has_not_happened) {
  qv::io::DecodeScheduler scheduler(1, 0, 1);
  int64_t id = 0;
  for (long fails = 0; id == 0; ++fails) {
    const std::string path = "/dev/null as a path that is too long for a string's own room";
    allocations_left = fails;
    try {
      id = scheduler.submit(path, 0);
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(scheduler.queued() == 0 && scheduler.state(1) == -1) << fails;
    }
    allocations_left = -1;
  }
  EXPECT_EQ(id, 1);
  EXPECT_TRUE(scheduler.take(id, -1));
}
