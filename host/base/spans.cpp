#include "host/base/spans.h"

#include <utility>

namespace host {

void Spans::add(Work work, std::string name, Clock::time_point begin, Clock::time_point end) {
  Span span{work, std::move(name), begin, end};
  const std::lock_guard lock(mutex_);
  if (ring_.size() < most_) {
    ring_.push_back(std::move(span));
    return;
  }
  if (most_ == 0) return;
  std::swap(ring_[next_], span);
  next_ = (next_ + 1) % most_;
}

std::vector<Spans::Span> Spans::since(Clock::time_point time) const {
  std::vector<Span> found;
  const std::lock_guard lock(mutex_);
  for (size_t i = 0; i < ring_.size(); ++i) {
    const Span& span = ring_[(next_ + i) % ring_.size()];
    if (span.end >= time) found.push_back(span);
  }
  return found;
}

}  // namespace host
