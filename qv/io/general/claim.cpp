#include <qv/io/general/claim.h>
#include <qv/io/pixel_memory.h>

namespace qv::io::general {

std::string refusal(const OIIO::ImageSpec& spec, const std::string& format, const FileAttributes& file) {
  if (!float_count(spec.width, spec.height, spec.nchannels)) return "out of memory";
  // Newer readers give the numbers of samples, or nothing, in place of pixels.
  if (spec.deep) return deep_text;
  Claim claim{spec.width, spec.height, spec.nchannels, spec.scanline_bytes(true), {}};
  if (format == "openexr") claim.ratio = exr_ratio(spec.get_string_attribute("compression"));
  return io::refusal(claim, file);
}

}  // namespace qv::io::general
