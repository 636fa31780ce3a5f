#include "host/frame/frame_notices.h"

#include <exception>

namespace host::frame {

std::vector<std::string> frame_notices(const shot::Composition& composition, const FrameGraph& graph,
                                       const node::Project& project) {
  std::vector<std::string> notices;
  for (const Instance& instance : graph.instances) {
    const node::Node& node = composition.nodes[static_cast<size_t>(instance.node)];
    try {
      const std::string notice = node.type->operation->notice(node.call_at(instance.frame, project));
      if (!notice.empty())
        notices.push_back(frame_place(composition, instance.node, instance.frame) + notice);
    } catch (const std::exception&) {
      continue;
    }
  }
  return notices;
}

}  // namespace host::frame
