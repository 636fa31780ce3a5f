#include <qv/version.h>

#include <OpenImageIO/imageio.h>

namespace qv {

const char* core_version() {
  return "0.1.0";
}

std::string oiio_header_version() {
  return OIIO_VERSION_STRING;
}

std::string oiio_runtime_version() {
  const int version = OIIO::openimageio_version();
  return std::to_string(version / 10000) + "." + std::to_string(version / 100 % 100) + "." +
         std::to_string(version % 100);
}

}  // namespace qv
