#pragma once

#include <qv/export.h>
#include <qv/nodes/merge/text.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace qv::nodes::merge {

// What merge, switch, dissolve and constant nodes tell their fragment programs, worked out of the
// texts and numbers that a person set. Pure functions of their arguments; thread-safe. None of them
// fails: an unknown name has a fallback, said at each function. Channels are in the order red,
// green, blue, alpha. Texts are byte strings, compared byte by byte and so case by case.

// The number of "over", and of every name that is no operation.
enum : int { merge_over = 22 };

// Which channels a merge writes.
struct MergeOut {
  bool none = false;                         // the node writes no channel at all
  std::string chans;                         // the channel set to write, empty for none
  std::array<float, 4> mask = {1, 1, 1, 1};  // 1 lets the result through, 0 keeps the background
};

// Everything that a merge node's program needs. The channel sets are normalised, not looked up: what
// layers and channels they name is the host's to say. Numbers bound for uniforms are floats.
struct MergeSetup {
  std::string a_chans;     // input A's channel set, "none" when the text was blank
  std::string b_chans;     // input B's, the same
  std::string mask_chans;  // the mask channel, empty (not "none") when the text was blank
  bool out_none = false;   // these three are a MergeOut
  std::string out_chans;
  std::array<float, 4> out_mask = {1, 1, 1, 1};
  float op = merge_over;    // merge_op_index
  float alpha_masking = 0;  // 1 or 0
  float second_flag = 0;    // 1 or 0
  double mix = 1;           // as given, neither clamped nor checked
};

// Two neighbouring inputs of a dissolve and the weight of the second: (1 - t) * a + t * b.
struct Pick {
  int32_t a = 0;
  int32_t b = 0;
  double t = 0;  // in [0, 1); 0 when a and b are the same input

  bool operator==(const Pick&) const = default;
};

// The operations of a merge in the order of their numbers, which is that of the alphabet: "atop" 0 ...
// "over" 22 ... "xor" 29. Lives as long as the library.
QV_API std::span<const std::string_view> merge_operations();

// The number by which the merge program knows an operation: its place in merge_operations(). merge_over
// for any other text; the text is not stripped.
QV_API int merge_op_index(std::string_view op);

// Whether "alpha masking", limiting a blend to where the inputs overlap, takes effect: when it is
// wanted and the operation is not one of the twelve that define their own alpha, such as "over".
// An unknown operation counts by its own name, not as "over": masking stays on.
QV_API bool merge_alpha_masking(std::string_view op, bool wanted);

// Reads an output channel text, stripped first. "rgb" and "alpha" write those channels of "rgba",
// "none" writes nothing, a blank text means "rgba"; any other text is kept as the channel set with
// all four channels let through.
QV_API MergeOut merge_output(std::string_view text);

// Gathers a merge node's settings: operation, channel sets of A and B, output and mask channels, mix
// amount, whether alpha masking is wanted, and a flag of the host's that is only passed through.
// The four channel texts are stripped, the operation is not. Allocates only what strings need.
QV_API MergeSetup merge_setup(std::string_view op, std::string_view a, std::string_view b,
                              std::string_view out, std::string_view mask, double mix, bool alpha_masking,
                              bool second_flag);

// Which of n inputs a switch node shows at position x: floor(x), held to [0, n - 1]. A position that
// is not finite shows input 0, infinity too; so does n < 1.
QV_API int switch_index(double x, int n);

// Which two of n inputs a dissolve node blends at position x, held to [0, n - 1]. At the last input
// and beyond (infinity too) both are the last. A NaN counts as 0; n < 2 gives input 0 alone.
QV_API Pick dissolve_pick(double x, int n);

// The colour of a constant node: "rgb" zeroes alpha, "alpha" the colour, "none" both; any other
// channel text, not stripped, keeps all four. Products are formed in double and rounded once.
QV_API std::array<float, 4> constant_color(double r, double g, double b, double a, std::string_view chans);

}  // namespace qv::nodes::merge
