#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <OpenColorIO/OpenColorIO.h>

namespace host::nodes {

// A conversion of colours, as OpenColorIO generates it for a GPU.
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

// What a conversion is made of, asked for with the config that is in force. What it throws passes through;
// an exception of OpenColorIO's is refused under `knob`.
struct ConversionRecipe {
  std::string name;  // stands for everything that `make` goes by, the config apart
  std::string knob;
  std::function<OCIO_NAMESPACE::ConstTransformRcPtr(const OCIO_NAMESPACE::Config&)> make;
};

// The conversion by a recipe in a config file. With `config` empty, the environment's OCIO names the
// file; without that, a small config of our own is used, with the spaces linear, srgb, rec709, log and raw.
//
// Conversions are kept while the config file stays as it is; tables that it refers to are read once a
// process. Throws std::runtime_error that names the knob at fault. Externally synchronised.
std::shared_ptr<const ColorConversion> color_conversion(const std::string& config,
                                                        const ConversionRecipe& recipe);

// A transform's conversion in another language and under another function's name: the text that defines `vec4
// FUNCTION(vec4)`, without the functions of shaders/color/lut.glsl that it calls where it has tables. Not
// kept. Throws OpenColorIO's exceptions. Thread-safe.
ColorConversion generated_conversion(const OCIO_NAMESPACE::Config& config,
                                     const OCIO_NAMESPACE::ConstTransformRcPtr& transform,
                                     OCIO_NAMESPACE::GpuLanguage language, const std::string& function);

// Throws std::runtime_error: knob "view": no view "flim" (did you mean "film"?); the config has ...
[[noreturn]] void refuse_name(const std::string& knob, const std::string& what, const std::string& name,
                              const std::vector<std::string>& known);

}  // namespace host::nodes
