#pragma once

#include <qv/graph/result_cache.h>

#include <array>
#include <map>
#include <set>

#include <gtest/gtest.h>

namespace qv::graph {

// Follows both orders in both directions and counts every user of every buffer again.
struct ResultCacheCheck {
  static void holds(const ResultCache& cache) {
    std::set<int> seen(cache.free_.begin(), cache.free_.end());
    EXPECT_EQ(seen.size(), cache.free_.size());
    EXPECT_TRUE(cache.found_count_ == 0) << "order not settled";
    for (const int entry : cache.free_)
      EXPECT_TRUE(cache.at(entry).slot == -1 && cache.at(entry).holds.empty());
    std::map<int64_t, std::array<int, 2>> users;
    for (const int list : {0, 1}) {
      int before = -1;
      for (int i = cache.head_[list]; i >= 0; before = i, i = cache.at(i).next) {
        const auto& entry = cache.at(i);
        ASSERT_TRUE(seen.insert(i).second) << "entry " << i << " twice";
        EXPECT_TRUE(entry.prev == before && entry.list == list);
        const int* const indexed = cache.index_.find(entry.key);
        ASSERT_TRUE(indexed && *indexed == i);
        for (const auto& [buffer, size] : entry.holds) ++users[buffer][static_cast<size_t>(list)];
      }
      EXPECT_EQ(cache.tail_[list], before);
    }
    EXPECT_EQ(seen.size(), cache.entries_.size());
    EXPECT_EQ(static_cast<size_t>(cache.count_[0] + cache.count_[1]), cache.index_.size());
    int64_t held[2] = {0, 0};
    ASSERT_EQ(cache.refs_.size(), users.size());
    for (const auto& [buffer, counts] : users) {
      const auto* const ref = cache.refs_.find(buffer);
      ASSERT_TRUE(ref && ref->users[0] == counts[0] && ref->users[1] == counts[1]) << "buffer " << buffer;
      held[counts[1] ? 1 : 0] += ref->size;
    }
    EXPECT_TRUE(held[0] == cache.held_bytes_[0] && held[1] == cache.held_bytes_[1]);
  }
};

}  // namespace qv::graph
