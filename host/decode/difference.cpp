#include "host/decode/difference.h"

#include "host/plates/open_file.h"
#include "host/plates/part_info.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

namespace host::decode {
namespace {

using plates::PartInfo;

// One part of a file, decoded whole.
class Part {
 public:
  Part(plates::OpenFile& file, const std::string& path, int index, PartInfo info) : info_(std::move(info)) {
    if (info_.deep) throw std::runtime_error(path + ": deep images cannot be compared");
    values_ = file.by_general().values(index, 0, channels());
  }

  const PartInfo& info() const {
    return info_;
  }

  int channels() const {
    return static_cast<int>(info_.channels.size());
  }

  const std::string& channel(int index) const {
    return info_.channels[static_cast<size_t>(index)].name;
  }

  bool has(const std::string& name) const {
    return find(name) < channels();
  }

  // Behind the last where there is none of that name.
  int find(const std::string& name) const {
    const auto found = std::find_if(info_.channels.begin(), info_.channels.end(),
                                    [&](const PartInfo::Channel& each) { return each.name == name; });
    return static_cast<int>(found - info_.channels.begin());
  }

  // As the file counts: y down, the display window's corner wherever it is.
  double value(int64_t x, int64_t y, int channel) const {
    x -= info_.data.x;
    y -= info_.data.y;
    if (x < 0 || y < 0 || x >= info_.data.width || y >= info_.data.height) return 0;
    return values_[static_cast<size_t>(y * info_.data.width + x) * info_.channels.size() +
                   static_cast<size_t>(channel)];
  }

  std::string full_name(int index, bool several) const {
    return several && !info_.name.empty() ? info_.name + ":" + channel(index) : channel(index);
  }

 private:
  PartInfo info_;
  std::vector<double> values_;
};

std::vector<PartInfo> parts_of(plates::OpenFile& file) {
  std::vector<PartInfo> parts;
  while (auto part = file.by_general().part(static_cast<int>(parts.size())))
    parts.push_back(std::move(*part));
  return parts;
}

// The display window's corner and size, as every pixel of the part is counted from it.
Format format_of(const PartInfo& part) {
  return {part.display.width > 0 ? part.display.width : part.data.width,
          part.display.height > 0 ? part.display.height : part.data.height, 1};
}

std::string text_of(const Format& format) {
  return std::to_string(format.width) + " x " + std::to_string(format.height);
}

Box window_of(const PartInfo& part) {
  return {part.data.x, part.data.y, part.data.x + part.data.width, part.data.y + part.data.height};
}

double magnitude(double a, double b) {
  if (a == b || (std::isnan(a) && std::isnan(b))) return 0;
  const double distance = std::abs(a - b);
  return std::isnan(distance) ? std::numeric_limits<double>::infinity() : distance;
}

// Two parts that stand for each other.
struct Pair {
  const Part& first;
  const Part& second;
  Box window;  // of either, y down
  double tolerance;
};

ChannelDifference compare(const Pair& pair, int from, int to, float* picture) {
  ChannelDifference result;
  double sum = 0;
  const Format format = format_of(pair.first.info());
  for (int64_t y = pair.window[1]; y < pair.window[3]; ++y) {
    for (int64_t x = pair.window[0]; x < pair.window[2]; ++x, ++result.pixels) {
      const double by = magnitude(pair.first.value(x, y, from), pair.second.value(x, y, to));
      if (picture) picture[result.pixels * 4] = static_cast<float>(by);
      if (by > pair.tolerance) ++result.over;
      if (std::isfinite(by)) sum += by;
      if (by <= result.largest) continue;
      result.largest = by;
      result.x = x - pair.first.info().display.x;
      result.y = format.height - 1 - (y - pair.first.info().display.y);
    }
  }
  if (result.pixels > 0) result.mean = sum / static_cast<double>(result.pixels);
  return result;
}

void make_picture(const Pair& pair, Difference& result) {
  const plates::FileWindow& display = pair.first.info().display;
  const Format format = format_of(pair.first.info());
  const Box& down = pair.window;
  const int64_t top = format.height + display.y;
  result.extent = {format, {down[0] - display.x, top - down[3], down[2] - display.x, top - down[1]}};
  const auto floats = static_cast<size_t>(4 * box_width(down) * box_height(down));
  result.picture.reset(new float[floats]());
  for (size_t i = 3; i < floats; i += 4) result.picture.get()[i] = 1;
}

// Adds what the parts have in common; a channel of the first that the second lacks, and the other way
// round, is named.
void add(const Pair& pair, bool several, bool with_picture, Difference& result) {
  const auto& [first, second, window, tolerance] = pair;
  size_t shown = with_picture && !is_empty(window) ? 0 : 3;
  for (int from = 0; from < first.channels(); ++from) {
    if (!second.has(first.channel(from))) {
      result.only_in_first.push_back(first.full_name(from, several));
      continue;
    }
    if (shown == 0) make_picture(pair, result);
    float* const picture = shown < 3 ? result.picture.get() + shown++ : nullptr;
    result.channels.push_back(compare(pair, from, second.find(first.channel(from)), picture));
    result.channels.back().name = first.full_name(from, several);
  }
  for (int to = 0; to < second.channels(); ++to) {
    if (!first.has(second.channel(to))) result.only_in_second.push_back(second.full_name(to, several));
  }
}

void add_all_of(const PartInfo& part, size_t index, std::vector<std::string>& names) {
  const std::string name = part.name.empty() ? std::to_string(index) : part.name;
  for (const PartInfo::Channel& channel : part.channels)
    names.push_back(std::string(name).append(":").append(channel.name));
}

}  // namespace

bool Difference::same() const {
  return formats.empty() && only_in_first.empty() && only_in_second.empty() &&
         std::all_of(channels.begin(), channels.end(), [](const auto& channel) { return channel.over == 0; });
}

Difference difference(const std::string& first, const std::string& second, double tolerance,
                      bool with_picture) {
  const auto a = plates::open_file(first);
  const auto b = plates::open_file(second);
  const std::vector<PartInfo> parts_a = parts_of(*a);
  const std::vector<PartInfo> parts_b = parts_of(*b);
  const size_t common = std::min(parts_a.size(), parts_b.size());
  Difference result;
  for (size_t i = 0; i < common; ++i) {
    const Part from(*a, first, static_cast<int>(i), parts_a[i]);
    const Part to(*b, second, static_cast<int>(i), parts_b[i]);
    const Format format = format_of(from.info());
    const Format other = format_of(to.info());
    if (format != other && result.formats.empty()) {
      result.formats = text_of(format) + " and " + text_of(other);
    }
    const Box window = hull(window_of(from.info()), window_of(to.info()));
    const bool pictured = with_picture && i == 0;
    add({from, to, window, tolerance}, std::max(parts_a.size(), parts_b.size()) > 1, pictured, result);
  }
  for (size_t i = common; i < parts_a.size(); ++i) add_all_of(parts_a[i], i, result.only_in_first);
  for (size_t i = common; i < parts_b.size(); ++i) add_all_of(parts_b[i], i, result.only_in_second);
  return result;
}

}  // namespace host::decode
