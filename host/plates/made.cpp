#include "host/plates/made.h"

#include "host/files/whole.h"
#include "host/plates/open_file.h"
#include "host/plates/part_info.h"

#include <memory>
#include <stdexcept>

namespace host::plates {
namespace {

files::Made made_of(general::File& file) {
  files::Made made = files::made_by(file.software());
  if (const auto first = file.part(0)) {
    made.width = first->display.width;
    made.height = first->display.height;
  }
  return made;
}

}  // namespace

files::Made made(const std::string& path) {
  return made_of(open_file(path)->by_general());
}

files::Made made_whole(const std::string& path) {
  const std::shared_ptr<OpenFile> file = open_file(path);
  files::Made made = made_of(file->by_general());
  const std::string format = file->by_general().told(1).format;
  for (int part = 0; file->by_general().part(part); ++part) {
    if (!files::ends_whole(path, format, part)) throw std::runtime_error(path + ": " + files::cut_text);
    file->by_general().try_pixels(part);
  }
  return made;
}

}  // namespace host::plates
