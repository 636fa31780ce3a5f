#include <qv/io/general_reader.h>
#include <qv/io/image_read.h>
#include <qv/version.h>

#include <exception>

#include <OpenImageIO/oiioversion.h>

namespace qv {

ImageRead oiio_read_float(const std::string& path) {
  try {
    return io::general_reader().read_float(path);
  } catch (const std::exception& failure) {
    ImageRead result;
    result.error = failure.what();
    return result;
  }
}

std::string oiio_header_version() {
  return OIIO_VERSION_STRING;
}

std::string oiio_runtime_version() {
  try {
    return io::general_reader().version();
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace qv
