#pragma once

#include <qv/export.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace qv::graph {

// Change propagation over a graph that the host evaluates again and again: given the nodes that were
// edited, visits them and whatever lies downstream of a node whose value turned out to be new.
// Nodes are numbered upstream first: the inputs of a node carry smaller numbers than the node.
// Empty until build; a copy is independent. Externally synchronised.
// Cost of a pass: a byte sweep over all nodes (64 at a time where nothing is set) plus, for every
// node that changed, a mark on each of its readers; the inputs of untouched nodes are never read.
// A host may read every field at any time and write always and values between passes, or those of
// later nodes from the callback. Edges change through build only.
struct Walk {
  using Visit = std::function<std::optional<int64_t>(int node, bool dirty)>;

  // size() + 1 entries: the inputs of node i are inputs[offsets[i]] up to, not including,
  // inputs[offsets[i + 1]], in the order given to build.
  std::vector<int32_t> offsets;
  std::vector<int32_t> inputs;
  // Non-zero: the node is visited in every pass, changed or not.
  std::vector<uint8_t> always;
  // Non-zero during a pass for the nodes named as its seeds.
  std::vector<uint8_t> seeded;
  // 1 for the nodes whose value changed in the current or last pass; changed_list names the same
  // nodes in visiting order.
  std::vector<uint8_t> changed;
  // The last known value of each node. The only thing that outlasts a pass.
  std::vector<int64_t> values;
  std::vector<int32_t> changed_list;

  // Replaces the graph. input_lists[i] names the inputs of node i, always_flags[i] whether it is
  // visited in every pass, initial_values[i] its value now. O(nodes + inputs).
  // Throws std::invalid_argument when the sizes differ (nothing is changed) or an input is not
  // upstream of its node, std::length_error beyond 2^31 - 1 inputs: the walk is then half built, as after
  // std::bad_alloc, and what a pass visits is unspecified until it is built again.
  QV_API void build(std::vector<std::vector<int>> input_lists, std::vector<unsigned char> always_flags,
                    std::vector<int64_t> initial_values);

  // The number of nodes.
  QV_API int size() const;

  // One pass in ascending order. Calls visit(node, dirty) for each node that is dirty (a seed, or an
  // input changed in this pass), flagged in always, or, with `all`, for every node; returns the
  // number of calls. A returned value other than values[node] is stored and marks the node changed;
  // nothing, or an equal value, does not. Seeds outside the graph are ignored.
  // What visit throws passes through, and the seed marks then stay set for the next pass; a null
  // visit throws std::bad_function_call at the first node to be visited. std::bad_alloc comes before
  // the first visit and changes nothing.
  QV_API int walk(const std::vector<int>& seeds, bool all, const Visit& visit);

 private:
  // How far a pass has come.
  struct Pass {
    int visited = 0;
    int last_reader = -1;  // no node beyond it reads one that changed so far
    size_t marked = 0;     // how many of changed_list have marked their readers
    bool cleared = false;  // whether pending_ is free of an earlier pass's marks
  };

  bool whole() const;
  bool indexed() const;
  void index_readers();
  bool settle(int node, bool dirty, const Visit& visit);
  bool reads_changed(int node) const;
  int last_reader(int node) const;
  void mark_readers(int node);
  void mark_what_changed(Pass& pass);
  int next_marked(int from, int last_mark) const;
  int visit_marked(int from, const Visit& visit, Pass& pass);
  void visit_each(int from, int to, bool all, const Visit& visit, Pass& pass);

  // The edges turned round, ascending within a node, so that a change reaches its readers without a
  // look at anybody's inputs. Absent (empty) where build did not finish.
  std::vector<int32_t> reader_offsets_;
  std::vector<int32_t> readers_;
  // One bit a node: an input changed in this pass. Stale until a pass clears it.
  std::vector<uint64_t> pending_;
};

}  // namespace qv::graph
