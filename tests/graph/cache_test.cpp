#include <qv/graph/flat_map.h>
#include <qv/graph/record.h>

#include "tests/graph/checks.h"
#include "tests/support/error.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace qv::graph {
namespace {

// Keys whose probing starts in the last four slots of a table of 64, so that runs wrap.
std::vector<int64_t> keys_at_the_end(size_t n) {
  std::vector<int64_t> keys;
  for (int64_t key = -1000; keys.size() < n; ++key)
    if ((FlatMap<int>::h(key) & 63) >= 60) keys.push_back(key);
  return keys;
}

TEST(FlatMap, AgreesWithATwinThroughRandomOperations) {
  std::mt19937_64 random(1);
  std::vector<int64_t> many(3000);
  for (auto& key : many) key = static_cast<int64_t>(random());
  for (const auto& keys : {keys_at_the_end(47), many}) {
    FlatMap<int> map;
    std::unordered_map<int64_t, int> twin;
    uint64_t capacity = 0;
    for (int step = 0; step < 20000; ++step) {
      const int64_t key = keys[random() % keys.size()];
      if (random() % 16 < (step / 2000 % 2 ? 6U : 10U)) {
        if ((twin.size() + 1) * 4 > capacity * 3) capacity = capacity ? capacity * 2 : 64;
        const auto [value, added] = map.insert(key);
        EXPECT_EQ(added, twin.emplace(key, 0).second);
        ASSERT_EQ(*value, twin[key]);
        *value = twin[key] = step;
      } else {
        ASSERT_EQ(map.erase(key), twin.erase(key) == 1);
      }
      const int64_t other = keys[random() % keys.size()];
      const auto found = twin.find(other);
      const int* const value = std::as_const(map).find(other);
      ASSERT_EQ(value != nullptr, found != twin.end());
      if (value) {
        ASSERT_EQ(*value, found->second);
      }
      ASSERT_TRUE(map.size() == twin.size() && map.capacity() == capacity);
      if (HasFailure()) FAIL() << "step " << step;
    }
    FlatMap<int> copy = map, moved = std::move(map);
    EXPECT_TRUE(copy.size() == twin.size() && moved.size() == twin.size() && !map.contains(keys[0]));
    moved.clear();
    EXPECT_TRUE(moved.capacity() == capacity && moved.size() == 0 && !moved.contains(keys[0]));
  }
}

TEST(FlatMap, KeepsNothingOfAnErasedValue) {
  const auto value = std::make_shared<int>();
  FlatMap<std::shared_ptr<int>> map;
  *map.insert(1).first = value;
  EXPECT_TRUE(map.erase(1) && value.use_count() == 1);
}

TEST(Record, HashesKindsAndTheWordsOfKindOne) {
  using Specs = std::vector<SlotSpec>;
  // The last: what the hash must run over.
  const std::tuple<const char*, Specs, std::vector<uint32_t>, std::vector<uint8_t>, std::vector<uint8_t>>
      rows[] = {
          {"no slots", {}, {7}, {}, {}},
          {"no components is one word", {{0, 1}}, {9, 0x04030201}, {1}, {1, 1, 2, 3, 4}},
          {"negative components is one word", {{-3, 0}}, {0xff}, {1}, {1, 0xff, 0, 0, 0}},
          {"other kinds give their kind only",
           {{1, 0}, {9, 9}, {2, 1}},
           {5, 6, 7},
           {0, 2, 1},
           {0, 2, 1, 6, 0, 0, 0, 7, 0, 0, 0}},
      };
  for (const auto& [name, specs, data, kinds, bytes] : rows) {
    uint64_t expected = 0x14650fb0739d0383;
    for (const uint8_t byte : bytes) expected = (expected ^ byte) * 0x100000001b3;
    const Record record{std::make_shared<const Specs>(specs), data, kinds};
    EXPECT_EQ(record.typed_hash(), expected) << name;
  }
  const Record bad[] = {{nullptr, {1}, {1}},
                        {std::make_shared<const Specs>(Specs{{1, 0}}), {1}, {1, 1}},
                        {std::make_shared<const Specs>(Specs{{2, 1}}), {1, 2}, {1}}};
  for (const Record& record : bad) EXPECT_THROW(record.typed_hash(), std::out_of_range);
}

using Holds = std::vector<std::pair<int64_t, int64_t>>;

// The same cache without an index, a link or a running total: both orders in one list, least recent first.
struct Twin {
  struct Item {
    CachePopped popped;
    Holds holds;
  };
  std::vector<Item> items;
  std::map<int64_t, int64_t> sizes;  // of every held buffer, as first registered
  std::set<int64_t> touched;
  bool touching = false;

