#include "host/base/suggest.h"

#include <algorithm>

namespace host {
namespace {

// Edit distance with swaps of neighbours (optimal string alignment), row by row.
size_t distance(std::string_view a, std::string_view b) {
  std::vector<size_t> before_last(b.size() + 1);
  std::vector<size_t> last(b.size() + 1);
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    before_last.swap(last);
    last.swap(row);
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) row[j] = std::min(row[j], before_last[j - 2] + 1);
    }
  }
  return row[b.size()];
}

}  // namespace

std::string did_you_mean(std::string_view name, const std::vector<std::string>& candidates) {
  // A third of the letters wrong is a slip, more is another word.
  size_t least = std::max<size_t>(1, name.size() / 3) + 1;
  const std::string* nearest = nullptr;
  for (const std::string& candidate : candidates) {
    const size_t d = distance(name, candidate);
    if (d >= least) continue;
    least = d;
    nearest = &candidate;
  }
  return nearest ? " (did you mean \"" + *nearest + "\"?)" : "";
}

}  // namespace host
