#include "host/plates/made.h"

#include "host/files/whole.h"
#include "host/plates/open_file.h"
#include "host/plates/part_info.h"

#include <memory>
#include <stdexcept>

namespace host::plates {
namespace {

files::Made made_of(OpenFile& file) {
  files::Made made = files::made_by(file.software());
  const FileTold told = file.told(1);
  if (!told.parts.empty()) {
    made.width = told.parts[0].display.width;
    made.height = told.parts[0].display.height;
  }
  return made;
}

}  // namespace

files::Made made(const std::string& path) {
  return made_of(*open_file(path));
}

files::Made made_whole(const std::string& path) {
  const std::shared_ptr<OpenFile> file = open_file(path);
  files::Made made = made_of(*file);
  const std::string format = file->told(1).format;
  for (int part = 0; file->by_general().part(part); ++part) {
    if (!files::ends_whole(path, format, part)) throw std::runtime_error(path + ": " + files::cut_text);
    file->by_general().try_pixels(part);
  }
  return made;
}

}  // namespace host::plates
