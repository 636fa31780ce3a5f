#pragma once

#include <qv/export.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace qv::nodes::time {

// The frame arithmetic of time nodes: which whole frames of its input a node reads for an output frame.
// Pure functions: thread-safe, no state, no errors of their own; those that return vectors allocate one
// entry a frame, and one that no vector can hold throws std::length_error or std::bad_alloc.
// Frames are whole numbers, times and durations are in frames. Two roundings, both on purpose:
//   nearest  floor(x + 0.5): halves go up, below zero too
//   down     floor(x + 1e-9): a hair below a whole number still counts as that number
// A result outside 64 bits is held to their ends, and a NaN to be rounded is 0.

// `t` as a whole frame, rounded to nearest or down.
QV_API int64_t whole(double t, bool nearest);

// Which frame is read outside an input's range. Any other number is edge_hold.
enum EdgeMode : int {
  edge_through = 0,    // the frame itself
  edge_loop = 1,       // from the other end on; a range without a frame holds
  edge_ping_pong = 2,  // back and forth, the ends not repeated; a range of fewer than two frames holds
  edge_hold = 3,       // the nearer end
  edge_no_frame = 4,
};

// The frame read for `frame` of an input that has [first, last], ends included: inside the range always
// `frame`, outside by `mode`, an EdgeMode. Nothing for edge_no_frame there.
QV_API std::optional<int64_t> edge_frame(int64_t frame, int64_t first, int64_t last, int mode);

// The frame of an input shifted later by `offset` frames, or mirrored in [first, last] and then shifted.
QV_API int64_t timeoffset_frame(double t, double offset, bool reverse, int64_t first, int64_t last,
                                bool nearest);

// `hold_frame`, or with `every` above 0 the last of hold_frame, hold_frame + every, ... up to `t`.
QV_API int64_t framehold_frame(double t, double hold_frame, int64_t every, bool nearest);

// The frames that a frame blend averages. With `use_range` those from range_start to range_end in
// ascending order, at most the first 256, the ends (in either order) rounded with halves to even.
// Otherwise `count` frames, at least one, going back from `frame`.
QV_API std::vector<int64_t> frameblend_frames(int64_t frame, int64_t count, bool use_range,
                                              double range_start, double range_end);

// Which stretch of the input plays over which stretch of the output.
struct RetimeRanges {
  double in_first = 0;
  double in_last = 0;
  double out_first = 0;
  double out_last = 0;
  double speed = 0;  // input frames an output frame
};

// Fills what a retime node leaves open. The input range is the input's own where it is not set. With
// both output ends set the speed follows from the lengths and `speed` is ignored; otherwise the output
// length follows from `speed` (a speed of 0 counts as 1 for the length) and hangs on the end that is
// set, or starts where the input starts.
QV_API RetimeRanges retime_ranges(double in_first, double in_last, double in_first_value, bool in_first_set,
                                  double in_last_value, bool in_last_set, double out_first_value,
                                  bool out_first_set, double out_last_value, bool out_last_set, double speed);

// The position in the input, in frames from ranges.in_first, for an output frame. Before and after the
// output range by the modes of edge_frame; empty where they give no frame. Add in_first, then round.
QV_API std::optional<double> retime_pos(int64_t frame, const RetimeRanges& ranges, int before_mode,
                                        int after_mode);

// The frames, ascending, under a box of `width` frames centred on `t`, with weights that sum to 1:
// frame f covers [f - 0.5, f + 0.5]. Any width below 1e-6, minus infinity too, counts as that. Empty
// for a time that is not finite, a width that is NaN or plus infinity, and where frames are finer than
// doubles can tell apart.
QV_API std::vector<std::pair<int64_t, double>> box_weights(double t, double width);

// Where a shutter opens. Any other number is shutter_custom.
enum ShutterMode : int {
  shutter_centred = 0,  // half of it before t, half after
  shutter_from = 1,     // opens at t
  shutter_until = 2,    // closes at t
  shutter_custom = 3,   // opens at t + custom_offset
};

// The nearest frames, ascending, to `samples` (at least 1) times spread evenly over an open shutter,
// ends included, each with the number of samples that fell on it; the counts sum to the samples, so
// divide by those. One sample lies in the middle. `mode`, a ShutterMode, places the opening of `shutter`
// frames. O(samples log frames).
QV_API std::vector<std::pair<int64_t, double>> shutter_weights(double t, int64_t samples, double shutter,
                                                               int mode, double custom_offset);

}  // namespace qv::nodes::time
