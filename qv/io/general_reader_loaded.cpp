#include <qv/io/general/module.h>
#include <qv/io/general_reader.h>
#include <qv/version.h>

#include <stdexcept>

#include <dlfcn.h>

namespace qv::io {

namespace {

const GeneralReader& load() {
  const std::string path = library_folder() + "/libquorvel_core_images.so";
  void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module) throw std::runtime_error(dlerror());
  auto* const entry = reinterpret_cast<general::Entry*>(dlsym(module, general::entry));
  const void* const reader = entry ? entry(core_version()) : nullptr;
  if (!reader) throw std::runtime_error(path + " is not of version " + core_version());
  return *static_cast<const GeneralReader*>(reader);
}

}  // namespace

const GeneralReader& general_reader() {
  static const GeneralReader& reader = load();
  return reader;
}

}  // namespace qv::io
