#pragma once

#include <memory>
#include <string>
#include <vector>

namespace host::nodes {

// A conversion from one colour space to another, as OpenColorIO generates it for a GPU.
struct ColorConversion {
  // What a sampler of the text reads: RGBA texels, width * height * depth of them, x fastest. Read
  // nearest: the text interpolates by itself.
  struct Table {
    std::string sampler;
    int width = 0;
    int height = 1;
    int depth = 1;  // above 1: a cube
    std::vector<float> rgba;
  };

  std::string id;         // equal ids convert alike: it covers every parameter and table
  bool is_noop = false;   // nothing to do, no text
  std::string generated;  // GLSL that defines vec4 ocio_convert(vec4), for shaders/color/ocio.glsl
  std::vector<Table> tables;
};

// The conversion between two spaces of a config file, by name, alias or role. With `config` empty, the
// environment's OCIO names the file; without that, a small config of our own is used, with the spaces
// linear, srgb, rec709, log and raw.
//
// Conversions are kept while the config file stays as it is; tables that it refers to are read once a
// process. Throws std::runtime_error that names the knob at fault ("config", "in", "out") and, for a
// space, those there are. Externally synchronised.
std::shared_ptr<const ColorConversion> color_conversion(const std::string& config, const std::string& from,
                                                        const std::string& to);

}  // namespace host::nodes
