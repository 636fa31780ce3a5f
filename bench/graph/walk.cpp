#include <qv/graph/walk.h>

#include "bench/graph/rows.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <random>

namespace bench::graph {

namespace {

using qv::graph::Walk;

// Two inputs a node. "Near": among the 64 nodes before it, in a hundred separate graphs, so that what
// lies downstream of a node ends within a hundredth of the whole. "Far": the same, but in each
// graph one node in a hundred is read once more at the very end, as by a last merge.
std::vector<std::vector<int>> make_inputs(int n, bool far) {
  std::mt19937 random(7);
  std::vector<std::vector<int>> inputs(static_cast<size_t>(n));
  const int part = n / 100;
  for (int i = 0; i < n; ++i) {
    const int reach = std::min(i % part, 64);
    for (int k = 0; k < 2 && reach > 0; ++k)
      inputs[static_cast<size_t>(i)].push_back(i - 1 -
                                               static_cast<int>(random() % static_cast<unsigned>(reach)));
  }
  for (int i = n / 100; far && i < n - 1; i += 100) inputs.back().push_back(i);
  return inputs;
}

// The plain pass over the same graph: one byte test a node while nothing has changed, then a look at
// every later node's inputs. `visit` is known at compile time unless it is a std::function.
template <class Visit>
int byte_test_walk(Walk& walk, const std::vector<int>& seeds, bool all, const Visit& visit) {
  const int n = walk.size();
  for (const int seed : seeds) walk.seeded[static_cast<size_t>(seed)] = 1;
  std::fill(walk.changed.begin(), walk.changed.end(), uint8_t{0});
  walk.changed_list.clear();
  int visited = 0;
  for (int node = 0; node < n; ++node) {
    const auto i = static_cast<size_t>(node);
    bool dirty = walk.seeded[i];
    if (!dirty && !walk.changed_list.empty())
      for (int k = walk.offsets[i]; k < walk.offsets[i + 1] && !dirty; ++k)
        dirty = walk.changed[static_cast<size_t>(walk.inputs[static_cast<size_t>(k)])];
    if (!dirty && !walk.always[i] && !all) continue;
    ++visited;
    const std::optional<int64_t> value = visit(node, dirty);
    if (!value || *value == walk.values[i]) continue;
    walk.values[i] = *value;
    walk.changed[i] = 1;
    walk.changed_list.push_back(node);
  }
  for (const int seed : seeds) walk.seeded[static_cast<size_t>(seed)] = 0;
  return visited;
}

// One bit a node, kept by the peer itself, and every later node's inputs folded in without a branch.
struct BitSweep {
  std::vector<uint64_t> always, changed;

  template <class Visit>
  int walk(Walk& walk, const std::vector<int>& seeds, const Visit& visit) {
    const int n = walk.size();
    std::vector<uint64_t> seeded(always.size());
    for (const int seed : seeds) seeded[static_cast<size_t>(seed) / 64] |= uint64_t{1} << (seed % 64);
    changed.assign(always.size(), 0);
    walk.changed_list.clear();
    int visited = 0;
    for (size_t word = 0; word < always.size(); ++word) {
      if (walk.changed_list.empty()) {
        uint64_t flagged = always[word] | seeded[word];
        for (; flagged && walk.changed_list.empty(); flagged &= flagged - 1)
          visited += step(walk, static_cast<int>(word * 64) + std::countr_zero(flagged), seeded, visit);
        if (walk.changed_list.empty()) continue;
      }
      const int from = walk.changed_list.size() == 1 && static_cast<size_t>(walk.changed_list[0]) / 64 == word
                           ? walk.changed_list[0] + 1
                           : static_cast<int>(word * 64);
      for (int node = from; node < std::min(n, static_cast<int>(word * 64) + 64); ++node)
        visited += step(walk, node, seeded, visit);
    }
    return visited;
  }

