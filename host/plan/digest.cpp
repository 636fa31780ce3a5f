#include "host/plan/digest.h"

#include <qv/version.h>

#include "host/node/identity.h"
#include "host/plan/obstacles.h"
#include "host/plates/made.h"
#include "host/writer/container.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <vector>

namespace host::plan {
namespace {

constexpr char by_date_mark = 'd';
constexpr char by_content_mark = 'c';

// What the file says beside what its image brings along, which is in the image's key.
void add_metadata(const files::Metadata& metadata, node::Identity& identity) {
  for (const files::Metadatum& each : metadata.all()) {
    identity.add(each.name);
    identity.add(each.type);
    for (const double number : each.numbers) identity.add(number);
    for (const std::string& text : each.texts) identity.add(text);
  }
}

// Adds the keys of the images that go to the file. A node that writes hands its inputs on, and what its knobs
// say of the file is in the target.
void add_images(const shot::Composition& composition, const frame::KeyedFrame& keyed, int node,
                node::Identity& identity) {
  const auto at = std::find(composition.outputs.begin(), composition.outputs.end(), node);
  const int output = keyed.graph.outputs.at(static_cast<size_t>(at - composition.outputs.begin()));
  const frame::Instance& instance = keyed.graph.instances[static_cast<size_t>(output)];
  const bool hands_on = composition.nodes[static_cast<size_t>(node)].type->writes_files;
  for (const int image : hands_on ? instance.reads : std::vector<int>{output})
    identity.add(image < 0 ? int64_t{-1} : keyed.keys[static_cast<size_t>(image)]);
}

void add_layers(const writer::OutputFile& file, node::Identity& identity) {
  for (const writer::OutputFile::Layer& layer : file.layers) {
    identity.add(layer.name);
    for (const std::string& channel : layer.channels) identity.add(channel);
    identity.add(layer.depth ? static_cast<int64_t>(*layer.depth) : int64_t{-1});
  }
  identity.add(int64_t{file.parts});
  identity.add(int64_t{file.quality});
}

}  // namespace

std::string digest(const shot::Composition& composition, const frame::KeyedFrame& keyed, const Target& target,
                   const node::Project& project) {
  const writer::OutputFile& file = target.file;
  node::Identity identity;
  identity.add(std::string_view(qv::core_version()));
  add_images(composition, keyed, target.node, identity);
  add_layers(file, identity);
  identity.add(static_cast<int64_t>(writer::container_of(file.path)));
  identity.add(static_cast<int64_t>(file.depth));
  identity.add(file.compression);
  identity.add(int64_t{writer::is_srgb(file)});
  identity.add(int64_t{file.alpha});
  identity.add(int64_t{file.overscan});
  add_metadata(file.metadata, identity);
  identity.add(project.format.width);
  identity.add(project.format.height);
  identity.add(project.format.pixel_aspect);
  identity.add(project.scale);
  std::array<char, 17> text{};
  text[0] = project.by_content ? by_content_mark : by_date_mark;
  const auto end = std::to_chars(text.data() + 1, text.data() + text.size(), identity.key(), 16).ptr;
  return {text.data(), end};
}

// The frame that was asked for last, whose other targets come next.
struct Digests::Known {
  Known(const shot::Composition& composition, const node::Project& given, bool by_content)
      : project(given), keys(composition, project) {
    project.by_content = by_content;
  }
  node::Project project;
  frame::FrameKeys keys;
  std::optional<frame::KeyedFrame> keyed;
};

Digests::Digests(const shot::Composition& composition, const node::Project& project)
    : composition_(composition), project_(project) {}

Digests::~Digests() = default;

Digests::Known& Digests::known(bool by_content) {
  std::unique_ptr<Known>& known = by_content ? by_content_ : by_date_;
  if (!known) known = std::make_unique<Known>(composition_, project_, by_content);
  return *known;
}

std::string Digests::of(const Target& target, int64_t frame, std::string_view like) {
  Known& way = known(like.empty() ? project_.by_content : like.front() == by_content_mark);
  if (!way.keyed || way.keyed->graph.frame != frame) {
    way.keyed.reset();
    way.keyed = way.keys.frame(composition_.outputs, frame);
  }
  return digest(composition_, *way.keyed, target, way.project);
}

bool Digests::current(const Target& target, int64_t frame) {
  if (!stands(target.file.path)) return false;
  try {
    const std::string said = plates::made(target.file.path).digest;
    return !said.empty() && said == of(target, frame, said);
  } catch (const frame::FrameError&) {
    throw;
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace host::plan
