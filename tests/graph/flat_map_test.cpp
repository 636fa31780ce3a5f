#include <qv/graph/flat_map.h>
#include <qv/graph/record.h>

#include <memory>
#include <random>
#include <tuple>
#include <unordered_map>

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

}  // namespace
}  // namespace qv::graph
