#pragma once

#include <qv/export.h>

#include <cstddef>
#include <string>

namespace qv::nodes::ocio {

// Brings the fragment-shader text and the LUTs that OpenColorIO generates into a colour node's own
// program. Pure text and data: no GL call, nothing fails. Thread-safe.

// The template with the generated text in place of its marker, a line that is exactly "//@OCIO".
// The marker needs a line break on both sides, so it cannot be the first line; of two marker lines
// that share a line break only the first counts. A template without a marker comes back unchanged.
QV_API std::string splice(const std::string& shader_template, const std::string& generated);

// Makes the lookups of one 3D LUT trilinear: rewrites every "texture(NAME, " in `source`, NAME being
// `sampler`, to "qv_lut3d_trilinear(NAME, ". The other arguments stay. True when there was one, in
// which case the program must define
//   vec4 qv_lut3d_trilinear(sampler3D lut, vec3 coordinate)
// Only that spelling is known, one space behind the comma: it is how the generator writes.
QV_API bool patch_lut3d(std::string& source, const std::string& sampler);

// Widens n RGB pixels (3n floats) to RGBA (4n floats) with alpha 1, for uploading a LUT. The two
// must not overlap; no alignment is needed. As fast as copying memory. Nothing is read or written
// for n = 0.
QV_API void rgb_to_rgba(const float* rgb, size_t n, float* rgba);

}  // namespace qv::nodes::ocio
