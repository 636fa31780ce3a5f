#include "tests/graph/checks.h"
#include "tests/support/error.h"

#include <algorithm>
#include <list>
#include <optional>
#include <random>
#include <stdexcept>

namespace qv::graph {
namespace {

using Holds = std::vector<std::pair<int64_t, int64_t>>;

// The same cache without an index, a link or a running total.
struct Twin {
  struct Item {
    CachePopped popped;
    Holds holds;
  };
  std::list<Item> orders[2];
  std::map<int64_t, int64_t> sizes;  // of every held buffer, as first registered
  std::set<int64_t> touched;
  bool touching = false;

  bool held_by(int list, int64_t buffer) const {
    return std::any_of(orders[list].begin(), orders[list].end(), [&](const Item& item) {
      return std::any_of(item.holds.begin(), item.holds.end(),
                         [&](auto& hold) { return hold.first == buffer; });
    });
  }
  int64_t held(int list) const {
    int64_t total = 0;
    for (const auto& [buffer, size] : sizes)
      if (held_by(1, buffer) == (list == 1)) total += size;
    return total;
  }
  std::vector<int64_t> listed(int list, int64_t CachePopped::*what) const {
    std::vector<int64_t> result;
    for (const Item& item : orders[list]) result.push_back(item.popped.*what);
    return result;
  }
  std::optional<Item> take(int64_t key) {
    for (auto& order : orders)
      for (auto item = order.begin(); item != order.end(); ++item) {
        if (item->popped.key != key) continue;
        Item result = *item;
        order.erase(item);
        std::erase_if(sizes, [&](auto& each) { return !held_by(0, each.first) && !held_by(1, each.first); });
        return result;
      }
    return std::nullopt;
  }
  void give(Item item, bool pinned) {
    item.popped.pinned = pinned;
    for (const auto& [buffer, size] : item.holds) sizes.emplace(buffer, size);
    orders[pinned].push_back(std::move(item));
  }
  int64_t put(int64_t key, int64_t slot, const Holds& holds, bool flag, double cost, bool pinned) {
    const auto old = take(key);
    give({{key, slot, flag, cost, pinned}, holds}, pinned);
    if (pinned && touching) touched.insert(key);
    return old ? old->popped.slot : -1;
  }
  void move(int64_t key, bool pinned) {
    if (auto item = take(key)) give(*item, pinned);
  }
  int64_t get(int64_t key, bool pin) {
    if (pin && touching) touched.insert(key);
    for (const int list : {0, 1})
      for (auto item = orders[list].begin(); item != orders[list].end(); ++item) {
        if (item->popped.key != key) continue;
        const int64_t slot = item->popped.slot;
        if (pin && list == 0)
          move(key, true);
        else
          orders[list].splice(orders[list].end(), orders[list], item);
        return slot;
      }
    return -1;
  }
  void end_touch(const std::vector<int64_t>& keys) {
    for (const int64_t key : keys) {
      if (std::ranges::count(listed(0, &CachePopped::key), key)) move(key, true);
      touched.insert(key);
    }
    for (const int64_t key : listed(1, &CachePopped::key))
      if (!touched.contains(key)) move(key, false);
    touching = false;
    touched.clear();
  }
  std::vector<CachePopped> evict(int64_t unpinned, int64_t pinned) {
    std::vector<CachePopped> result;
    for (const int list : {0, 1})
      while (held(list) > (list ? pinned : unpinned) && !orders[list].empty())
        result.push_back(take(orders[list].front().popped.key)->popped);
    return result;
  }
};

bool same(const CachePopped& a, const CachePopped& b) {
  return a.key == b.key && a.slot == b.slot && a.flag == b.flag && a.cost == b.cost && a.pinned == b.pinned;
}

TEST(ResultCache, AgreesWithATwinThroughRandomOperations) {
  std::mt19937_64 random(2);
  const auto below = [&](uint64_t n) { return static_cast<int64_t>(random() % n); };
  ResultCache cache;
  Twin twin;
  for (int step = 0; step < 20000; ++step) {
    const int64_t key = below(step < 10000 ? 40 : 8) - 20;  // few meet themselves within a touch cycle
    const bool pinned = below(2);
    const int64_t what = below(100);
    // So many cycles that the next ones bear the numbers of the last ones again.
    for (int i = 0; step % 400 == 399 && i < 65533; ++i) {
      cache.end_touch({});
      if (i < 2) twin.end_touch({});  // the first keeps what was touched, from the second on nothing changes
    }
    if (what < 40) {
      Holds holds(static_cast<size_t>(below(4)));
      for (auto& hold : holds) hold = {below(12), 1 + below(100)};
      const bool flag = below(2);
      EXPECT_EQ(cache.put(key, step, holds.data(), holds.size(), flag, step / 2.0, pinned),
                twin.put(key, step, holds, flag, step / 2.0, pinned));
    } else if (what < 65) {
      EXPECT_EQ(cache.get(key, pinned), twin.get(key, pinned));
    } else if (what < 75) {
      cache.move(key, pinned);
      twin.move(key, pinned);
    } else if (what < 80) {
      cache.touching = twin.touching = true;
    } else if (what < 85) {
      cache.touch(key);
      if (twin.touching) twin.touched.insert(key);
    } else if (what < 89) {
      const std::vector<int64_t> keys{key, below(20)};
      cache.end_touch(keys);
      twin.end_touch(keys);
    } else if (what < 94) {
      const int64_t budgets[2] = {below(600), below(600)};
      const auto ours = cache.evict(budgets[0], budgets[1]), theirs = twin.evict(budgets[0], budgets[1]);
      EXPECT_TRUE(std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(), same));
    } else if (what < 99 || step % 10) {
      CachePopped out;
      const auto theirs = twin.take(key);
      EXPECT_EQ(cache.pop1(key, out), theirs.has_value());
      EXPECT_TRUE(same(out, theirs ? theirs->popped : CachePopped{}));
    } else {
      cache.clear();
      twin = {};
    }
    auto slots = twin.listed(0, &CachePopped::slot);
    for (const int64_t slot : twin.listed(1, &CachePopped::slot)) slots.push_back(slot);
    EXPECT_EQ(cache.slots(), slots);
    for (const int list : {0, 1}) {
      const auto keys = twin.listed(list, &CachePopped::key);
      EXPECT_EQ(cache.keys(list), keys);
      EXPECT_EQ(cache.held(list), twin.held(list));
      EXPECT_EQ(cache.size(list), static_cast<int64_t>(keys.size()));
      if (list == 0) {
        EXPECT_EQ(cache.in_unpinned(key), std::ranges::count(keys, key) == 1);
      }
    }
    EXPECT_EQ(cache.touching, twin.touching);
    ResultCacheCheck::holds(cache);
    if (HasFailure()) FAIL() << "step " << step << ", kind " << what;
  }
}

TEST(ResultCache, RefusesWhatNoMemoryHolds) {
  using support::error_of;
  FlatMap<int> map;
  ResultCache cache;
  const auto reserve = [&] { map.reserve(uint64_t{1} << 60); };
  const auto put = [&] { cache.put(1, 1, nullptr, ~size_t{0}, true, 0, false); };
  EXPECT_EQ(error_of<std::length_error>(reserve), "vector too long");
  EXPECT_EQ(error_of<std::length_error>(put), "vector too long");
  EXPECT_TRUE(map.capacity() == 0 && !cache.contains(1));
}

}  // namespace
}  // namespace qv::graph
