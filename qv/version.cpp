#include <qv/version.h>

#include <string_view>

namespace qv {

namespace {

constexpr std::string_view project_version = QV_PROJECT_VERSION;
static_assert(project_version == "0.1.0" && QV_VERSION == 100,
              "qv/version.h and the project name one version");

}  // namespace

const char* core_version() {
  return project_version.data();
}

}  // namespace qv
