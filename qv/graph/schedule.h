#pragma once

#include <qv/export.h>
#include <qv/graph/result_cache.h>

#include <cstdint>
#include <vector>

namespace qv::graph {

// Flags of a node in a Schedule, combined by or.
enum : uint8_t {
  always_compute = 1,  // computed on every run, never looked up in the cache
  skip_inputs = 2,     // computing the node takes none of its inputs
  need_inputs = 4      // its inputs are requested in every case, also when the node itself is cached
};

// What one evaluation has to do. All but `order` have one entry a node. Movable once, into the
// variable that keeps it; not copyable, not assignable.
struct ScheduleResult {
  std::vector<int32_t> order;    // the needed nodes, ascending, so that inputs come first
  std::vector<uint8_t> compute;  // 1: needed and to be computed
  std::vector<int64_t> cached;   // the slot that the cache gave for the node, otherwise -1
  std::vector<int32_t> uses;     // how many times needed nodes will read the node's result

  ScheduleResult() = default;
  ScheduleResult(ScheduleResult&&) noexcept = default;
  ~ScheduleResult() = default;
};

// Plans evaluations of a graph whose nodes are numbered upstream first and whose last node is the
// requested output: which nodes to compute, which to take from the cache, and when an intermediate
// result has had its last reader. Empty until build; a copy is independent.
// Externally synchronised; a run reads the schedule only, but changes the cache.
struct Schedule {
  // size() + 1 entries: the inputs of node i are inputs[offsets[i]] up to, not including,
  // inputs[offsets[i + 1]].
  std::vector<int32_t> offsets;
  std::vector<int32_t> inputs;
  std::vector<uint8_t> flags;

  // Replaces the graph. up_lists[i] names the inputs of node i, node_flags[i] its flags; missing
  // flags are 0, surplus ones dropped. An input that is not upstream of its node is not diagnosed:
  // runs never request it for that node. Throws std::length_error ("vector too long") beyond
  // 2^31 - 1 inputs; it and std::bad_alloc leave the schedule as it was.
  QV_API void build(const std::vector<std::vector<int>>& up_lists, std::vector<unsigned char> node_flags);

  // The number of nodes.
  QV_API int size() const;

  // The inputs of a node. Throws std::out_of_range ("invalid vector subscript") for no such node.
  QV_API std::vector<int> ups(int node) const;

  // Plans one evaluation. hashes[i] is the cache key of node i; each lookup is a cache.get with
  // `pin`, so that hits become recent and, with pin, pinned. A needed node without a hash, unless it
  // is always computed, throws std::out_of_range ("invalid vector subscript"); earlier lookups have
  // then happened. O(nodes + inputs) and one lookup a needed node, without recursion.
  QV_API ScheduleResult run(const std::vector<int64_t>& hashes, ResultCache& cache, bool pin) const;
};

}  // namespace qv::graph
