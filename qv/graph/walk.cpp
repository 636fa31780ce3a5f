#include <qv/graph/walk.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace qv::graph {

namespace {

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
    uint64_t x, y;
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

// Asks for the node's value and records a change. True where there is one.
bool Walk::settle(int node, bool dirty, const Visit& visit) {
  const std::optional<int64_t> value = visit(node, dirty);
  const auto i = static_cast<size_t>(node);
  if (!value || *value == values[i]) return false;
  changed_list.push_back(node);
  values[i] = *value;
  changed[i] = 1;
  return true;
}

bool Walk::reads_changed(int node) const {
  const auto i = static_cast<size_t>(node);
  for (int32_t k = offsets[i]; k < offsets[i + 1]; ++k)
    if (changed[static_cast<size_t>(inputs[static_cast<size_t>(k)])]) return true;
  return false;
}

// Marks the readers of a changed node; the last of them, -1 where it has none.
int Walk::mark_readers(int node) {
  const auto i = static_cast<size_t>(node);
  int last = -1;
  for (int32_t k = reader_offsets_[i]; k < reader_offsets_[i + 1]; ++k) {
    last = readers_[static_cast<size_t>(k)];
    pending_[static_cast<size_t>(last) / 64] |= uint64_t{1} << (last % 64);
  }
  return last;
}

// The first node from `from` on that is marked, seeded or flagged; size() where there is none.
// No mark lies beyond last_mark.
int Walk::next_marked(int from, int last_mark) const {
  int marked = size();
  if (from <= last_mark) {
    auto word = static_cast<size_t>(from) / 64;
    uint64_t bits = pending_[word] & (~uint64_t{0} << (from % 64));
    while (!bits && word < static_cast<size_t>(last_mark) / 64) bits = pending_[++word];
    if (bits) marked = static_cast<int>(word * 64) + std::countr_zero(bits);
  }
  return first_set(always.data(), seeded.data(), from, marked);
}

// Goes from one marked node to the next, for as long as that costs less than a look at every node.
// Returns where it stopped; last_mark is then the last node that a change so far can still reach.
int Walk::visit_marked(int from, const Visit& visit, int& visited, int& last_mark) {
  const int n = size();
  int64_t affordable = n / 8 + 64;
  last_mark = -1;
  for (int node = next_marked(from, last_mark); node < n; node = next_marked(node + 1, last_mark)) {
    const auto i = static_cast<size_t>(node);
    const bool pending = node <= last_mark && (pending_[i / 64] >> (node % 64) & 1);
    ++visited;
    if (!settle(node, pending || seeded[i], visit)) continue;
    if (last_mark < 0) std::fill(pending_.begin(), pending_.end(), uint64_t{0});
    last_mark = std::max(last_mark, mark_readers(node));
    affordable -= reader_offsets_[i + 1] - reader_offsets_[i];
    if (affordable < 0) return node + 1;
  }
  return n;
}

// Looks at every node's inputs, until nothing that changed can be read further on.
int Walk::visit_each(int from, bool all, const Visit& visit, int& visited, int last_mark) {
  const int n = size();
  const bool indexed = reader_offsets_.size() == offsets.size();
  int node = from;
  for (; node < n && (all || node <= last_mark); ++node) {
    const auto i = static_cast<size_t>(node);
    const bool dirty = seeded[i] || (!changed_list.empty() && reads_changed(node));
    if (!dirty && !always[i] && !all) continue;
    ++visited;
    if (!settle(node, dirty, visit) || !indexed) continue;
    const int32_t end = reader_offsets_[i + 1];
    if (end > reader_offsets_[i]) last_mark = std::max(last_mark, readers_[static_cast<size_t>(end) - 1]);
  }
  return node;
}

int Walk::walk(const std::vector<int>& seeds, bool all, const Visit& visit) {
  if (!whole()) return 0;
  const int n = size();
  for (const int seed : seeds)
    if (seed >= 0 && seed < n) seeded[static_cast<size_t>(seed)] = 1;
  std::fill(changed.begin(), changed.end(), uint8_t{0});
  changed_list.clear();

  // Marks are cheap where little changes and dear where much does, a look at every node's inputs the
  // other way round: each stretch ends where the other way is the better one.
  const bool indexed = reader_offsets_.size() == offsets.size();
  int visited = 0;
  int last_mark = indexed ? -1 : n;
  int node = 0;
  while (node < n) {
    if (indexed && !all) node = visit_marked(node, visit, visited, last_mark);
    if (node < n) node = visit_each(node, all, visit, visited, last_mark);
  }

  for (const int seed : seeds)
    if (seed >= 0 && seed < n) seeded[static_cast<size_t>(seed)] = 0;
  return visited;
}

}  // namespace qv::graph
