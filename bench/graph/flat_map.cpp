#include <qv/graph/flat_map.h>

#include "bench/graph/rows.h"

#include <memory>
#include <numeric>
#include <random>
#include <unordered_map>

#include <absl/container/flat_hash_map.h>
#include <boost/unordered/unordered_flat_map.hpp>

namespace bench::graph {

namespace {

using Keys = std::vector<int64_t>;

class Ours {
 public:
  void insert(int64_t key, int value) {
    *map_.insert(key).first = value;
  }
  int find(int64_t key) const {
    const int* const value = map_.find(key);
    return value ? *value : -1;
  }
  void erase(int64_t key) {
    map_.erase(key);
  }

 private:
  qv::graph::FlatMap<int> map_;
};

template <class Map>
class Theirs {
 public:
  void insert(int64_t key, int value) {
    map_.try_emplace(key, 0).first->second = value;
  }
  int find(int64_t key) const {
    const auto found = map_.find(key);
    return found == map_.end() ? -1 : found->second;
  }
  void erase(int64_t key) {
    map_.erase(key);
  }

 private:
  Map map_;
};

template <class Map>
int64_t sum_of(const Map& map, const Keys& keys) {
  int64_t sum = 0;
  for (const int64_t key : keys) sum += map.find(key);
  return sum;
}

template <class Map>
std::unique_ptr<Map> filled(const Keys& keys) {
  auto map = std::make_unique<Map>();
  for (size_t i = 0; i < keys.size(); ++i) map->insert(keys[i], static_cast<int>(i));
  return map;
}

// What is asked of the maps at one size.
struct Load {
  Keys present, hits, misses, replacements;
};

// One map at one size, as four functions to time.
template <class Map>
class Candidate {
 public:
  explicit Candidate(const Load& load) : load_(&load), map_(filled<Map>(load.present)) {}
  int64_t hits() const {
    return sum_of(*map_, load_->hits);
  }
  int64_t misses() const {
    return sum_of(*map_, load_->misses);
  }
  void insert() const {
    for (size_t done = 0; done < load_->hits.size(); done += load_->present.size())
      keep(filled<Map>(load_->present).get());
  }
  // Replaces keys one for one, and back again, so that every round starts from the same keys.
  void churn() {
    const size_t n = load_->replacements.size();
    for (size_t i = 0; i < n; ++i) {
      map_->erase(load_->present[i]);
      map_->insert(load_->replacements[i], 1);
    }
    for (size_t i = 0; i < n; ++i) {
      map_->erase(load_->replacements[i]);
      map_->insert(load_->present[i], static_cast<int>(i));
    }
  }

 private:
  const Load* load_;
  std::unique_ptr<Map> map_;
};

Load make_load(size_t size) {
  std::mt19937_64 random(size);
  const size_t lookups = std::max<size_t>(size, 200000);
  Load load;
  for (size_t i = 0; i < size; ++i) load.present.push_back(static_cast<int64_t>(random() | 1));
  for (size_t i = 0; i < lookups; ++i) load.hits.push_back(load.present[random() % size]);
  for (size_t i = 0; i < lookups; ++i) load.misses.push_back(static_cast<int64_t>(random() & ~uint64_t{1}));
  for (size_t i = 0; i < size / 2; ++i)
    load.replacements.push_back(static_cast<int64_t>(random() & ~uint64_t{1}));
  return load;
}

void rows_at(Report& report, size_t size) {
  const std::string group = "flat map, " + std::to_string(size) + " keys, ";
  const std::string names[] = {group + "hit", group + "miss", group + "insert from empty",
                               group + "erase and insert"};
  if (std::none_of(std::begin(names), std::end(names), [&](auto& name) { return report.wants(name); }))
    return;
  const Load load = make_load(size);
  Candidate<Ours> ours(load);
  Candidate<Theirs<absl::flat_hash_map<int64_t, int>>> abseil(load);
  Candidate<Theirs<boost::unordered_flat_map<int64_t, int>>> boost_flat(load);
  Candidate<Theirs<std::unordered_map<int64_t, int>>> standard(load);
  report.require(ours.hits() == standard.hits() && ours.misses() == standard.misses() &&
                     ours.hits() == abseil.hits() && ours.hits() == boost_flat.hits(),
                 "flat map, sum of values");

  const auto row = [&](const std::string& name, size_t operations, double limit, auto&& run) {
    if (!report.wants(name)) return;
    const auto timings = time_in_turn(
        size > 5000000 ? 3 : 9,
        {[&] { run(ours); }, [&] { run(abseil); }, [&] { run(boost_flat); }, [&] { run(standard); }});
    std::vector<double> ns;
    for (const Timing& timing : timings) ns.push_back(timing.least * 1e9 / static_cast<double>(operations));
    report.row(
        name, "ns", Better::less, ns[0],
        {{"absl::flat_hash_map", ns[1]}, {"boost::unordered_flat_map", ns[2]}, {"std::unordered_map", ns[3]}},
        limit);
  };
  const size_t inserted = (load.hits.size() + size - 1) / size * size;
  row(names[0], load.hits.size(), size >= 100000 ? 1 / 1.1 : 0, [](auto& map) { keep(map.hits()); });
  row(names[1], load.misses.size(), 0, [](auto& map) { keep(map.misses()); });
  row(names[2], inserted, 1 / 1.3, [](auto& map) { map.insert(); });
  row(names[3], load.replacements.size() * 2, 0, [](auto& map) { map.churn(); });
}

}  // namespace

void flat_map_rows(Report& report) {
  for (const size_t size : {size_t{1000}, size_t{100000}, size_t{1000000}, size_t{10000000}})
    if (!report.quick() || size <= 100000) rows_at(report, size);
}

}  // namespace bench::graph
