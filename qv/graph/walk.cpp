#include <qv/graph/walk.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace qv::graph {

namespace {

// A window of nodes, and how many visits in it make skipping the others not worth the marks.
constexpr int window = 4096;
constexpr int many = window / 8;

// Whether any of the 64 bytes at a or b is set. Plain words, which the compiler turns into vectors.
bool any_of_64(const uint8_t* a, const uint8_t* b) {
  uint64_t x[8], y[8];
  std::memcpy(x, a, sizeof x);
  std::memcpy(y, b, sizeof y);
  uint64_t any = 0;
  for (int i = 0; i < 8; ++i) any |= x[i] | y[i];
  return any != 0;
}

// The first position in [from, to) where a or b is set, `to` where there is none.
int first_set(const uint8_t* a, const uint8_t* b, int from, int to) {
  while (to - from >= 64 && !any_of_64(a + from, b + from)) from += 64;
  for (; to - from >= 8; from += 8) {
    uint64_t x = 0, y = 0;
    std::memcpy(&x, a + from, sizeof x);
    std::memcpy(&y, b + from, sizeof y);
    if (x | y) break;
  }
  while (from < to && !(a[from] | b[from])) ++from;
  return from;
}

}  // namespace

void Walk::build(std::vector<std::vector<int>> input_lists, std::vector<unsigned char> always_flags,
                 std::vector<int64_t> initial_values) {
  const size_t n = initial_values.size();
  if (input_lists.size() != n || always_flags.size() != n)
    throw std::invalid_argument("graph.Walk.build: sizes differ");
  size_t total = 0;
  for (const auto& list : input_lists) total += list.size();
  constexpr size_t most = std::numeric_limits<int32_t>::max();
  if (n >= most || total > most) throw std::length_error("vector too long");

  reader_offsets_.clear();
  offsets.assign(n + 1, 0);
  inputs.clear();
  inputs.reserve(total);
  for (size_t i = 0; i < n; ++i) {
    for (const int input : input_lists[i]) {
      if (input < 0 || static_cast<size_t>(input) >= i)
        throw std::invalid_argument("graph.Walk.build: not upstream first");
      inputs.push_back(input);
    }
    offsets[i + 1] = static_cast<int32_t>(inputs.size());
  }
  always = std::move(always_flags);
  values = std::move(initial_values);
  seeded.assign(n, 0);
  changed.assign(n, 0);
  index_readers();
}

// Turns the edges round by counting: first how many readers each node has, then where each node's
// row ends, then every row filled from its end while the readers descend.
void Walk::index_readers() {
  const size_t n = values.size();
  readers_.assign(inputs.size(), 0);
  pending_.assign(n / 64 + 1, 0);
  std::vector<int32_t> rows(n + 1, 0);
  for (const int32_t input : inputs) ++rows[static_cast<size_t>(input)];
  for (size_t i = 1; i <= n; ++i) rows[i] += rows[i - 1];
  for (size_t i = n; i-- > 0;)
    for (int32_t k = offsets[i]; k < offsets[i + 1]; ++k) {
      int32_t& row = rows[static_cast<size_t>(inputs[static_cast<size_t>(k)])];
      readers_[static_cast<size_t>(--row)] = static_cast<int32_t>(i);
    }
  reader_offsets_ = std::move(rows);
}

int Walk::size() const {
  return static_cast<int>(values.size());
}

// Whether every array covers every node, which a build that threw may have left otherwise.
bool Walk::whole() const {
  const size_t n = values.size();
  return offsets.size() > n && always.size() >= n && seeded.size() >= n && changed.size() >= n;
}

bool Walk::indexed() const {
  return reader_offsets_.size() == offsets.size();
}

// Asks for the node's value and records a change. True where there is one. Inlined into the loops,
// which are little else than this call.
[[gnu::always_inline]] inline bool Walk::settle(int node, bool dirty, const Visit& visit) {
  const std::optional<int64_t> value = visit(node, dirty);
  const auto i = static_cast<size_t>(node);
  if (!value || *value == values[i]) return false;
  changed_list.push_back(node);
  values[i] = *value;
  changed[i] = 1;
  return true;
}

inline bool Walk::reads_changed(int node) const {
  const auto i = static_cast<size_t>(node);
  for (int32_t k = offsets[i]; k < offsets[i + 1]; ++k)
    if (changed[static_cast<size_t>(inputs[static_cast<size_t>(k)])]) return true;
  return false;
}

