#include "host/live/display.h"

#include "host/node/node.h"
#include "host/programs/shader_library.h"
#include "host/programs/shader_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace host::live {
namespace {

namespace ocio = OCIO_NAMESPACE;

// WebGL's default for samplers has too few bits for tables of floats.
constexpr const char* precisions =
    "precision highp float;\nprecision highp int;\nprecision highp sampler2D;\nprecision highp sampler3D;\n";

// What `ask` asks of a config; whatever is wrong with that names it.
template <class Ask>
auto asked_of(const std::string& config, Ask&& ask) {
  try {
    return ask(*ocio::Config::CreateFromFile(config.c_str()));
  } catch (const ocio::Exception& error) {
    throw std::runtime_error(config + ": " + error.what());
  }
}

std::string config_of(const shot::Composition& composition, const node::Node& node) {
  const auto names_config = [](const node::KnobSpec& knob) { return knob.name == "config"; };
  const auto found = std::find_if(node.type->knobs.begin(), node.type->knobs.end(), names_config);
  if (found == node.type->knobs.end() || node.disabled) return "";
  node::Project project;
  project.folder = composition.folder.string();
  return node::resolved_path(project, node.knobs[static_cast<size_t>(found - node.type->knobs.begin())].text);
}

}  // namespace

std::string display_config(const shot::Composition& composition) {
  const char* const environment = std::getenv("OCIO");
  if (environment && *environment) return environment;
  for (const node::Node& node : composition.nodes) {
    std::string config = config_of(composition, node);
    if (!config.empty()) return config;
  }
  return "";
}

Displays read_displays(const std::string& file) {
  Displays all{file, {}};
  if (file.empty()) return all;
  asked_of(file, [&all](const ocio::Config& config) {
    for (int i = 0; i < config.getNumDisplays(); ++i) {
      const char* const name = config.getDisplay(i);
      Displays::Display& display = all.displays.emplace_back(Displays::Display{name, {}});
      for (int j = 0; j < config.getNumViews(name); ++j) display.views.emplace_back(config.getView(name, j));
    }
  });
  return all;
}

nodes::ColorConversion display_shader(const std::string& file, const std::string& display,
                                      const std::string& view) {
  if (file.empty()) throw std::runtime_error("there is no OpenColorIO config");
  const auto transform = ocio::DisplayViewTransform::Create();
  transform->setSrc(ocio::ROLE_SCENE_LINEAR);
  transform->setDisplay(display.c_str());
  transform->setView(view.c_str());
  auto conversion = asked_of(file, [&](const ocio::Config& config) {
    return nodes::generated_conversion(config, transform, ocio::GPU_LANGUAGE_GLSL_ES_3_0, "display_convert");
  });
  if (conversion.is_noop) {
    conversion.generated = "vec4 display_convert(vec4 color) {\n  return color;\n}\n";
  } else if (!conversion.tables.empty()) {
    const programs::ShaderTexts texts(programs::ShaderLibrary::default_root());
    conversion.generated = texts.source("lut.glsl") + conversion.generated;
  }
  conversion.generated = precisions + conversion.generated;
  return conversion;
}

}  // namespace host::live
