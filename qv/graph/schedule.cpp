#include <qv/graph/schedule.h>

#include <limits>
#include <stdexcept>
#include <utility>

namespace qv::graph {

void Schedule::build(const std::vector<std::vector<int>>& up_lists, std::vector<unsigned char> node_flags) {
  size_t total = 0;
  for (const auto& list : up_lists) total += list.size();
  constexpr size_t most = std::numeric_limits<int32_t>::max();
  if (up_lists.size() >= most || total > most) throw std::length_error("vector too long");

  std::vector<int32_t> ends;
  ends.reserve(up_lists.size() + 1);
  ends.push_back(0);
  std::vector<int32_t> lists;
  lists.reserve(total);
  for (const auto& list : up_lists) {
    lists.insert(lists.end(), list.begin(), list.end());
    ends.push_back(static_cast<int32_t>(lists.size()));
  }
  node_flags.resize(up_lists.size());
  offsets = std::move(ends);
  inputs = std::move(lists);
  flags = std::move(node_flags);
}

int Schedule::size() const {
  return static_cast<int>(flags.size());
}

std::vector<int> Schedule::ups(int node) const {
  if (node < 0 || static_cast<size_t>(node) + 1 >= offsets.size())
    throw std::out_of_range("invalid vector subscript");
  const auto i = static_cast<size_t>(node);
  return {inputs.begin() + offsets[i], inputs.begin() + offsets[i + 1]};
}

ScheduleResult Schedule::run(const std::vector<int64_t>& hashes, ResultCache& cache, bool pin) const {
  const size_t n = flags.size();
  ScheduleResult result;
  if (n == 0) return result;
  if (offsets.size() <= n) throw std::out_of_range("invalid vector subscript");
  result.compute.resize(n);
  result.cached.resize(n, -1);
  result.uses.resize(n);

  // Decide from the output upwards what is needed and where it comes from.
  std::vector<uint8_t> need(n);
  need[n - 1] = 1;
  size_t needed = 0;
  for (size_t i = n; i-- > 0;) {
    if (!need[i]) continue;
    ++needed;
    const uint8_t flag = flags[i];
    if (!(flag & always_compute)) {
      if (i >= hashes.size()) throw std::out_of_range("invalid vector subscript");
      const int64_t slot = cache.get(hashes[i], pin);
      if (slot >= 0) result.cached[i] = slot;
    }
    if (result.cached[i] < 0) result.compute[i] = 1;
    if (!(flag & need_inputs) && (!result.compute[i] || (flag & skip_inputs))) continue;
    for (int32_t k = offsets[i]; k < offsets[i + 1]; ++k)
      if (const auto j = static_cast<size_t>(inputs[static_cast<size_t>(k)]); j < n) need[j] = 1;
  }

  // List what is needed, downwards, and count who reads whom.
  result.order.reserve(needed);
  for (size_t i = 0; i < n; ++i) {
    if (!need[i]) continue;
    result.order.push_back(static_cast<int32_t>(i));
    const uint8_t flag = flags[i];
    if (!(flag & need_inputs) && (!result.compute[i] || (flag & skip_inputs))) continue;
    for (int32_t k = offsets[i]; k < offsets[i + 1]; ++k)
      if (const auto j = static_cast<size_t>(inputs[static_cast<size_t>(k)]); j < n) ++result.uses[j];
  }
  return result;
}

}  // namespace qv::graph
