#include "host/nodes/catalogue.h"

#include "host/nodes/around.h"
#include "host/nodes/families.h"

#include <utility>

namespace host::nodes {
namespace {

std::vector<NodeType> assemble() {
  std::vector<NodeType> all;
  for (auto* family : {in_out_family, write_family, metadata_family, picture_family, merge_family,
                       channel_family, key_family, filter_family, defocus_family, transform_family,
                       time_family, color_family, pixel_family, ocio_family}) {
    for (NodeType& type : family()) {
      const bool changes = type.changes >= 0 && !type.inputs.empty();
      all.push_back(changes ? around(std::move(type)) : std::move(type));
    }
  }
  return all;
}

}  // namespace

std::span<const NodeType> catalogue() {
  static const std::vector<NodeType> all = assemble();
  return all;
}

const NodeType* find_type(std::string_view name) {
  for (const NodeType& type : catalogue()) {
    if (type.name == name) return &type;
  }
  return nullptr;
}

}  // namespace host::nodes
