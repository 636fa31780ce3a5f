#include "host/decode/difference.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include <OpenImageIO/imageio.h>

namespace host::decode {
namespace {

// One part of a file, decoded whole.
class Part {
 public:
  Part(OIIO::ImageInput& input, const std::string& path, int index) : spec_(input.spec(index, 0)) {
    if (spec_.deep) throw std::runtime_error(path + ": deep images cannot be compared");
    const auto count = static_cast<size_t>(spec_.image_pixels()) * static_cast<size_t>(spec_.nchannels);
    values_.resize(count);
    const auto read = [&](int begin, int end, const OIIO::TypeDesc& type, void* to) {
      if (input.read_image(index, 0, begin, end, type, to)) return;
      throw std::runtime_error(path + ": " + input.geterror());
    };
    read(0, spec_.nchannels, OIIO::TypeDesc::DOUBLE, values_.data());
    // Whole numbers would be steps from 0 to 1, as far as a float tells them apart.
    for (int channel = 0; channel < spec_.nchannels; ++channel) {
      if (spec_.channelformat(channel) != OIIO::TypeUInt32) continue;
      std::vector<uint32_t> numbers(static_cast<size_t>(spec_.image_pixels()));
      read(channel, channel + 1, OIIO::TypeUInt32, numbers.data());
      const auto stride = static_cast<size_t>(spec_.nchannels);
      double* const to = values_.data() + channel;
      for (size_t i = 0; i < numbers.size(); ++i) to[i * stride] = numbers[i];
    }
  }

  const OIIO::ImageSpec& spec() const {
    return spec_;
  }

  // As the file counts: y down, the display window's corner wherever it is.
  double value(int64_t x, int64_t y, int channel) const {
    x -= spec_.x;
    y -= spec_.y;
    if (x < 0 || y < 0 || x >= spec_.width || y >= spec_.height) return 0;
    return values_[static_cast<size_t>(y * spec_.width + x) * static_cast<size_t>(spec_.nchannels) +
                   static_cast<size_t>(channel)];
  }

  std::string channel_name(int channel, bool several) const {
    const std::string part = spec_.get_string_attribute("name");
    const std::string& name = spec_.channelnames[static_cast<size_t>(channel)];
    return several && !part.empty() ? part + ":" + name : name;
  }

 private:
  OIIO::ImageSpec spec_;
  std::vector<double> values_;
};

std::unique_ptr<OIIO::ImageInput> open(const std::string& path) {
  auto input = OIIO::ImageInput::open(path);
  if (!input) throw std::runtime_error(path + ": " + OIIO::geterror());
  return input;
}

int parts_of(OIIO::ImageInput& input) {
  int count = 0;
  while (input.seek_subimage(count, 0)) ++count;
  (void)input.geterror();
  return count;
}

// The display window's corner and size, as every pixel of the part is counted from it.
Format format_of(const OIIO::ImageSpec& spec) {
  return {spec.full_width > 0 ? spec.full_width : spec.width,
          spec.full_height > 0 ? spec.full_height : spec.height, 1};
}

std::string text_of(const Format& format) {
  return std::to_string(format.width) + " x " + std::to_string(format.height);
}

Box window_of(const OIIO::ImageSpec& spec) {
  return {spec.x, spec.y, int64_t{spec.x} + spec.width, int64_t{spec.y} + spec.height};
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
  const Format format = format_of(pair.first.spec());
  for (int64_t y = pair.window[1]; y < pair.window[3]; ++y) {
    for (int64_t x = pair.window[0]; x < pair.window[2]; ++x, ++result.pixels) {
      const double by = magnitude(pair.first.value(x, y, from), pair.second.value(x, y, to));
      if (picture) picture[result.pixels * 4] = static_cast<float>(by);
      if (by > pair.tolerance) ++result.over;
      if (std::isfinite(by)) sum += by;
      if (by <= result.largest) continue;
      result.largest = by;
      result.x = x - pair.first.spec().full_x;
      result.y = format.height - 1 - (y - pair.first.spec().full_y);
    }
  }
  if (result.pixels > 0) result.mean = sum / static_cast<double>(result.pixels);
  return result;
}

void make_picture(const Pair& pair, Difference& result) {
  const OIIO::ImageSpec& spec = pair.first.spec();
  const Format format = format_of(spec);
  const Box& down = pair.window;
  const int64_t top = format.height + spec.full_y;
  result.extent = {format, {down[0] - spec.full_x, top - down[3], down[2] - spec.full_x, top - down[1]}};
  const auto floats = static_cast<size_t>(4 * box_width(down) * box_height(down));
  result.picture.reset(new float[floats]());
  for (size_t i = 3; i < floats; i += 4) result.picture.get()[i] = 1;
}

// Adds what the parts have in common; a channel of the first that the second lacks, and the other way
// round, is named.
void add(const Pair& pair, bool several, bool with_picture, Difference& result) {
  const auto& names = pair.second.spec().channelnames;
  size_t shown = with_picture && !is_empty(pair.window) ? 0 : 3;
  for (int from = 0; from < pair.first.spec().nchannels; ++from) {
    const std::string& name = pair.first.spec().channelnames[static_cast<size_t>(from)];
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
      result.only_in_first.push_back(pair.first.channel_name(from, several));
      continue;
    }
    if (shown == 0) make_picture(pair, result);
    float* const picture = shown < 3 ? result.picture.get() + shown++ : nullptr;
    const auto to = static_cast<int>(found - names.begin());
    result.channels.push_back(compare(pair, from, to, picture));
    result.channels.back().name = pair.first.channel_name(from, several);
  }
  const auto& others = pair.first.spec().channelnames;
  for (int to = 0; to < pair.second.spec().nchannels; ++to) {
    const std::string& name = names[static_cast<size_t>(to)];
    if (std::find(others.begin(), others.end(), name) != others.end()) continue;
    result.only_in_second.push_back(pair.second.channel_name(to, several));
  }
}

void add_all_of(OIIO::ImageInput& input, int index, std::vector<std::string>& names) {
  const OIIO::ImageSpec spec = input.spec(index, 0);
  for (const std::string& name : spec.channelnames) {
    names.push_back(std::string(spec.get_string_attribute("name", std::to_string(index))) + ":" + name);
  }
}

}  // namespace

bool Difference::same() const {
  return formats.empty() && only_in_first.empty() && only_in_second.empty() &&
         std::all_of(channels.begin(), channels.end(), [](const auto& channel) { return channel.over == 0; });
}

Difference difference(const std::string& first, const std::string& second, double tolerance,
                      bool with_picture) {
  const auto a = open(first);
  const auto b = open(second);
  const int parts_a = parts_of(*a);
  const int parts_b = parts_of(*b);
  Difference result;
  for (int part = 0; part < std::min(parts_a, parts_b); ++part) {
    const Part from(*a, first, part);
    const Part to(*b, second, part);
    const Format format = format_of(from.spec());
    const Format other = format_of(to.spec());
    if (format != other && result.formats.empty()) {
      result.formats = text_of(format) + " and " + text_of(other);
    }
    const Box window = hull(window_of(from.spec()), window_of(to.spec()));
    const bool pictured = with_picture && part == 0;
    add({from, to, window, tolerance}, std::max(parts_a, parts_b) > 1, pictured, result);
  }
  for (int part = parts_b; part < parts_a; ++part) add_all_of(*a, part, result.only_in_first);
  for (int part = parts_a; part < parts_b; ++part) add_all_of(*b, part, result.only_in_second);
  return result;
}

}  // namespace host::decode
