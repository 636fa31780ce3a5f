#include <qv/nodes/ocio/splice.h>

namespace qv::nodes::ocio {

namespace {

// Replaces every match of `needle`, from left to right; matches do not overlap and replacements are
// not searched again. Whether there was one; without any, and for an empty needle, nothing changes.
bool replace_all(std::string& text, const std::string& needle, const std::string& replacement) {
  if (needle.empty()) return false;
  size_t match = text.find(needle);
  if (match == std::string::npos) return false;

  std::string result;
  result.reserve(text.size() + 64);
  size_t copied = 0;
  for (; match != std::string::npos; match = text.find(needle, copied)) {
    result.append(text, copied, match - copied).append(replacement);
    copied = match + needle.size();
  }
  result.append(text, copied);
  text.swap(result);
  return true;
}

}  // namespace

std::string splice(const std::string& shader_template, const std::string& generated) {
  std::string source = shader_template;
  replace_all(source, "\n//@OCIO\n", "\n" + generated + "\n");
  return source;
}

bool patch_lut3d(std::string& source, const std::string& sampler) {
  return replace_all(source, "texture(" + sampler + ", ", "qv_lut3d_trilinear(" + sampler + ", ");
}

}  // namespace qv::nodes::ocio
