#pragma once

#include "tests/host/render/scene.h"

#include <array>
#include <string>

#include <gtest/gtest.h>

namespace probe {

using Rgba = std::array<float, 4>;

// A constant node of one colour.
inline std::string constant(const std::string& name, const Rgba& color) {
  std::string list;
  for (const float channel : color) list += (list.empty() ? "" : ", ") + std::to_string(channel);
  return R"({"name": ")" + name + R"(", "type": "constant", "knobs": {"color": [)" + list + "]}}, ";
}

// A node named "n"; `inputs` is the inside of its inputs, `knobs` that of its knobs.
inline std::string node(const std::string& type, const std::string& inputs, const std::string& knobs) {
  return R"({"name": "n", "type": ")" + type + R"(", "inputs": {)" + inputs + R"(}, "knobs": {)" + knobs +
         "}}";
}

inline void expect_near(const Rgba& found, const Rgba& expected, double tolerance, const std::string& what) {
  for (size_t channel = 0; channel < 4; ++channel)
    EXPECT_NEAR(found[channel], expected[channel], tolerance) << what << ", channel " << channel;
}

}  // namespace probe
