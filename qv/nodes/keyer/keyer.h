#pragma once

#include <qv/export.h>

#include <array>
#include <cstdint>

namespace qv::nodes::keyer {

// Prepares the parameters of keyer programs. Pure functions of their arguments; thread-safe; none of
// them fails or allocates.

// How many levels an edge fill needs: the smallest n in 1 to 10 for which size * 2^(n - 1) reaches
// the larger side of the image (in pixels), or 10. `size` is the first level's, in pixels; less than
// 0.5 counts as 0.5. A NaN size gives 1.
QV_API int fill_levels(double size, int64_t width, int64_t height);

// Puts the ranges (low0, high0, low1, high1) in order: each low at most its high, and the second
// range nowhere below high0. Values are otherwise kept; a NaN is never moved by a comparison.
QV_API std::array<double, 4> keyer_range(const std::array<double, 4>& range);

// Splits red, green, blue into the screen's own channel and the other two. `selector` is 1 at the
// largest component of the screen's colour (green before blue before red in a tie, green for a
// colour with no component above 0) and 0 elsewhere; `weights` is 0 there, `balance` at the first of
// the other two channels and 1 - balance at the second.
QV_API void screen_channels(const std::array<double, 3>& colour, double balance,
                            std::array<double, 3>& selector, std::array<double, 3>& weights);

}  // namespace qv::nodes::keyer
