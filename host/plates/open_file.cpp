#include "host/plates/open_file.h"

#include "host/plates/exr_told.h"

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

FileTold OpenFile::told(int most_parts) {
  return exr ? told_by(*exr, most_parts) : by_general().told(most_parts);
}

std::string OpenFile::software() {
  if (!exr) return by_general().software();
  const std::string text = exr->text(0, "Software");
  return text.empty() ? exr->text(0, "software") : text;
}

std::shared_ptr<OpenFile> open_file(const std::string& path) {
  auto file = std::make_shared<OpenFile>();
  file->path = path;
  file->exr = qv::io::ExrFile::open(path);
  if (!file->exr) file->by_general();
  return file;
}

}  // namespace host::plates
