#pragma once

#include <qv/export.h>
#include <qv/nodes/merge/text.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qv::nodes::merge {

// Reads the channel texts that people type into copy, channel-merge and shuffle nodes. A channel is
// written "layer.channel"; the last dot divides the two, and a name without a dot is of "rgba".
// Pure functions of their arguments; thread-safe. No text is an error: what cannot be read is a
// fallback, said at each function. Only A to Z are lowercased, and only where that is said.

// Which channel of a layer.
enum ChannelIndex : int32_t {
  channel_absent = -1,  // of channelmerge_split
  channel_red = 0,
  channel_green = 1,
  channel_blue = 2,
  channel_alpha = 3,
};

// A channel of a layer.
struct Chan {
  std::string layer;            // "rgba" for the main layer
  int32_t index = channel_red;  // a ChannelIndex

  bool operator==(const Chan&) const = default;
};

// What a shuffle puts into a channel. Any other number is route_white.
enum RouteKind : int32_t {
  route_keep = 0,  // the background's channel
  route_black = 1,
  route_white = 2,
  route_input = 3,
};

// Where a shuffle takes one output channel from.
struct Route {
  int32_t kind = route_keep;  // a RouteKind
  int32_t input = 0;          // of route_input: 0 the first input, any other the second
  int32_t channel = 0;        // of route_input: 0 to 3 in that input

  bool operator==(const Route&) const = default;
};

// Reads a channel where the bare name of a layer is allowed too. The stripped text is a channel name
// of "rgba" as it stands (r red z x, g green y, b blue, a alpha), or a layer, a dot and such a name
// in any case, or else the name of a layer, which means its first channel, but of "rgba" its alpha.
QV_API Chan common_parse_channel(std::string_view text);

// Reads a channel where only "layer.channel" will do, with the names of common_parse_channel. Nothing
// for any other text: a blank one, "none", a name without a dot, an empty layer, an unknown channel.
QV_API std::optional<Chan> copy_parse_channel(std::string_view text);

// Reads a channel-merge node's channel: stripped, braces at the ends and leading minus signs dropped,
// channel r red, g green, b blue, a alpha in any case and 0 for any other name. The index is -1, the
// channel absent, for a blank text, for "none" and for a text that begins with a minus sign.
QV_API Chan channelmerge_split(std::string_view text);

// The operations of a channel merge in the order of their numbers. Lives as long as the library.
QV_API std::span<const std::string_view> channelmerge_operations();

// The number by which the channel-merge program knows an operation: its place in the list. -1 for any
// other text; the text is not stripped.
QV_API int channelmerge_op(std::string_view op);

// The place, 0 to 3, of a shuffle's channel: r red x u, g green y v, b blue z, a alpha w, in any
// case, with or without a layer; always 0 in the layers "depth" and "z", which have one channel. Any
// other name has the place `fallback`, or -1 when that is none. The text is not stripped.
QV_API int shuffle_slot_of(std::string_view text, int64_t fallback);

// By what number the shuffle program finds a channel.
enum ShuffleCode : int32_t {
  shuffle_first = 0,  // and the channel: one of the first input
  shuffle_zero = 4,
  shuffle_one = 5,
  shuffle_second = 6,  // and the channel: one of the second input
  shuffle_keep = 10,   // the background's own
};

// The ShuffleCode of each output channel, decided by its route alone. An input that is not present
// gives shuffle_zero, and so does a kept channel where keeping is not allowed.
QV_API std::array<float, 4> shuffle_codes(std::span<const Route, 4> routes, bool keep_allowed,
                                          bool first_present, bool second_present);

// Reads a shuffle's routing: a count, then so many records of six words, divided by white space:
//   source channel, source input (0 or 1), source fallback, target channel, target group (0 or 1),
//   target fallback
// Route 4 * group + slot of the target gets black from the source "black", white from "white", else
// the input's channel, or black when the source has no slot. Slots are those of shuffle_slot_of. Of
// two records for one route the later holds; routes that none names keep. Whole numbers may have a
// sign and single underscores between digits. A record that cannot be used is skipped, and an
// unreadable text leaves eight kept routes: the result is always true. Allocates nothing.
QV_API bool shuffle_routing(std::string_view text, std::span<Route, 8> routes);

}  // namespace qv::nodes::merge