 private:
  static uint64_t bit(const std::vector<uint64_t>& bits, int node) {
    return bits[static_cast<size_t>(node) / 64] >> (node % 64) & 1;
  }
  template <class Visit>
  int step(Walk& walk, int node, const std::vector<uint64_t>& seeded, const Visit& visit) {
    const auto i = static_cast<size_t>(node);
    uint64_t dirty = bit(seeded, node);
    for (int k = walk.offsets[i]; k < walk.offsets[i + 1]; ++k)
      dirty |= bit(changed, walk.inputs[static_cast<size_t>(k)]);
    if (!(dirty | bit(always, node))) return 0;
    const std::optional<int64_t> value = visit(node, dirty);
    if (value && *value != walk.values[i]) {
      walk.values[i] = *value;
      changed[i / 64] |= uint64_t{1} << (i % 64);
      walk.changed_list.push_back(node);
    }
    return 1;
  }
};

struct Graphs {
  explicit Graphs(int n, bool far) {
    ours.build(make_inputs(n, far), std::vector<uint8_t>(static_cast<size_t>(n)),
               std::vector<int64_t>(static_cast<size_t>(n)));
    bytes = bits = ours;
    sweep.always.assign(static_cast<size_t>(n) / 64 + 1, 0);
  }
  Walk ours, bytes, bits;
  BitSweep sweep;
};

double ns_a_node(const Timing& timing, int n) {
  return timing.least * 1e9 / n;
}

void nothing_changed_row(Report& report, int n) {
  const std::string name = "walk, nothing changed, " + std::to_string(n) + " nodes";
  if (!report.wants(name)) return;
  Graphs graphs(n, false);
  const Walk::Visit visit = [](int, bool) { return std::nullopt; };
  const auto timings = time_in_turn(41, {[&] { keep(graphs.ours.walk({}, false, visit)); },
                                         [&] { keep(byte_test_walk(graphs.bytes, {}, false, visit)); },
                                         [&] { keep(graphs.sweep.walk(graphs.bits, {}, visit)); }});
  report.row(name, "ns/node", Better::less, ns_a_node(timings[0], n),
             {{"byte test", ns_a_node(timings[1], n)}}, 5);
  report.note("a sweep over bits, for a host that keeps no bytes: " +
              std::to_string(ns_a_node(timings[2], n)));
}

// Every node visited. The peer is the same loop with the callback known at compile time, plus what
// calling it through a std::function costs by itself.
void everything_row(Report& report, int n, const char* what, bool all, bool changes) {
  const std::string name = std::string("walk, everything visited, ") + what;
  if (!report.wants(name)) return;
  Graphs graphs(n, false);
  std::vector<int> seeds;
  for (int i = 0; i < n && !all; i += n / 100) seeds.push_back(i);
  int64_t salt = 0;
  const auto inlined = [&](int node, bool) -> std::optional<int64_t> {
    return node * int64_t{changes} + salt * changes;
  };
  const Walk::Visit called = inlined;
  const auto timings =
      time_in_turn(15, {[&] { ++salt, keep(graphs.ours.walk(seeds, all, called)); },
                        [&] { ++salt, keep(byte_test_walk(graphs.bytes, seeds, all, inlined)); },
                        [&] {
                          int64_t sum = 0;
                          for (int i = 0; i < n; ++i) sum += *called(i, false);
                          keep(sum);
                        }});
  report.require(graphs.ours.changed == graphs.bytes.changed, name);
  report.row(name, "ns/node", Better::less, ns_a_node(timings[0], n),
             {{"callback known at compile time + call", ns_a_node(timings[1], n) + ns_a_node(timings[2], n)}},
             1 / 1.3);
}

void seed_row(Report& report, int n, bool far) {
  const std::string name =
      std::string("walk, one seed in the middle, 1 % downstream, ") + (far ? "read far off" : "near");
  if (!report.wants(name)) return;
  Graphs graphs(n, far);
  int64_t salt = 0;
  const Walk::Visit visit = [&](int node, bool) -> std::optional<int64_t> { return node + salt; };
  const std::vector<int> seeds{n / 2 + 1};
  int visited[3];
  const auto timings =
      time_in_turn(41, {[&] { ++salt, visited[0] = graphs.ours.walk(seeds, false, visit); },
                        [&] { ++salt, visited[1] = byte_test_walk(graphs.bytes, seeds, false, visit); },
                        [&] { ++salt, visited[2] = graphs.sweep.walk(graphs.bits, seeds, visit); }});
  report.require(visited[0] == visited[1] && visited[0] == visited[2] &&
                     graphs.ours.changed_list == graphs.bytes.changed_list &&
                     graphs.ours.changed_list == graphs.bits.changed_list,
                 name);
  report.row(name, "us", Better::less, timings[0].least * 1e6,
             {{"a look at every later node", timings[1].least * 1e6}}, 3);
  report.note("a sweep over bits: " + std::to_string(timings[2].least * 1e6) + " us; visited " +
              std::to_string(visited[0]));
}

}  // namespace

void walk_rows(Report& report) {
  const int n = report.quick() ? 100000 : 1000000;
  nothing_changed_row(report, n);
  everything_row(report, n, "nothing new", true, false);
  everything_row(report, n, "all new", true, true);
  everything_row(report, n, "downstream of seeds", false, true);
  for (const bool far : {false, true}) seed_row(report, n, far);
}

}  // namespace bench::graph
