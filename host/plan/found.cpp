#include "host/plan/found.h"

#include "host/files/pattern.h"
#include "host/frame/frame_graph.h"
#include "host/plates/sequence.h"

#include <exception>
#include <utility>

namespace host::plan {
namespace {

std::string pattern_of(const node::Call& call) {
  for (const node::KnobSpec& spec : call.knobs.specs()) {
    if (spec.kind == node::KnobKind::file) return resolved_path(call.project, call.knobs.text(spec.name));
  }
  return {};
}

Found found_by(const node::Node& node, const node::Call& call, const plates::Source& source) {
  Found found{node.name, call.frame, pattern_of(call), {}, source.path, {}, {}, {}, {}, {}};
  plates::Headers& headers = *call.project.headers;
  if (files::has_frame(found.pattern)) found.frames = plates::frames_on_disk(found.pattern);
  try {
    found.layer = headers.layer(source);
    const plates::HeaderPtr header = headers.get(source.path);
    found.contents = header->contents;
    found.space = header->color;
    found.color = node.type->operation->color(call);
  } catch (const std::exception& error) {
    found.error = error.what();
  }
  return found;
}

}  // namespace

std::vector<Found> found_by_reads(const shot::Composition& composition, const node::Project& project,
                                  int64_t frame) {
  std::vector<Found> all;
  try {
    for (const frame::Instance& instance :
         frame::frame_graph(composition, composition.outputs, frame, project).instances) {
      const node::Node& node = composition.nodes[static_cast<size_t>(instance.node)];
      const node::Call call = node.call_at(instance.frame, project);
      if (const auto source = node.type->operation->source(call))
        all.push_back(found_by(node, call, *source));
    }
  } catch (const std::exception&) {
    return all;  // what is missing is told elsewhere
  }
  return all;
}

}  // namespace host::plan