  int holders(int64_t buffer, bool only_pinned) const {
    int count = 0;
    for (const Item& item : items)
      for (const auto& hold : item.holds) count += hold.first == buffer && item.popped.pinned >= only_pinned;
    return count;
  }
  int64_t held(bool pinned) const {
    int64_t total = 0;
    for (const auto& [buffer, size] : sizes)
      if ((holders(buffer, true) > 0) == pinned) total += size;
    return total;
  }
  std::vector<int64_t> listed(bool pinned, int64_t CachePopped::*what) const {
    std::vector<int64_t> result;
    for (const Item& item : items)
      if (item.popped.pinned == pinned) result.push_back(item.popped.*what);
    return result;
  }
  std::optional<Item> take(int64_t key) {
    const auto at = std::ranges::find(items, key, [](const Item& item) { return item.popped.key; });
    if (at == items.end()) return std::nullopt;
    const Item result = *at;
    items.erase(at);
    std::erase_if(sizes, [&](const auto& each) { return holders(each.first, false) == 0; });
    return result;
  }
  void give(Item item, bool pinned) {
    item.popped.pinned = pinned;
    for (const auto& [buffer, size] : item.holds) sizes.emplace(buffer, size);
    items.push_back(std::move(item));
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
    const auto at = std::ranges::find(items, key, [](const Item& item) { return item.popped.key; });
    if (at == items.end()) return -1;
    const int64_t slot = at->popped.slot;
    if (pin && !at->popped.pinned)
      move(key, true);
    else
      std::rotate(at, at + 1, items.end());
    return slot;
  }
  void end_touch(const std::vector<int64_t>& keys) {
    for (const int64_t key : keys) {
      if (std::ranges::count(listed(false, &CachePopped::key), key)) move(key, true);
      touched.insert(key);
    }
    for (const int64_t key : listed(true, &CachePopped::key))
      if (!touched.contains(key)) move(key, false);
    touching = false;
    touched.clear();
  }
  std::vector<CachePopped> evict(int64_t unpinned, int64_t pinned) {
    std::vector<CachePopped> result;
    for (const bool list : {false, true})
      for (const int64_t key : listed(list, &CachePopped::key))
        if (held(list) > (list ? pinned : unpinned)) result.push_back(take(key)->popped);
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
    if (HasFailure()) FAIL() << "step " << step << ", kind " << what;
    if (below(3) > 0) continue;  // what gets leave to be settled together
    auto slots = twin.listed(0, &CachePopped::slot);
    for (const int64_t slot : twin.listed(1, &CachePopped::slot)) slots.push_back(slot);
    EXPECT_EQ(cache.slots(), slots);
    for (const bool list : {false, true}) {
      const auto keys = twin.listed(list, &CachePopped::key);
      EXPECT_EQ(cache.keys(list), keys);
      EXPECT_EQ(cache.held(list), twin.held(list));
      EXPECT_EQ(cache.size(list), static_cast<int64_t>(keys.size()));
    }
    EXPECT_EQ(cache.in_unpinned(key), std::ranges::count(twin.listed(false, &CachePopped::key), key) == 1);
    EXPECT_EQ(cache.touching, twin.touching);
    ResultCacheCheck::holds(cache);
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
