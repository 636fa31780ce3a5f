#include <qv/version.h>

#include "host/general/general.h"
#include "host/general/offer.h"

#include <mutex>
#include <stdexcept>
#include <string>

#include <dlfcn.h>

namespace host::general {
namespace {

struct Module {
  std::mutex mutex;  // guards what follows; whoever comes while it is loaded waits
  const Library* library = nullptr;
  int threads = 0;  // 0: as many as it likes
};

Module& module_of_process() {
  static Module data;
  return data;
}

[[noreturn]] void refuse(const std::string& file, const std::string& reason) {
  throw std::runtime_error(file + ", which reads and writes such files, " + reason);
}

const Library& load() {
  const std::string file = qv::library_folder() + "/" + module_file;
  void* const handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    std::string reason = dlerror();
    if (reason.starts_with(file + ": ")) reason.erase(0, file.size() + 2);
    refuse(file, "cannot be loaded: " + reason);
  }
  // Stays, whatever it is: what it brought along may have begun threads.
  const auto entry = reinterpret_cast<const Offer* (*)()>(dlsym(handle, offer_name));
  if (!entry || entry()->version != offer_version) refuse(file, "belongs to another version of quorvel");
  return *entry()->library;
}

}  // namespace

const Library& library() {
  Module& mine = module_of_process();
  const std::lock_guard lock(mine.mutex);
  if (!mine.library) {
    mine.library = &load();
    if (mine.threads > 0) mine.library->hold_threads(mine.threads);
  }
  return *mine.library;
}

void hold_threads(int threads) {
  Module& mine = module_of_process();
  const std::lock_guard lock(mine.mutex);
  mine.threads = threads;
  if (mine.library) mine.library->hold_threads(threads);
}

}  // namespace host::general
