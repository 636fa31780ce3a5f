#include <qv/graph/schedule.h>
#include <qv/graph/walk.h>

#include "tests/support/error.h"

#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <type_traits>

#include <gtest/gtest.h>

namespace qv::graph {
namespace {

static_assert(!std::is_copy_constructible_v<ScheduleResult> && !std::is_move_assignable_v<ScheduleResult> &&
              std::is_move_constructible_v<ScheduleResult>);

constexpr uint8_t a = always_compute, s = skip_inputs, d = need_inputs;

TEST(Schedule, AgreesWithARecursiveModel) {
  std::mt19937_64 random(3);
  const auto below = [&](size_t n) { return static_cast<int>(random() % n); };
  for (int trial = 0; trial < 3000; ++trial) {
    const int n = below(14);
    std::vector<std::vector<int>> ups(static_cast<size_t>(n));
    std::vector<uint8_t> flags(static_cast<size_t>(below(static_cast<size_t>(n) + 3)));
    for (auto& flag : flags) flag = below(2) ? uint8_t(below(8)) : uint8_t{0};
    std::vector<int64_t> hashes;
    for (int i = 0; i < n; ++i) {
      for (int k = i ? below(4) : 0; k > 0; --k)
        ups[static_cast<size_t>(i)].push_back(below(static_cast<size_t>(i)));
      hashes.push_back(below(30));
    }
    ResultCache cache, twin;
    for (int64_t key = 0; key < 30; ++key)
      if (below(3) == 0)
        for (auto* each : {&cache, &twin}) each->put(key, key * 10, nullptr, 0, true, 0, key % 4 == 0);
    const bool pin = below(2);

    Schedule schedule;
    schedule.build(ups, flags);
    flags.resize(static_cast<size_t>(n));
    std::vector<uint8_t> need(flags.size()), compute(flags.size());
    std::vector<int64_t> cached(flags.size(), -1);
    std::vector<int> uses(flags.size()), order;
    const std::function<void(size_t)> request = [&](size_t i) {
      if (std::exchange(need[i], 1)) return;
      if (!(flags[i] & a) && twin.contains(hashes[i])) cached[i] = hashes[i] * 10;
      compute[i] = cached[i] < 0;
      const bool reads = (flags[i] & d) || (compute[i] && !(flags[i] & s));
      for (const int j : ups[i])
        if (reads) ++uses[static_cast<size_t>(j)], request(static_cast<size_t>(j));
    };
    if (n) request(static_cast<size_t>(n) - 1);
    for (int i = 0; i < n; ++i)
      if (need[static_cast<size_t>(i)]) order.push_back(i);
    for (int i = n - 1; i >= 0; --i)
      if (const auto at = static_cast<size_t>(i); need[at] && !(flags[at] & a)) twin.get(hashes[at], pin);

    const ScheduleResult result = schedule.run(hashes, cache, pin);
    ASSERT_EQ(result.order, order) << trial;
    ASSERT_EQ(result.compute, compute) << trial;
    ASSERT_EQ(result.cached, cached) << trial;
    ASSERT_EQ(result.uses, uses) << trial;
    ASSERT_TRUE(cache.keys(false) == twin.keys(false) && cache.keys(true) == twin.keys(true)) << trial;
    for (int i = 0; i < n; ++i) ASSERT_EQ(schedule.ups(i), ups[static_cast<size_t>(i)]);
    if (n && need[0] && !(flags[0] & a)) {
      EXPECT_THROW(schedule.run({}, cache, pin), std::out_of_range) << trial;
    }
  }
}

TEST(Schedule, NamesWhatIsMissing) {
  Schedule schedule;
  ResultCache cache;
  EXPECT_THROW(schedule.ups(0), std::out_of_range);
  schedule.build({{}, {0, 7, -4}, {1}}, {0, a, a});  // inputs outside the graph are never requested
  for (const int node : {-1, 3, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
    EXPECT_THROW(schedule.ups(node), std::out_of_range) << node;
  using support::error_of;
  EXPECT_EQ(error_of<std::out_of_range>([&] { schedule.run({}, cache, false); }), "invalid vector subscript");
  EXPECT_EQ(schedule.run({5}, cache, false).order, (std::vector<int>{0, 1, 2}));
}

TEST(Graph, AMillionNodesInAChainNeedNoStack) {
  constexpr int n = 1000000;
  std::vector<std::vector<int>> chain(n);
  for (int i = 1; i < n; ++i) chain[static_cast<size_t>(i)] = {i - 1};
  Schedule schedule;
  schedule.build(chain, {});
  ResultCache cache;
  EXPECT_EQ(schedule.run(std::vector<int64_t>(n), cache, true).order.size(), size_t{n});
  Walk walk;
  walk.build(std::move(chain), std::vector<uint8_t>(n), std::vector<int64_t>(n));
  EXPECT_EQ(walk.walk({0}, false, [](int node, bool) { return node + 1; }), n);
}

}  // namespace
}  // namespace qv::graph
