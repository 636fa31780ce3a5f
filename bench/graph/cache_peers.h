#pragma once

#include <cstdint>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/sequenced_index.hpp>
#include <boost/multi_index_container.hpp>

// The two ways to write the result cache without writing a container: the same two orders, the same
// byte totals with every shared buffer counted once.
namespace bench::graph {

using Holds = std::vector<std::pair<int64_t, int64_t>>;

struct Item {
  int64_t key, slot;
  double cost;
  bool flag, pinned;
  Holds holds;
};

// The byte totals, which both peers keep alike.
class Account {
 public:
  void hold(const Holds& holds, bool pinned, int delta) {
    for (const auto& [buffer, size] : holds) {
      const auto found = refs_.try_emplace(buffer, Ref{size, {0, 0}}).first;
      Ref& ref = found->second;
      if (const int before = total_of(ref)) held_[before - 1] -= ref.size;
      ref.users[pinned] += delta;
      if (const int after = total_of(ref))
        held_[after - 1] += ref.size;
      else
        refs_.erase(found);
    }
  }
  int64_t held(bool pinned) const {
    return held_[pinned];
  }
  void clear() {
    refs_.clear();
    held_[0] = held_[1] = 0;
  }

 private:
  struct Ref {
    int64_t size;
    int users[2];
  };
  static int total_of(const Ref& ref) {
    return ref.users[1] ? 2 : ref.users[0] ? 1 : 0;
  }
  std::unordered_map<int64_t, Ref> refs_;
  int64_t held_[2] = {0, 0};
};

class ListCache {
 public:
  int64_t put(int64_t key, int64_t slot, const Holds& holds, bool flag, double cost, bool pinned) {
    const auto [found, added] = index_.try_emplace(key);
    const int64_t previous = added ? -1 : found->second->slot;
    if (!added) release(found->second);
    found->second = orders_[pinned].insert(orders_[pinned].end(), {key, slot, cost, flag, pinned, holds});
    account_.hold(holds, pinned, 1);
    return previous;
  }
  int64_t get(int64_t key) {
    const auto found = index_.find(key);
    if (found == index_.end()) return -1;
    auto& order = orders_[found->second->pinned];
    order.splice(order.end(), order, found->second);
    return found->second->slot;
  }
  std::vector<int64_t> evict(int64_t budget) {
    std::vector<int64_t> slots;
    while (account_.held(false) > budget && !orders_[0].empty()) {
      slots.push_back(orders_[0].front().slot);
      index_.erase(orders_[0].front().key);
      release(orders_[0].begin());
    }
    return slots;
  }
  int64_t held() const {
    return account_.held(false);
  }
  void clear() {
    for (auto& order : orders_) order.clear();
    index_.clear();
    account_.clear();
  }

 private:
  void release(std::list<Item>::iterator item) {
    account_.hold(item->holds, item->pinned, -1);
    orders_[item->pinned].erase(item);
  }
  std::list<Item> orders_[2];
  std::unordered_map<int64_t, std::list<Item>::iterator> index_;
  Account account_;
};

class MultiIndexCache {
 public:
  int64_t put(int64_t key, int64_t slot, const Holds& holds, bool flag, double cost, bool pinned) {
    int64_t previous = -1;
    for (Order& order : orders_)
      if (const auto found = order.get<1>().find(key); found != order.get<1>().end()) {
        previous = found->slot;
        account_.hold(found->holds, found->pinned, -1);
        order.get<1>().erase(found);
      }
    orders_[pinned].push_back({key, slot, cost, flag, pinned, holds});
    account_.hold(holds, pinned, 1);
    return previous;
  }
  int64_t get(int64_t key) {
    for (Order& order : orders_)
      if (const auto found = order.get<1>().find(key); found != order.get<1>().end()) {
        order.relocate(order.end(), order.project<0>(found));
        return found->slot;
      }
    return -1;
  }
  std::vector<int64_t> evict(int64_t budget) {
    std::vector<int64_t> slots;
    while (account_.held(false) > budget && !orders_[0].empty()) {
      slots.push_back(orders_[0].front().slot);
      account_.hold(orders_[0].front().holds, false, -1);
      orders_[0].pop_front();
    }
    return slots;
  }
  int64_t held() const {
    return account_.held(false);
  }
  void clear() {
    for (Order& order : orders_) order.clear();
    account_.clear();
  }

 private:
  using Order = boost::multi_index_container<
      Item, boost::multi_index::indexed_by<
                boost::multi_index::sequenced<>,
                boost::multi_index::hashed_unique<boost::multi_index::member<Item, int64_t, &Item::key>>>>;
  Order orders_[2];
  Account account_;
};

}  // namespace bench::graph
