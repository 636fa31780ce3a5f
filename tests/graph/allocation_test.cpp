#include "tests/graph/checks.h"
#include "tests/support/allocations.h"

#include <functional>
#include <tuple>

namespace qv::graph {
namespace {

using support::allocations;

// What a host could see of a cache.
using State = std::tuple<std::vector<int64_t>, std::vector<int64_t>, std::vector<int64_t>, int64_t, int64_t>;
State state(ResultCache& cache) {
  return {cache.keys(false), cache.keys(true), cache.slots(), cache.held(false), cache.held(true)};
}

// Takes 180 steps with the n-th allocation failing, for every n. A step that fails leaves the cache
// as it was and succeeds when it is tried again; get and move of what is cached, and end_touch, never fail.
TEST(ResultCache, EveryAllocationMayFail) {
  std::vector<int64_t> keys(3);
  const auto act = [&](ResultCache& cache, int64_t step) {
    const std::pair<int64_t, int64_t> holds[] = {{step, 10}, {step / 2, 7}, {~step, 3}};
    keys = {step / 3, step / 4, step / 5};
    if (step % 6 == 0)
      cache.put(step % 130, step, holds, static_cast<size_t>(step) % 4, true, 1, step % 3 == 0);
    if (step % 6 == 1) cache.get(step % 70, true);
    if (step % 6 == 2) cache.move(step % 50, step % 2 == 0);
    if (step % 6 == 3) cache.touch(step);
    if (step % 6 == 4) cache.evict(step % 17 ? 300 : 60, 200);
    if (step % 6 == 5) cache.end_touch(keys);
  };
  const int64_t before = allocations.live;
  bool failed = true;
  for (int64_t n = 0; failed; ++n) {
    failed = false;
    int64_t left = n;
    ResultCache cache;
    for (int64_t step = 0; step < 180; ++step) {
      cache.touching = true;
      const State was = state(cache);
      try {
        allocations.left = left;
        act(cache, step);
        left = std::exchange(allocations.left, -1);
      } catch (const std::bad_alloc&) {
        failed = true;
        left = -1;
        ResultCacheCheck::holds(cache);
        EXPECT_EQ(state(cache), was) << "step " << step;
        EXPECT_TRUE(step % 6 != 2 && step % 6 != 5 && (step % 6 != 1 || !cache.contains(step % 70)))
            << "step " << step;
        act(cache, step);
      }
      ResultCacheCheck::holds(cache);
    }
  }
  EXPECT_EQ(allocations.live, before);
}

// Every entry holds a buffer of its own, so that the table of buffers is as full at each number of entries
// as it ever gets; a shared one is not counted out before it is counted in again.
TEST(ResultCache, NeedsNoMemoryForWhatIsThere) {
  const std::vector<int64_t> used = {0, 1, -5};
  for (int64_t n = 1; n <= 200; ++n) {
    ResultCache cache;
    for (int64_t key = 0; key < n; ++key) {
      const std::pair<int64_t, int64_t> holds[] = {{key, 10}, {key / 2, 7}};
      cache.put(key, key, holds, 2, true, 1, false);
    }
    cache.touching = true;
    allocations.left = 0;
    try {
      for (int64_t key = 0; key < n; ++key) {
        cache.get(key, true);
        cache.move(key, key % 2 == 0);
        cache.touch(key);
      }
      cache.end_touch(used);
      allocations.left = -1;
    } catch (const std::bad_alloc&) {
      FAIL() << n << " entries";
    }
    ResultCacheCheck::holds(cache);
  }
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
