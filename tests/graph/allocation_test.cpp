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

using Script = std::vector<std::function<void(ResultCache&)>>;

// Takes 180 steps with the n-th allocation failing, for every n. The first `sure` actions of the
// script leave the cache as it was where they fail; all of them leave it whole, and succeed when they
// are tried again.
void run_with_failures(const Script& script, size_t sure, size_t& step) {
  const long before = live;
  bool failed = true;
  for (long n = 0; failed; ++n) {
    failed = false;
    long left = n;
    ResultCache cache;
    for (step = 0; step < 180; ++step) {
      const auto& action = script[step % script.size()];
      const State was = state(cache);
      try {
        allocations_left = left;
        action(cache);
        left = std::exchange(allocations_left, -1);
      } catch (const std::bad_alloc&) {
        failed = true;
        left = -1;
        ResultCacheCheck::holds(cache);
        if (step % script.size() < sure) {
          ASSERT_EQ(state(cache), was) << "step " << step;
        }
        action(cache);
      }
      ResultCacheCheck::holds(cache);
    }
  }
  EXPECT_EQ(live, before);
}

TEST(ResultCache, EveryAllocationMayFail) {
  size_t step = 0;
  const auto number = [&] { return static_cast<int64_t>(step); };
  const Script script = {
      [&](ResultCache& cache) {
        const std::pair<int64_t, int64_t> holds[] = {{step, 10}, {step / 2, 7}, {~step, 3}};
        cache.put(number() % 130, number(), holds, step % 4, true, 1, step % 3 == 0);
      },
      [&](ResultCache& cache) { cache.get(number() % 70, true); },
      [&](ResultCache& cache) { cache.move(number() % 50, step % 2 == 0); },
      [&](ResultCache& cache) { cache.touching = true; },
      [&](ResultCache& cache) { cache.touch(number()); },
      [&](ResultCache& cache) { cache.evict(step % 17 ? 300 : 60, 200); },
      [&](ResultCache& cache) {
        cache.end_touch({number() / 3, number() / 4, number() / 5});
      },
  };
  run_with_failures(script, 5, step);
}

TEST(FlatMap, EveryAllocationMayFail) {
  bool failed = true;
  for (long n = 0; failed; ++n) {
    failed = false;
    FlatMap<int> map;
    allocations_left = n;
    for (int key = 0; key < 1000; ++key) try {
        *map.insert(key).first = key;
      } catch (const std::bad_alloc&) {
        failed = true;
        EXPECT_EQ(map.size(), static_cast<uint64_t>(key--));
        FlatMapCheck::holds(map);
      }
    allocations_left = -1;
    FlatMapCheck::holds(map);
    EXPECT_EQ(map.size(), 1000U);
  }
}

TEST(ResultCache, RefusesWhatNoMemoryHolds) {
  FlatMap<int> map;
  ResultCache cache;
  const std::function<void()> calls[] = {[&] { map.reserve(uint64_t{1} << 60); },
                                         [&] { map.reserve(~uint64_t{0}); },
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
