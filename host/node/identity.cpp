#include "host/node/identity.h"

#include <qv/graph/record.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <utility>

namespace host::node {

void Identity::slot(std::initializer_list<uint32_t> words) {
  words_.insert(words_.end(), words);
  lengths_.push_back(static_cast<int32_t>(words.size()));
}

void Identity::add(double value) {
  // Zero and minus zero draw the same picture.
  add(std::bit_cast<int64_t>(value == 0 ? 0.0 : value));
}

void Identity::add(int64_t value) {
  const auto bits = static_cast<uint64_t>(value);
  slot({static_cast<uint32_t>(bits), static_cast<uint32_t>(bits >> 32)});
}

void Identity::add(std::string_view text) {
  // The length stands in front, so that neighbouring texts cannot trade characters.
  add(static_cast<int64_t>(text.size()));
  for (size_t at = 0; at < text.size(); at += 4) {
    uint32_t word = 0;
    std::memcpy(&word, text.data() + at, std::min<size_t>(4, text.size() - at));
    slot({word});
  }
}

int64_t Identity::key() const {
  auto specs = std::make_shared<std::vector<qv::graph::SlotSpec>>();
  uint32_t offset = 0;
  for (const int32_t length : lengths_) {
    qv::graph::SlotSpec spec{};
    spec.components = length;
    spec.offset = offset;
    specs->push_back(spec);
    offset += static_cast<uint32_t>(length);
  }
  qv::graph::Record record;
  record.specs = std::move(specs);
  record.data = words_;
  record.kinds.assign(lengths_.size(), 1);
  return static_cast<int64_t>(record.typed_hash() >> 1);
}

}  // namespace host::node
