#pragma once

#include <qv/export.h>
#include <qv/xform/matrix.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace qv::xform {

// How many motion-blur samples a moving transform needs, at most 128; 0 for none. `path` has the
// transform at each time of the shutter, in order, absent ones left out. The count follows from the
// longest way, in pixels, of a corner of the `width` x `height` format: `quality` samples a pixel and one
// more. Where a corner meets the horizon that time is left out for it.
// Throws std::invalid_argument and std::overflow_error where the way is no number or has no end.
// Thread-safe. Needs the installed routines (set_blas) unless `path` is empty.
QV_API int64_t mblur_samples(double quality, const std::vector<std::optional<Matrix>>& path, int64_t width,
                             int64_t height);

}  // namespace qv::xform
