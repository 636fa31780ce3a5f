#include <qv/graph/result_cache.h>

#include "bench/graph/cache_peers.h"
#include "bench/graph/rows.h"

#include <limits>
#include <memory>
#include <random>

namespace bench::graph {

namespace {

class Ours {
 public:
  int64_t put(int64_t key, int64_t slot, const Holds& holds, bool flag, double cost, bool pinned) {
    return cache_.put(key, slot, holds.data(), holds.size(), flag, cost, pinned);
  }
  int64_t get(int64_t key) {
    return cache_.get(key, false);
  }
  std::vector<qv::graph::CachePopped> evict(int64_t budget) {
    return cache_.evict(budget, std::numeric_limits<int64_t>::max());
  }
  int64_t held() const {
    return cache_.held(false);
  }
  void clear() {
    cache_.clear();
  }

 private:
  qv::graph::ResultCache cache_;
};

int64_t slot_of(const qv::graph::CachePopped& popped) {
  return popped.slot;
}
int64_t slot_of(int64_t slot) {
  return slot;
}

// Keys of results, half of them present; a result keeps two buffers alive, one of its own and one that
// four neighbours share.
struct Load {
  std::vector<int64_t> keys;
  std::vector<Holds> holds;
  std::vector<uint32_t> picks;
};

Load make_load(size_t size) {
  std::mt19937_64 random(size);
  Load load;
  for (size_t i = 0; i < 2 * size; ++i) {
    load.keys.push_back(static_cast<int64_t>(random()));
    const auto n = static_cast<int64_t>(i);
    load.holds.push_back({{2 * n, 4096}, {2 * (n / 4) + 1, 100}});
  }
  for (size_t i = 0; i < std::max<size_t>(size, 100000); ++i)
    load.picks.push_back(static_cast<uint32_t>(random() % size));
  return load;
}

// One cache under the load, as the functions to time. Each returns a sum that must agree.
template <class Cache>
class Candidate {
 public:
  explicit Candidate(const Load& load) : load_(&load), cache_(std::make_unique<Cache>()) {
    fill();
  }
  // In storage that earlier frames have left.
  int64_t refill() {
    cache_->clear();
    fill();
    return cache_->held();
  }
  int64_t hits() {
    return gets(0);
  }
  int64_t misses() {
    return gets(load_->keys.size() / 2);
  }
  // Puts the absent half while the budget holds what is there now, then the other half again.
  int64_t put_and_evict() {
    int64_t sum = 0;
    const int64_t budget = cache_->held();
    const size_t n = load_->keys.size();
    for (size_t i = 0; i < n; ++i) {
      const size_t k = (i + n / 2) % n;
      cache_->put(load_->keys[k], static_cast<int64_t>(k), load_->holds[k], true, 1, false);
      for (const auto& gone : cache_->evict(budget)) sum += slot_of(gone);
    }
    return sum;
  }

 private:
  void fill() {
    for (size_t i = 0; i < load_->keys.size() / 2; ++i)
      cache_->put(load_->keys[i], static_cast<int64_t>(i), load_->holds[i], true, 1, false);
  }
  int64_t gets(size_t from) {
    int64_t sum = 0;
    for (const uint32_t pick : load_->picks) sum += cache_->get(load_->keys[from + pick]);
    return sum;
  }

  const Load* load_;
  std::unique_ptr<Cache> cache_;
};

void rows_at(Report& report, size_t size) {
  const std::string group = "result cache, " + std::to_string(size) + " entries, ";
  const std::string names[] = {group + "put", group + "hit", group + "miss", group + "put with evict"};
  if (std::none_of(std::begin(names), std::end(names), [&](auto& name) { return report.wants(name); }))
    return;
  const Load load = make_load(size);
  Candidate<Ours> ours(load);
  Candidate<ListCache> list(load);
  Candidate<MultiIndexCache> multi(load);

  const auto row = [&](const std::string& name, size_t operations, auto&& run) {
    if (!report.wants(name)) return;
    int64_t sums[3] = {0, 0, 0};
    const auto timings = time_in_turn(
        size > 500000 ? 5 : 9,
        {[&] { sums[0] = run(ours); }, [&] { sums[1] = run(list); }, [&] { sums[2] = run(multi); }});
    report.require(sums[0] == sums[1] && sums[0] == sums[2], name);
    const auto ns = [&](size_t i) { return timings[i].least * 1e9 / static_cast<double>(operations); };
    const bool large = size >= 1000000;
    report.row(name, "ns", Better::less, ns(0), {{"std::list + std::unordered_map", ns(1)}}, large ? 3 : 1);
    report.row(name, "ns", Better::less, ns(0), {{"boost::multi_index", ns(2)}}, 1);
  };
  row(names[0], size, [](auto& cache) { return cache.refill(); });
  row(names[1], load.picks.size(), [](auto& cache) { return cache.hits(); });
  row(names[2], load.picks.size(), [](auto& cache) { return cache.misses(); });
  row(names[3], load.keys.size(), [](auto& cache) { return cache.put_and_evict(); });
}

}  // namespace

void result_cache_rows(Report& report) {
  for (const size_t size : {size_t{10000}, size_t{100000}, size_t{1000000}})
    if (!report.quick() || size <= 10000) rows_at(report, size);
}

}  // namespace bench::graph
