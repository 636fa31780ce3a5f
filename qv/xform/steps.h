#pragma once

#include <qv/export.h>
#include <qv/xform/matrix.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace qv::xform {

// A transform-like node hands itself over as one vector of numbers, a step. The first is its kind:
//
// step_transform, 12 numbers: 1, 2 translate x, y; 3 rotation in degrees; 4, 5 scale x, y; 6, 7 skew x, y;
//   8 skew order (SkewOrder); 9, 10 centre x, y; 11 invert. Skews, scales, rotates about the centre, then
//   translates.
// step_reformat, 17 numbers: 1 type (ReformatType); 2, 3, 4 the format's width, height, pixel aspect;
//   5, 6 the box's width, height, 7 whether its height counts (else it follows the aspect), 8 its pixel
//   aspect; 9, 10 scale x, y; 11 resize (Resize); 12 centre; 13 mirror vertically; 14 mirror
//   horizontally; 15 turn by a quarter; 16 keep what lies outside the new format (0 clips to it).
// step_corner_pin, 3 + 4 n + 16 numbers: 1 invert; 2 the number n of points; n points x, y as they are,
//   n points as they shall be, a 4x4 matrix row by row that is applied after (its third row and column
//   are left out). Four points or more fit the first four in perspective, three an affine map, two a
//   similarity, one a translation.
//
// Flags are set by anything but 0, NaN included. Numbers taken as integers lose their fraction, are held
// to the integer's range, and are 0 for NaN; but the kind and the type must be 32-bit numbers.
//
// Errors, all of them exceptions: std::out_of_range for an empty step; std::invalid_argument
// "transform step: 12 values", "reformat step: 17 values", "cornerpin step: 3 + 4 n + 16 values" and
// "unknown step kind"; and for a reformat whose rounded size is NaN or 9.2e18 and more
// std::invalid_argument "cannot convert float NaN to integer" and std::overflow_error "cannot convert
// float infinity to integer".

// Everything here is thread-safe once the routines are installed.

enum StepKind : int { step_transform = 0, step_reformat = 1, step_corner_pin = 2 };

// Which skew comes first: any other number is skew_yx.
enum SkewOrder : int { skew_xy = 0, skew_yx = 1 };

// What a reformat's new format is. Any other number is reformat_to_format.
enum ReformatType : int { reformat_to_format = 0, reformat_to_box = 1, reformat_by_scale = 2 };

// How a reformat scales the image. Any other number is resize_none.
enum Resize : int {
  resize_none = 0,
  resize_width = 1,   // to the new width
  resize_height = 2,  // to the new height
  resize_fit = 3,     // the whole image shows
  resize_fill = 4,    // the whole format is covered
  resize_distort = 5,
};

// The matrix of one step. `width` and `height` are the format that enters and become the one that
// leaves, which only a reformat changes. `clip_to_format` becomes whether the step clips to that. Nothing for
// an inverted step that has no inverse and for points that determine no map.
// Corner pins need the installed routines (set_blas), other steps do not.
QV_API std::optional<Matrix> step_matrix(const std::vector<double>& values, int64_t& width, int64_t& height,
                                         bool& clip_to_format);

// What a chain of steps amounts to.
struct Total {
  std::optional<Matrix> matrix;  // absent when a step has none; the rest is then as it was before that step
  int64_t width = 0;             // the format after all steps
  int64_t height = 0;
  std::optional<Box> clip;  // where the image ends, once a reformat clipped it
};

// Folds `steps`, the first applied first, for an image of the given format. A clip follows the steps
// after it as the box around its image, and is dropped where that lies on or behind the horizon. It
// meets a further clip in their intersection, or in one of its own pixels where they do not meet, so
// it is never empty unless a format is. Throws like step_matrix and h_bbox. Needs the installed
// routines (set_blas). Allocates nothing of its own.
QV_API Total total(const std::vector<std::vector<double>>& steps, int64_t width, int64_t height);

}  // namespace qv::xform
