#include <qv/graph/schedule.h>
#include <qv/graph/walk.h>

#include "tests/support/error.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <tuple>
#include <type_traits>
#include <utility>

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

// Every node looked at, every input read.
struct Plain {
  std::vector<std::vector<int>> inputs;
  std::vector<uint8_t> always, seeded, changed;
  std::vector<int64_t> values;
  std::vector<int> changed_list;

  int walk(const std::vector<int>& seeds, bool all, const Walk::Visit& visit) {
    const auto inside = [&](int i) { return i >= 0 && static_cast<size_t>(i) < values.size(); };
    for (const int seed : seeds)
      if (inside(seed)) seeded[static_cast<size_t>(seed)] = 1;
    changed.assign(values.size(), 0);
    changed_list.clear();
    int visited = 0;
    for (size_t i = 0; i < values.size(); ++i) {
      bool dirty = seeded[i];
      for (const int input : inputs[i]) dirty = dirty || changed[static_cast<size_t>(input)];
      if (!dirty && !always[i] && !all) continue;
      ++visited;
      const auto value = visit(static_cast<int>(i), dirty);
      if (!value || *value == values[i]) continue;
      values[i] = *value;
      changed[i] = 1;
      changed_list.push_back(static_cast<int>(i));
    }
    for (const int seed : seeds)
      if (inside(seed)) seeded[static_cast<size_t>(seed)] = 0;
    return visited;
  }
};

uint64_t mixed(uint64_t x) {
  x = (x ^ (x >> 31)) * 0x9e3779b97f4a7c15;
  return x ^ (x >> 29);
}

// One pass: every visit and how it ended. What a visit reports depends on the pass and the node
// alone; some flag a later node, some throw.
template <class Graph>
std::vector<std::pair<int, bool>> pass(Graph& graph, const std::vector<int>& seeds, bool all, uint64_t salt,
                                       uint64_t change_in_8, bool throws) {
  std::vector<std::pair<int, bool>> visits;
  try {
    const int visited = graph.walk(seeds, all, [&](int node, bool dirty) -> std::optional<int64_t> {
      visits.emplace_back(node, dirty);
      const uint64_t draw = mixed(salt + static_cast<uint64_t>(node));
      if (throws && draw % 37 == 0) throw std::runtime_error("visit");
      const auto later = static_cast<size_t>(node) + draw % 300;
      if (draw % 31 == 0 && later < graph.always.size()) graph.always[later] ^= 1;
      if (draw % 9 == 0) return std::nullopt;
      const int64_t value = graph.values[static_cast<size_t>(node)];
      return draw / 16 % 8 < change_in_8 ? value + 1 : value;
    });
    visits.emplace_back(visited, all);
  } catch (const std::runtime_error&) {
    visits.emplace_back(-1, all);
  }
  return visits;
}

TEST(Walk, AgreesWithPlainRecomputation) {
  std::mt19937_64 random(4);
  const auto below = [&](size_t n) { return random() % n; };
  Walk walk;
  for (int trial = 0; trial < 400; ++trial) {
    const size_t n = below(trial % 10 ? 400 : 30000), reach = 1 + below(n + 1);
    Plain plain{std::vector<std::vector<int>>(n), std::vector<uint8_t>(n),
                std::vector<uint8_t>(n),          {},
                std::vector<int64_t>(n),          {}};
    for (size_t i = 1; i < n; ++i)
      for (size_t k = below(4); k > 0; --k)
        plain.inputs[i].push_back(static_cast<int>(i - 1 - below(std::min(i, reach))));
    walk.build(plain.inputs, plain.always, plain.values);
    ASSERT_EQ(walk.size(), static_cast<int>(n));
    for (int round = 0; round < 12; ++round) {
      std::vector<int> seeds(below(5));
      for (int& seed : seeds) seed = static_cast<int>(below(n + 4)) - 2;
      if (n && below(2)) {  // the host writes between passes
        const size_t at = below(n);
        walk.always[at] = plain.always[at] = static_cast<uint8_t>(below(3));
        walk.values[at] = plain.values[at] = static_cast<int64_t>(below(9));
      }
      const bool all = below(8) == 0, throws = below(4) == 0;
      const uint64_t salt = random(), change_in_8 = below(9);
      const auto expected = pass(plain, seeds, all, salt, change_in_8, throws);
      ASSERT_EQ(pass(walk, seeds, all, salt, change_in_8, throws), expected) << trial << ' ' << round;
      ASSERT_EQ(walk.changed_list, plain.changed_list) << trial << ' ' << round;
      ASSERT_TRUE(walk.changed == plain.changed && walk.values == plain.values &&
                  walk.seeded == plain.seeded && walk.always == plain.always)
          << trial << ' ' << round;
    }
  }
}

TEST(Walk, RefusesWhatIsNoGraph) {
  Walk walk;
  EXPECT_EQ(walk.walk({0, -1}, true, nullptr), 0);
  const std::tuple<std::vector<std::vector<int>>, size_t, size_t, const char*> rows[] = {
      {{{}, {0}, {1, 0}}, 3, 3, ""},
      {{{}, {0}}, 3, 3, "graph.Walk.build: sizes differ"},
      {{{}, {0}}, 1, 2, "graph.Walk.build: sizes differ"},
      {{{-1}}, 1, 1, "graph.Walk.build: not upstream first"},
      {{{}, {1}}, 2, 2, "graph.Walk.build: not upstream first"},
      {{{1}, {}}, 2, 2, "graph.Walk.build: not upstream first"},
      {{{}, {0}, {9}}, 3, 3, "graph.Walk.build: not upstream first"},
      {{{}, {0}}, 2, 2, ""},
  };
  for (const auto& [inputs, flags, values, message] : rows) {
    const std::vector<int> before = walk.inputs;
    EXPECT_EQ(support::error_of<std::invalid_argument>([&, each = inputs, n = flags, m = values] {
                walk.build(each, std::vector<uint8_t>(n), std::vector<int64_t>(m));
              }),
              message);
    EXPECT_TRUE(flags == values || walk.inputs == before) << "something has changed";
    EXPECT_LE(walk.walk({0}, true, [](int, bool) { return 1; }), 3) << "half built, and walked all the same";
  }
  EXPECT_THROW(walk.walk({1}, false, nullptr), std::bad_function_call);
  EXPECT_EQ(walk.walk({0}, false, [](int, bool) { return 5; }), 2);
}

}  // namespace
}  // namespace qv::graph
