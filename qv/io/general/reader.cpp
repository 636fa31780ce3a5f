#include <qv/io/general/reader.h>

#include <algorithm>

namespace qv::io::general {

std::unique_ptr<OIIO::ImageInput> open_reader(const std::string& path, int threads, std::string& error) {
  return open_reader(path, file_attributes(path), threads, error);
}

std::unique_ptr<OIIO::ImageInput> open_reader(const std::string& path, const FileAttributes& attributes,
                                              int threads, std::string& error) {
  if (attributes.endless) {
    error = "\"" + path + "\" is a pipe, socket or device, not a file";
    return nullptr;
  }
  OIIO::ImageSpec config(OIIO::TypeUnknown);
  config.attribute("oiio:threads", threads);
  std::unique_ptr<OIIO::ImageInput> input = OIIO::ImageInput::open(path, &config);
  if (!input) {
    error = OIIO::geterror();
    if (error.empty()) error = "could not open \"" + path + "\"";
    return nullptr;
  }
  // Some readers of 2.4 do not look at the attribute.
  input->threads(std::max(threads, 0));
  return input;
}

std::string take_error(OIIO::ImageInput& input) {
  std::string error = input.geterror();
  return error.empty() ? "read failed" : error;
}

OIIO::TypeDesc common_format(const OIIO::ImageSpec& spec, int chbegin, int chend) {
  const OIIO::TypeDesc first = spec.channelformat(chbegin);
  for (int channel = chbegin + 1; channel < chend; ++channel)
    if (spec.channelformat(channel) != first) return OIIO::TypeUnknown;
  return first;
}

}  // namespace qv::io::general
