#include <qv/graph/walk.h>

#include "tests/support/error.h"

#include <algorithm>
#include <random>
#include <stdexcept>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

namespace qv::graph {
namespace {

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
