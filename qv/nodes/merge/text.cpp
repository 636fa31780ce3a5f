#include <qv/nodes/merge/text.h>

#include <algorithm>

namespace qv::nodes::merge {

std::string_view strip(std::string_view text) {
  while (!text.empty() && is_white(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_white(text.back())) text.remove_suffix(1);
  return text;
}

bool is_ascii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char byte) { return (byte & 0x80) == 0; });
}

}  // namespace qv::nodes::merge
