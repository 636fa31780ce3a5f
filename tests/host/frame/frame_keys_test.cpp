// Keys of frames, found by looking at what changed alone, against keys found from nothing.

#include "host/frame/keyed_frame.h"
#include "host/frame/project.h"

#include <cstdint>
#include <list>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using host::frame::FrameKeys;
using host::frame::KeyedFrame;

struct Shot {
  host::shot::Composition composition;
  host::plates::Headers headers;
  host::node::Project project;

  explicit Shot(const std::string& nodes)
      : composition(host::shot::parse_composition(
            R"({"format": {"width": 64, "height": 36}, "frames": "1-40", "nodes": [)" + nodes + "]}",
            "shot.json")),
        project(host::frame::make_project(composition, 1, headers)) {}
};

// A graph of pictures, blurs, grades, time nodes and merges over what stands before them.
std::string random_nodes(std::mt19937& random, int count) {
  const auto below = [&random](int limit) {
    return static_cast<int>(random() % static_cast<uint32_t>(limit));
  };
  std::string text = R"({"name": "n0", "type": "constant", "knobs": {"color": [0.5, 0.25, 0, 1]}})";
  for (int i = 1; i < count; ++i) {
    const auto earlier = [&] { return "n" + std::to_string(i - 1 - below(std::min(i, 4))); };
    const std::string knobs[] = {
        R"("type": "blur", "knobs": {"size": )" + std::to_string(1 + below(5)) + "}",
        R"("type": "grade", "knobs": {"gamma": {"keys": [[1, 1], [)" + std::to_string(2 + below(30)) +
            ", 2]]}}",
        R"("type": "time_offset", "knobs": {"offset": )" + std::to_string(below(5) - 2) + "}",
        R"("type": "frame_hold", "knobs": {"frame": 3, "every": )" + std::to_string(below(4)) + "}",
        R"("type": "frame_blend", "knobs": {"count": 3})"};
    text += R"(, {"name": "n)" + std::to_string(i) + R"(", )";
    if (below(4) == 0) {
      text += R"("type": "merge", "inputs": {"a": ")" + earlier() + R"(", "b": ")" + earlier() + R"("}})";
    } else {
      text += R"("inputs": ")" + earlier() + "\", " + knobs[below(5)] + "}";
    }
  }
  return text;
}

// The instances whose own part is that of a node, and everything that reads them.
int downstream(const KeyedFrame& frame, int node) {
  std::set<int> reached;
  for (size_t at = 0; at < frame.graph.instances.size(); ++at) {
    const auto& instance = frame.graph.instances[at];
    bool hit = instance.node == node;
    for (const int read : instance.reads) hit = hit || reached.count(read) != 0;
    if (hit) reached.insert(static_cast<int>(at));
  }
  return static_cast<int>(reached.size());
}

TEST(FrameKeysTest, RandomEditsAndFramesGiveTheKeysOfAFreshStart) {
  std::mt19937 random(20260914);
  for (int round = 0; round < 60; ++round) {
    Shot shot(random_nodes(random, 12));
    std::list<host::shot::Composition> versions{shot.composition};
    auto keys = std::make_unique<FrameKeys>(versions.back(), shot.project);
    const std::vector<int>& outputs = shot.composition.outputs;
    int64_t frame = 1;
    keys->frame(outputs, frame);
    for (int step = 0; step < 30; ++step) {
      int64_t visited = keys->visited();
      const auto edited = static_cast<int>(random() % shot.composition.nodes.size());
      const bool edit = random() % 2 == 0;
      // The same composition with an edit, or another one, which may also be connected in another way.
      const bool replaced = edit && random() % 2 == 0;
      const bool rewired = replaced && edited > 1 && random() % 3 == 0;
      if (replaced) versions.push_back(versions.back());
      host::node::Node& node = versions.back().nodes[static_cast<size_t>(edited)];
      const bool retimed = node.type->family == "time" || rewired;
      if (edit) {
        for (auto& component : node.knobs[0].components) component.constant += 1;
        if (rewired) node.inputs[0] = static_cast<int>(random() % static_cast<uint32_t>(edited));
      } else {
        frame = 1 + static_cast<int64_t>(random() % 40);
      }
      if (replaced) {
        keys = std::make_unique<FrameKeys>(versions.back(), shot.project, std::move(*keys));
        visited = 0;
      } else if (edit) {
        keys->edited(edited);
      }
      const KeyedFrame got = keys->frame(outputs, frame);
      const KeyedFrame wanted = FrameKeys(versions.back(), shot.project).frame(outputs, frame);
      ASSERT_EQ(got.keys, wanted.keys) << "round " << round << " step " << step << " frame " << frame;
      ASSERT_EQ(got.graph.outputs, wanted.graph.outputs);
      for (size_t at = 0; at < got.graph.instances.size(); ++at) {
        ASSERT_EQ(got.graph.instances[at].reads, wanted.graph.instances[at].reads);
        ASSERT_EQ(got.graph.instances[at].frame, wanted.graph.instances[at].frame);
      }
      // An edit costs the edited node and what lies downstream, no more; a time node may change the graph.
      EXPECT_TRUE(!edit || retimed || keys->visited() - visited <= downstream(got, edited))
          << node.type->name;
    }
  }
}

}  // namespace
