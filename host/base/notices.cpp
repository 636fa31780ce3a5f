#include "host/base/notices.h"

#include <utility>

namespace host {
namespace {

constexpr size_t most_texts = 10000;

}  // namespace

void Notices::add(const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (text.empty() || told_.size() >= most_texts || !told_.insert(text).second) return;
  waiting_.push_back(text);
}

std::vector<std::string> Notices::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(waiting_, {});
}

}  // namespace host
