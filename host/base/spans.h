#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace host {

// What is done to images, each by threads of its own.
enum class Work : uint8_t { drawing, decoding, read_back, encoding };

// When things were worked on: the last few thousand stretches, older ones go. A few tenths of a microsecond
// each. Thread-safe.
class Spans {
 public:
  using Clock = std::chrono::steady_clock;

  struct Span {
    Work work = Work::drawing;
    std::string name;
    Clock::time_point begin, end;
  };

  explicit Spans(size_t most) : most_(most) {}

  void add(Work work, std::string name, Clock::time_point begin, Clock::time_point end);

  // Those that ended at this time or later, in the order in which they ended.
  std::vector<Span> since(Clock::time_point time) const;

 private:
  const size_t most_;
  mutable std::mutex mutex_;
  std::vector<Span> ring_;  // full: next_ is the oldest
  size_t next_ = 0;
};

// A stretch as long as it lives, of who is told of it, if anybody is.
class SpanOf {
 public:
  SpanOf(Spans* spans, Work work, const std::string& name) : spans_(spans), work_(work) {
    if (!spans_) return;
    name_ = name;
    begin_ = Spans::Clock::now();
  }
  ~SpanOf() {
    if (spans_) spans_->add(work_, std::move(name_), begin_, Spans::Clock::now());
  }
  SpanOf(const SpanOf&) = delete;
  SpanOf& operator=(const SpanOf&) = delete;

 private:
  Spans* spans_;
  Work work_;
  std::string name_;
  Spans::Clock::time_point begin_;
};

}  // namespace host
