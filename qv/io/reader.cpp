#include <qv/io/file_attributes.h>
#include <qv/io/reader.h>

#include <algorithm>
#include <cstdint>

namespace qv::io {

std::unique_ptr<OIIO::ImageInput> open_reader(const std::string& path, int threads, std::string& error) {
  if (file_attributes(path).endless) {
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

Landing landing(const OIIO::ImageSpec& spec, int chbegin, int chend, float* pixels, size_t count) {
  const auto all_are = [&](OIIO::TypeDesc type) {
    for (int channel = chbegin; channel < chend; ++channel)
      if (spec.channelformat(channel) != type) return false;
    return true;
  };
  if (all_are(OIIO::TypeHalf)) return {OIIO::TypeUnknown, reinterpret_cast<uint16_t*>(pixels) + count, true};
  return {all_are(OIIO::TypeFloat) ? OIIO::TypeUnknown : OIIO::TypeFloat, pixels, false};
}

}  // namespace qv::io
