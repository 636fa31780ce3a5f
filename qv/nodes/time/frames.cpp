#include <qv/integers.h>
#include <qv/nodes/time/frames.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>

namespace qv::nodes::time {

namespace {

// Holds the difference of any two frames, and the product of one with a small factor.
__extension__ using Wide = __int128;

constexpr int64_t least_frame = std::numeric_limits<int64_t>::min();
constexpr int64_t most_frame = std::numeric_limits<int64_t>::max();

int64_t saturate(Wide frame) {
  return static_cast<int64_t>(std::clamp<Wide>(frame, least_frame, most_frame));
}

int64_t round_nearest(double t) {
  return truncated<int64_t>(std::floor(t + 0.5));
}

// What is left of a frame number when whole periods are taken away, never negative.
Wide modulo(Wide frame, Wide period) {
  const Wide rest = frame % period;
  return rest < 0 ? rest + period : rest;
}

// Neumaier's compensated sum.
double compensated_sum(const std::vector<std::pair<int64_t, double>>& weights) {
  double sum = 0;
  double correction = 0;
  for (const auto& [frame, weight] : weights) {
    const double next = sum + weight;
    if (std::abs(sum) >= std::abs(weight)) {
      correction += (sum - next) + weight;
    } else {
      correction += (weight - next) + sum;
    }
    sum = next;
  }
  return correction != 0 && std::isfinite(correction) ? sum + correction : sum;
}

}  // namespace

int64_t whole(double t, bool nearest) {
  return nearest ? round_nearest(t) : truncated<int64_t>(std::floor(t + 1e-9));
}

std::optional<int64_t> edge_frame(int64_t frame, int64_t first, int64_t last, int mode) {
  if (mode == edge_through || (first <= frame && frame <= last)) {
    return frame;
  }
  if (mode == edge_no_frame) {
    return std::nullopt;
  }
  const Wide length = Wide{last} - first + 1;
  const Wide from_first = Wide{frame} - first;
  if (mode == edge_loop && length > 0) {
    return saturate(first + modulo(from_first, length));
  }
  if (mode == edge_ping_pong && length >= 2) {
    const Wide period = 2 * length - 2;
    const Wide swing = modulo(from_first, period);
    return saturate(first + (swing >= length ? period - swing : swing));
  }
  return frame < first ? first : last;
}

int64_t timeoffset_frame(double t, double offset, bool reverse, int64_t first, int64_t last, bool nearest) {
  const double shifted = t - offset;
  return whole(reverse ? static_cast<double>(Wide{first} + last) - shifted : shifted, nearest);
}

int64_t framehold_frame(double t, double hold_frame, int64_t every, bool nearest) {
  if (every <= 0) {
    return whole(hold_frame, nearest);
  }
  const auto period = static_cast<double>(every);
  return whole(hold_frame + std::floor((t - hold_frame) / period) * period, nearest);
}

std::vector<int64_t> frameblend_frames(int64_t frame, int64_t count, bool use_range, double range_start,
                                       double range_end) {
  std::vector<int64_t> frames;
  if (!use_range) {
    frames.resize(static_cast<size_t>(std::max<int64_t>(count, 1)));
    for (size_t i = 0; i < frames.size(); ++i) {
      frames[i] = saturate(frame - static_cast<Wide>(i));
    }
    return frames;
  }
  const int64_t a = truncated<int64_t>(std::nearbyint(range_start));
  const int64_t b = truncated<int64_t>(std::nearbyint(range_end));
  const Wide lo = std::min(a, b);
  const Wide hi = std::min<Wide>(lo + 255, std::max(a, b));
  frames.reserve(static_cast<size_t>(hi - lo + 1));
  for (Wide f = lo; f <= hi; ++f) {
    frames.push_back(static_cast<int64_t>(f));
  }
  return frames;
}

RetimeRanges retime_ranges(double in_first, double in_last, double in_first_value, bool in_first_set,
                           double in_last_value, bool in_last_set, double out_first_value, bool out_first_set,
                           double out_last_value, bool out_last_set, double speed) {
  RetimeRanges ranges;
  ranges.in_first = in_first_set ? in_first_value : in_first;
  ranges.in_last = in_last_set ? in_last_value : in_last;
  const double in_length = ranges.in_last - ranges.in_first + 1;

  if (out_first_set && out_last_set) {
    ranges.out_first = out_first_value;
    ranges.out_last = out_last_value;
    ranges.speed = in_length / std::max(out_last_value - out_first_value + 1, 1e-9);
    return ranges;
  }
  ranges.speed = speed;
  const double out_length = std::abs(speed) > 1e-9 ? in_length / speed : in_length;
  if (out_last_set) {
    ranges.out_last = out_last_value;
    ranges.out_first = out_last_value - out_length + 1;
  } else {
    ranges.out_first = out_first_set ? out_first_value : ranges.in_first;
    ranges.out_last = ranges.out_first + out_length - 1;
  }
  return ranges;
}

std::optional<double> retime_pos(int64_t frame, const RetimeRanges& ranges, int before_mode, int after_mode) {
  const int64_t first = truncated<int64_t>(std::floor(ranges.out_first + 1e-6));
  const int64_t last = truncated<int64_t>(std::floor(ranges.out_last + 1e-6));
  const std::optional<int64_t> read =
      edge_frame(frame, first, last, frame < first ? before_mode : after_mode);
  if (!read) {
    return std::nullopt;
  }
  return (static_cast<double>(*read) - ranges.out_first) * ranges.speed;
}

std::vector<std::pair<int64_t, double>> box_weights(double t, double width) {
  std::vector<std::pair<int64_t, double>> weights;
  const double least = std::max(width, 1e-6);  // a NaN stays one
  if (!std::isfinite(t) || !std::isfinite(least)) {
    return weights;
  }
  const double half = least * 0.5;
  const double lo = t - half;
  const double hi = t + half;
  const Wide first = round_nearest(lo);
  const Wide last = round_nearest(hi);
  // All at once, so that a width that no memory holds fails before it fills what there is.
  weights.reserve(static_cast<size_t>(std::min<Wide>(last - first + 1, most_frame)));
  for (Wide f = first; f <= last; ++f) {
    const auto centre = static_cast<double>(f);
    const double overlap = std::min(centre + 0.5, hi) - std::max(centre - 0.5, lo);
    if (overlap > 1e-9) {
      weights.emplace_back(static_cast<int64_t>(f), overlap);
    }
  }
  const double total = compensated_sum(weights);
  if (total != 0) {
    for (auto& [frame, weight] : weights) {
      weight /= total;
    }
  }
  return weights;
}

std::vector<std::pair<int64_t, double>> shutter_weights(double t, int64_t samples, double shutter, int mode,
                                                        double custom_offset) {
  const int64_t n = std::max<int64_t>(samples, 1);
  double offset = custom_offset;
  if (mode == shutter_centred) {
    offset = -shutter * 0.5;
  } else if (mode == shutter_from) {
    offset = 0;
  } else if (mode == shutter_until) {
    offset = -shutter;
  }
  const double opening = offset + t;
  if (n == 1) {
    return {{round_nearest(opening + shutter * 0.5), 1.0}};
  }
  // A map, because a negative shutter runs backwards.
  std::map<int64_t, double> counts;
  for (int64_t k = 0; k < n; ++k) {
    const double sample = static_cast<double>(k) * shutter / static_cast<double>(n - 1) + opening;
    counts[round_nearest(sample)] += 1.0;
  }
  return {counts.begin(), counts.end()};
}

}  // namespace qv::nodes::time
