#include "host/plates/exr_told.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace host::plates {
namespace {

PartInfo part_of(const qv::io::ExrPart& part) {
  PartInfo info;
  info.name = part.name;
  info.data = {part.x, part.y, part.width, part.height};
  info.display = {part.display_x, part.display_y, part.display_width, part.display_height};
  info.pixel_aspect = part.pixel_aspect > 0 ? static_cast<double>(part.pixel_aspect) : 1.0;
  info.compression = part.compression;
  info.tile_width = part.tile_width;
  info.tile_height = part.tile_height;
  constexpr std::array types = {"uint32", "half", "float"};
  for (const auto& channel : part.channels)
    info.channels.push_back({channel.name, types.at(static_cast<size_t>(channel.type))});
  return info;
}

ColorHints color_hints_of(const qv::io::ExrFile& file) {
  ColorHints hints;
  hints.description = file.text(0, "comments");
  // A name that another program's general reader once put there; EXR files are linear otherwise.
  hints.space = file.text(0, "oiio:ColorSpace");
  if (hints.space.empty()) hints.space = "Linear";
  const auto& channels = file.parts().front().channels;
  hints.floats = std::any_of(channels.begin(), channels.end(),
                             [](const auto& channel) { return channel.type != qv::io::ExrType::uint32; });
  return hints;
}

}  // namespace

FileTold told_by(const qv::io::ExrFile& file, int most_parts) {
  FileTold told;
  told.format = "openexr";
  told.color = color_space_of(color_hints_of(file));
  told.plain = file.is_plain();
  const size_t parts = std::min(file.parts().size(), static_cast<size_t>(most_parts));
  for (size_t i = 0; i < parts; ++i) told.parts.push_back(part_of(file.parts()[i]));
  return told;
}

}  // namespace host::plates
