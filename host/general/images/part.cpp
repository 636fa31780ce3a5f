#include "host/general/images/part.h"

#include "host/general/images/spec_metadata.h"

#include <memory>
#include <string>
#include <utility>

namespace host::general::images {
namespace {

std::string type_name(const OIIO::TypeDesc& type) {
  if (type == OIIO::TypeDesc::UINT32) return "uint32";
  return type == OIIO::TypeDesc::INT32 ? "int32" : type.c_str();
}

}  // namespace

plates::PartInfo part_of(const OIIO::ImageSpec& spec, bool metadata) {
  plates::PartInfo part;
  part.name = spec.get_string_attribute("oiio:subimagename");
  part.data = {spec.x, spec.y, spec.width, spec.height};
  part.display = {spec.full_x, spec.full_y, spec.full_width, spec.full_height};
  const double aspect = spec.get_float_attribute("PixelAspectRatio", 1.0F);
  part.pixel_aspect = aspect > 0 ? aspect : 1.0;
  part.compression = spec.get_string_attribute("compression");
  part.tile_width = spec.tile_width;
  part.tile_height = spec.tile_height;
  part.deep = spec.deep;
  for (int i = 0; i < spec.nchannels; ++i)
    part.channels.push_back({spec.channel_name(i), type_name(spec.channelformat(i))});
  files::Metadata found = metadata ? metadata_of(spec) : files::Metadata();
  if (!found.all().empty()) part.metadata = std::make_shared<const files::Metadata>(std::move(found));
  return part;
}

plates::ColorHints color_hints_of(const OIIO::ImageSpec& spec) {
  plates::ColorHints hints;
  hints.description = spec.get_string_attribute("ImageDescription");
  hints.space = spec.get_string_attribute("oiio:ColorSpace");
  hints.profile = spec.get_string_attribute("ICCProfile:profile_description");
  hints.floats = spec.format.is_floating_point();
  return hints;
}

}  // namespace host::general::images
