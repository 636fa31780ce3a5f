#include <qv/version.h>

#include <string_view>

#include <OpenImageIO/imageio.h>

namespace qv {

namespace {

constexpr std::string_view project_version = QV_PROJECT_VERSION;
static_assert(project_version == "0.1.0" && QV_VERSION == 100,
              "qv/version.h and the project name one version");

}  // namespace

const char* core_version() {
  return project_version.data();
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
