#include "host/frame/colors.h"
#include "host/plan/found.h"
#include "host/report/image_info.h"
#include "host/report/info.h"
#include "host/shot/frames.h"

#include <algorithm>
#include <optional>

namespace host::report {
namespace {

using Json = nlohmann::ordered_json;

Json format_json(const Format& format) {
  return {{"width", format.width}, {"height", format.height}, {"pixel_aspect", format.pixel_aspect}};
}

Json found_json(const plan::Found& found) {
  Json json = {{"node", found.node}, {"frame", found.frame}, {"file", found.pattern}, {"path", found.path}};
  if (!found.frames.empty()) add_sequence(found.frames, json);
  if (!found.error.empty()) {
    json["error"] = found.error;
    return json;
  }
  json["black"] = !found.color;
  json["color"] = {{"space", found.space.name},
                   {"why", found.space.why},
                   {"made_linear", found.color && found.color->decoded}};
  json["layer"] = layer_json(found.layer, found.contents);
  json["layers"] = Json::array();
  for (const plates::Layer& layer : found.contents.layers)
    json["layers"].push_back(layer_json(layer, found.contents));
  return json;
}

Json inputs_json(const shot::Composition& composition, const node::Node& node) {
  Json inputs = Json::array();
  const auto& specs = node.type->inputs;
  for (size_t i = 0; i < node.inputs.size(); ++i) {
    if (node.inputs[i] < 0) continue;
    inputs.push_back({{"input", specs[std::min(i, specs.size() - 1)].name},
                      {"node", composition.nodes[static_cast<size_t>(node.inputs[i])].name}});
  }
  return inputs;
}

Json writes_json(const shot::Composition& composition, const plan::Planner& planner) {
  Json writes = Json::array();
  const int64_t frame = composition.frames.front();
  try {
    for (const plan::Target& target : planner.targets().at(frame)) {
      writes.push_back({{"node", composition.nodes[static_cast<size_t>(target.node)].name},
                        {"frame", frame},
                        {"path", target.file.path}});
    }
  } catch (const frame::FrameError&) {
    return writes;  // a problem, told below
  }
  return writes;
}

}  // namespace

Json info_json(const shot::Composition& composition, const plan::Planner& planner,
               const std::vector<std::string>& problems) {
  const int64_t frame = composition.frames.front();
  Json json = {{"file", composition.file},
               {"kind", "composition"},
               {"format", format_json(planner.project().format)},
               {"frames", shot::frames_text(composition.frames)},
               {"reads", Json::array()},
               {"writes", writes_json(composition, planner)},
               {"nodes", Json::array()}};
  for (const plan::Found& found : plan::found_by_reads(composition, planner.project(), frame))
    json["reads"].push_back(found_json(found));
  const auto extents = planner.extents_if_known(frame);
  for (size_t i = 0; i < composition.nodes.size(); ++i) {
    const node::Node& node = composition.nodes[i];
    Json each = {{"name", node.name},
                 {"type", node.type->name},
                 {"inputs", inputs_json(composition, node)},
                 {"format", nullptr},
                 {"window", nullptr}};
    if (extents) each["format"] = format_json((*extents)[i].format);
    if (extents) each["window"] = (*extents)[i].window;
    json["nodes"].push_back(each);
  }
  json["notices"] = frame::color_notices(composition, planner.project(), frame);
  json["problems"] = problems;
  return json;
}

}  // namespace host::report
