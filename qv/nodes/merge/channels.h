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

// A channel of a layer.
struct Chan {
  std::string layer;  // "rgba" for the main layer
  int32_t index = 0;  // 0 red, 1 green, 2 blue, 3 alpha; -1 for the absent one of channelmerge_split

  bool operator==(const Chan&) const = default;
};

// Where a shuffle takes one output channel from.
struct Route {
  int32_t kind = 0;     // 0 keep the background's channel, 1 black, 3 an input; others white
  int32_t input = 0;    // of kind 3: 0 the first input, any other the second
  int32_t channel = 0;  // of kind 3: 0 to 3 in that input

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

// The number by which the channel-merge program knows an operation, from 0: union, absminus,
// "b if not a", divide, from, in, max, min, minus, multiply, out, plus, stencil, xor. -1 for any
// other text; the text is not stripped.
QV_API int channelmerge_op(std::string_view op);

// The place, 0 to 3, of a shuffle's channel: r red x u, g green y v, b blue z, a alpha w, in any
// case, with or without a layer; always 0 in the layers "depth" and "z", which have one channel. Any
// other name has the place `fallback`, or -1 when that is none. The text is not stripped.
QV_API int shuffle_slot_of(std::string_view text, int64_t fallback);

// The code by which the shuffle program finds each output channel, decided by its route alone: 0 to 3
// the first input's channels, 4 zero, 5 one, 6 to 9 the second input's, 10 the background's own. An
// input that is not present gives 4, and so does a kept channel where keeping is not allowed.
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
