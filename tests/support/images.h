#pragma once

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

namespace support {

// Writes an image file of these parts; `write_part` writes the pixels of one.
inline std::string write_image(const std::filesystem::path& file, const std::vector<OIIO::ImageSpec>& parts,
                               const std::function<bool(OIIO::ImageOutput&, size_t part)>& write_part) {
  const std::string path = file.string();
  const auto output = OIIO::ImageOutput::create(path);
  bool good = output && (parts.size() > 1 ? output->open(path, static_cast<int>(parts.size()), parts.data())
                                          : output->open(path, parts[0]));
  for (size_t part = 0; good && part < parts.size(); ++part) {
    if (part > 0) good = output->open(path, parts[part], OIIO::ImageOutput::AppendSubimage);
    good = good && write_part(*output, part);
  }
  if (!good || !output->close())
    throw std::runtime_error(path + ": " + (output ? output->geterror() : "no format"));
  return path;
}

// The same of one part, from floats or, of other pixels, what `type` says.
template <class Pixel>
std::string write_image(const std::filesystem::path& file, const OIIO::ImageSpec& spec,
                        const std::vector<Pixel>& pixels, OIIO::TypeDesc type = OIIO::TypeFloat) {
  return write_image(file, {spec}, [&](OIIO::ImageOutput& output, size_t) {
    return output.write_image(type, pixels.data());
  });
}

}  // namespace support
