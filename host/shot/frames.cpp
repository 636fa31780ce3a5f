#include "host/shot/frames.h"

#include <charconv>
#include <cstdlib>
#include <system_error>
#include <unordered_set>

namespace host::shot {
namespace {

constexpr uint64_t most_frames = 1'000'000;
constexpr int64_t farthest = int64_t{1} << 40;  // keeps every sum below far from overflow

// Reads one part of a list from its front.
class Reader {
 public:
  explicit Reader(std::string_view part) : part_(part), rest_(part) {}

  bool skip(char c) {
    if (rest_.empty() || rest_[0] != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  int64_t whole() {
    int64_t value = 0;
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    if (error != std::errc() || value > farthest || value < -farthest) fail("a frame number");
    rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
    return value;
  }

  void end() const {
    if (!rest_.empty()) fail("7, 1-10, 1-100x10 or ^5");
  }

  [[noreturn]] void fail(const std::string& expected) const {
    throw FramesError("expected " + expected + ", found \"" + std::string(part_) + "\"");
  }

 private:
  std::string_view part_;
  std::string_view rest_;
};

struct Range {
  bool leave_out = false;
  int64_t first = 0;
  int64_t last = 0;
  int64_t step = 1;
};

Range parse_range(std::string_view part) {
  Reader reader(part);
  Range range;
  range.leave_out = reader.skip('^');
  range.first = range.last = reader.whole();
  if (reader.skip('-')) range.last = reader.whole();
  if (reader.skip('x')) range.step = reader.whole();
  if (range.step < 1) reader.fail("a step of at least 1");
  reader.end();
  const auto span = static_cast<uint64_t>(std::abs(range.last - range.first) / range.step);
  if (span >= most_frames) reader.fail("at most 1000000 frames");
  return range;
}

std::vector<int64_t> frames_of(const Range& range) {
  std::vector<int64_t> frames;
  const int64_t step = range.last < range.first ? -range.step : range.step;
  for (int64_t f = range.first; step > 0 ? f <= range.last : f >= range.last; f += step) frames.push_back(f);
  return frames;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

std::vector<Range> parse_ranges(std::string_view text) {
  std::vector<Range> ranges;
  while (true) {
    const size_t comma = text.find(',');
    ranges.push_back(parse_range(trimmed(text.substr(0, comma))));
    if (comma == std::string_view::npos) return ranges;
    text.remove_prefix(comma + 1);
  }
}

}  // namespace

std::vector<int64_t> parse_frames(std::string_view text) {
  const std::vector<Range> ranges = parse_ranges(text);
  std::unordered_set<int64_t> seen;
  for (const Range& range : ranges) {
    if (!range.leave_out) continue;
    for (const int64_t frame : frames_of(range)) seen.insert(frame);
  }
  std::vector<int64_t> frames;
  for (const Range& range : ranges) {
    if (range.leave_out) continue;
    for (const int64_t frame : frames_of(range)) {
      if (seen.insert(frame).second) frames.push_back(frame);
    }
    if (frames.size() > most_frames) {
      throw FramesError("expected at most 1000000, found more in \"" + std::string(text) + "\"");
    }
  }
  return frames;
}

std::string frames_text(const std::vector<int64_t>& frames) {
  std::string text;
  for (size_t i = 0; i < frames.size();) {
    size_t end = i + 1;
    while (end < frames.size() && frames[end] == frames[end - 1] + 1) ++end;
    if (!text.empty()) text += ',';
    text += std::to_string(frames[i]);
    if (end - i > 1) text += end - i == 2 ? ',' : '-';
    if (end - i > 1) text += std::to_string(frames[end - 1]);
    i = end;
  }
  return text;
}

}  // namespace host::shot
