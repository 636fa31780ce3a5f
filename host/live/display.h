#pragma once

#include "host/nodes/color_conversion.h"
#include "host/shot/composition.h"

#include <string>
#include <vector>

namespace host::live {

// How a page can show an image: the displays and views of an OpenColorIO config.
struct Displays {
  struct Display {
    std::string name;
    std::vector<std::string> views;
  };
  std::string config;             // a file, "" where there is none
  std::vector<Display> displays;  // in the config's order
};

// The config file: the environment's OCIO, else that of the first node of the composition that names one; ""
// where there is neither.
std::string display_config(const shot::Composition& composition);

// Throws std::runtime_error for a config that cannot be read.
Displays read_displays(const std::string& config);

// From scene-linear colour to a display's, as text of GLSL ES 3.00 that defines vec4 display_convert(vec4)
// and all that it calls, and the tables that it reads. Throws std::runtime_error: no such display or view.
nodes::ColorConversion display_shader(const std::string& config, const std::string& display,
                                      const std::string& view);

}  // namespace host::live
