#include "host/plates/inspect.h"

#include <OpenImageIO/imageio.h>

namespace host::plates {
namespace {

std::string type_name(const OIIO::TypeDesc& type) {
  if (type == OIIO::TypeDesc::UINT32) return "uint32";
  return type == OIIO::TypeDesc::INT32 ? "int32" : type.c_str();
}

PartInfo part_of(const OIIO::ImageSpec& spec) {
  PartInfo part;
  part.name = spec.get_string_attribute("oiio:subimagename");
  part.data = {spec.x, spec.y, spec.width, spec.height};
  part.display = {spec.full_x, spec.full_y, spec.full_width, spec.full_height};
  const double aspect = spec.get_float_attribute("PixelAspectRatio", 1.0F);
  part.pixel_aspect = aspect > 0 ? aspect : 1.0;
  part.compression = spec.get_string_attribute("compression");
  part.tile_width = spec.tile_width;
  part.tile_height = spec.tile_height;
  part.deep = spec.deep;
  for (int i = 0; i < spec.nchannels; ++i) {
    part.channels.push_back({spec.channel_name(i), type_name(spec.channelformat(i))});
  }
  return part;
}

}  // namespace

FileInfo inspect(Headers& headers, const std::string& path) {
  FileInfo info;
  info.header = headers.get(path);
  if (!info.header->error.empty()) return info;
  const auto input = OIIO::ImageInput::open(path);
  if (!input) {
    Header gone;
    gone.error = path + ": " + OIIO::geterror();
    info.header = std::make_shared<const Header>(gone);
    return info;
  }
  info.type = input->format_name();
  // As many as the header has found.
  const int parts = info.header->contents.channels.back().subimage + 1;
  for (int i = 0; i < parts && input->seek_subimage(i, 0); ++i) info.parts.push_back(part_of(input->spec()));
  return info;
}

}  // namespace host::plates
