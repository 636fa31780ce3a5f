#pragma once

#include "tests/host/render/scene.h"

#include <string>

namespace scene {

// Writes a plate whose pixel (x, y), y up, holds 1 + x + 10 y in every channel.
inline void write_numbered(const std::string& name, int width, int height) {
  Plate plate;
  plate.width = width;
  plate.height = height;
  for (int row = height; row-- > 0;) {
    for (int x = 0; x < width; ++x)
      plate.pixels.insert(plate.pixels.end(), 4, static_cast<float>(1 + x + 10 * row));
  }
  write_plate(folder() / name, plate);
}

// The node "p", which reads the file, and a node behind it; `knobs` is the inside of its knobs.
inline std::string read_plate(const std::string& name) {
  return R"({"name": "p", "type": "read", "knobs": {"file": ")" + name + R"("}})";
}

inline std::string node(const std::string& name, const std::string& input, const std::string& type,
                        const std::string& knobs) {
  return R"(, {"name": ")" + name + R"(", "inputs": ")" + input + R"(", "type": ")" + type +
         R"(", "knobs": {)" + knobs + "}}";
}

}  // namespace scene
