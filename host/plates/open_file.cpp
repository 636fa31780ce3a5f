#include "host/plates/open_file.h"

#include <stdexcept>

namespace host::plates {

general::File& OpenFile::by_general() {
  if (general) return *general;
  std::string error;
  try {
    general = general::library().open(path, error);
  } catch (const std::runtime_error& failure) {
    error = failure.what();
  }
  if (!general) throw std::runtime_error(path + ": " + error);
  return *general;
}

std::shared_ptr<OpenFile> open_file(const std::string& path) {
  const auto file = std::make_shared<OpenFile>();
  file->path = path;
  file->by_general();
  return file;
}

}  // namespace host::plates
