#include "tests/graph/checks.h"

#include <cstdlib>
#include <functional>
#include <new>

namespace {

long allocations_left = -1;  // until one fails; negative: none does
long live = 0;

void* allocate(size_t size, size_t alignment) {
  if (allocations_left >= 0 && allocations_left-- == 0) throw std::bad_alloc();
  void* const memory = std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (!memory) throw std::bad_alloc();
  ++live;
  return memory;
}

void release(void* memory) noexcept {
  if (memory) --live;
  std::free(memory);
}

}  // namespace

void* operator new(size_t size) {
  return allocate(size, 16);
}
void* operator new(size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<size_t>(alignment));
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, size_t) noexcept {
  release(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  release(memory);
}
void operator delete(void* memory, size_t, std::align_val_t) noexcept {
  release(memory);
}

namespace qv::graph {
namespace {

// What a host could see of a cache.
using State = std::tuple<std::vector<int64_t>, std::vector<int64_t>, std::vector<int64_t>, int64_t, int64_t>;
State state(ResultCache& cache) {
  return {cache.keys(false), cache.keys(true), cache.slots(), cache.held(false), cache.held(true)};
}

// Takes 180 steps with the n-th allocation failing, for every n. A step that fails leaves the cache
// whole (all but evict and end_touch leave it as it was) and succeeds when it is tried again.
TEST(ResultCache, EveryAllocationMayFail) {
  const auto act = [](ResultCache& cache, int64_t step) {
    const std::pair<int64_t, int64_t> holds[] = {{step, 10}, {step / 2, 7}, {~step, 3}};
    if (step % 6 == 0)
      cache.put(step % 130, step, holds, static_cast<size_t>(step) % 4, true, 1, step % 3 == 0);
    if (step % 6 == 1) cache.get(step % 70, true);
    if (step % 6 == 2) cache.move(step % 50, step % 2 == 0);
    if (step % 6 == 3) cache.touch(step);
    if (step % 6 == 4) cache.evict(step % 17 ? 300 : 60, 200);
    if (step % 6 == 5) cache.end_touch({step / 3, step / 4, step / 5});
  };
  const long before = live;
  bool failed = true;
  for (long n = 0; failed; ++n) {
    failed = false;
    long left = n;
    ResultCache cache;
    for (int64_t step = 0; step < 180; ++step) {
      cache.touching = true;
      const State was = state(cache);
      try {
        allocations_left = left;
        act(cache, step);
        left = std::exchange(allocations_left, -1);
      } catch (const std::bad_alloc&) {
        failed = true;
        left = -1;
        ResultCacheCheck::holds(cache);
        EXPECT_TRUE(step % 6 > 3 || state(cache) == was) << "step " << step;
        act(cache, step);
      }
      ResultCacheCheck::holds(cache);
    }
  }
  EXPECT_EQ(live, before);
}

TEST(ResultCache, RefusesWhatNoMemoryHolds) {
  FlatMap<int> map;
  ResultCache cache;
  const std::function<void()> calls[] = {[&] { map.reserve(uint64_t{1} << 60); },
                                         [&] { cache.put(1, 1, nullptr, ~size_t{0}, true, 0, false); }};
  for (const auto& call : calls) try {
      call();
      FAIL();
    } catch (const std::length_error& error) {
      EXPECT_STREQ(error.what(), "vector too long");
    }
  EXPECT_TRUE(map.capacity() == 0 && !cache.contains(1));
}

}  // namespace
}  // namespace qv::graph
