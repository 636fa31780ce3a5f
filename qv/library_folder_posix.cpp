#include <qv/version.h>

#include <cstdlib>
#include <memory>

#include <dlfcn.h>

namespace qv {

std::string library_folder() {
  Dl_info info = {};
  static const char inside = 0;
  if (dladdr(&inside, &info) == 0 || !info.dli_fname) return {};
  // As it was asked for, the path may have been relative to where the process then was.
  struct Free {
    void operator()(char* text) const {
      std::free(text);
    }
  };
  const std::unique_ptr<char, Free> whole(realpath(info.dli_fname, nullptr));
  const std::string path = whole ? whole.get() : info.dli_fname;
  return path.substr(0, path.rfind('/'));
}

}  // namespace qv