// The last node that reads this one, -1 where none does.
inline int Walk::last_reader(int node) const {
  const auto i = static_cast<size_t>(node);
  const int32_t end = reader_offsets_[i + 1];
  return end > reader_offsets_[i] ? readers_[static_cast<size_t>(end) - 1] : -1;
}

inline void Walk::mark_readers(int node) {
  const auto i = static_cast<size_t>(node);
  for (int32_t k = reader_offsets_[i]; k < reader_offsets_[i + 1]; ++k) {
    const auto reader = static_cast<uint32_t>(readers_[static_cast<size_t>(k)]);
    pending_[reader / 64] |= uint64_t{1} << (reader % 64);
  }
}

// The first node from `from` on that is marked, seeded or flagged; size() where there is none.
// No mark lies beyond last_mark.
int Walk::next_marked(int from, int last_mark) const {
  auto marked = static_cast<int>(values.size());
  if (from <= last_mark) {
    auto word = static_cast<size_t>(from) / 64;
    uint64_t bits = pending_[word] & (~uint64_t{0} << (from % 64));
    while (!bits && word < static_cast<size_t>(last_mark) / 64) bits = pending_[++word];
    if (bits) marked = static_cast<int>(word * 64) + std::countr_zero(bits);
  }
  return first_set(always.data(), seeded.data(), from, marked);
}

// Marks the readers of every node that changed since the last call, so that from here on marks tell
// which nodes are dirty.
void Walk::mark_what_changed(Pass& pass) {
  if (!pass.cleared) std::fill(pending_.begin(), pending_.end(), uint64_t{0});
  pass.cleared = true;
  while (pass.marked < changed_list.size()) mark_readers(changed_list[pass.marked++]);
}

// Goes from one marked node to the next, while they are few. Returns where it stopped.
int Walk::visit_marked(int from, const Visit& visit, Pass& pass) {
  const auto n = static_cast<int>(values.size());
  if (from <= pass.last_reader) mark_what_changed(pass);
  pass.marked = changed_list.size();
  int64_t window_end = 0;
  int calls_in_window = 0;
  for (int node = next_marked(from, pass.last_reader); node < n;
       node = next_marked(node + 1, pass.last_reader)) {
    if (node >= window_end) {
      window_end = int64_t{node} + window;
      calls_in_window = 0;
    }
    if (++calls_in_window > many) return node;
    const auto i = static_cast<size_t>(node);
    const bool pending = node <= pass.last_reader && (pending_[i / 64] >> (node % 64) & 1);
    ++pass.visited;
    if (!settle(node, pending || seeded[i], visit)) continue;
    pass.last_reader = std::max(pass.last_reader, last_reader(node));
    mark_what_changed(pass);
  }
  return n;
}

// Looks at the inputs of every node of a window.
void Walk::visit_each(int from, int to, bool all, const Visit& visit, Pass& pass) {
  const bool keep_last_reader = indexed() && !all;
  int calls = 0;
  for (int node = from; node < to; ++node) {
    const auto i = static_cast<size_t>(node);
    const bool dirty = seeded[i] || (!changed_list.empty() && reads_changed(node));
    if (!dirty && !always[i] && !all) continue;
    ++calls;
    if (settle(node, dirty, visit) && keep_last_reader)
      pass.last_reader = std::max(pass.last_reader, last_reader(node));
  }
  pass.visited += calls;
}

int Walk::walk(const std::vector<int>& seeds, bool all, const Visit& visit) {
  if (!whole()) return 0;
  const int n = size();
  // For every node at once, and first: a pass that stopped half-way would leave changes that nobody hears of.
  changed_list.reserve(static_cast<size_t>(n));
  for (const int seed : seeds)
    if (seed >= 0 && seed < n) seeded[static_cast<size_t>(seed)] = 1;
  std::fill(changed.begin(), changed.end(), uint8_t{0});
  changed_list.clear();

  // Where few nodes are visited it pays to mark the readers of what changed and to skip the rest, where
  // many are it pays to look at every node's inputs instead: window by window, whichever is due.
  const bool skipping = indexed() && !all;
  Pass pass;
  for (int node = 0; node < n;) {
    if (skipping) node = visit_marked(node, visit, pass);
    for (int calls = many + 1; node < n && (!skipping || (calls > many && node <= pass.last_reader));) {
      const int to = node + std::min(window, n - node);
      calls = -pass.visited;
      visit_each(node, to, all, visit, pass);
      calls += pass.visited;
      node = to;
    }
  }

  for (const int seed : seeds)
    if (seed >= 0 && seed < n) seeded[static_cast<size_t>(seed)] = 0;
  return pass.visited;
}

}  // namespace qv::graph
