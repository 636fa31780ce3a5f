#include <qv/nodes/ocio/splice.h>

#include "host/nodes/color_conversion.h"
#include "host/nodes/families.h"

#include <utility>

// Colour management through OpenColorIO: it writes the conversion's shader text and tables, the
// program around them is ours.

namespace host::nodes {
namespace {

class OcioColorspace final : public Operation {
 public:
  // The spaces' names say nothing of what the config makes of them.
  void identify(const Call& call, Identity& identity) const override {
    identity.add(conversion_of(call)->id);
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    const auto conversion = conversion_of(call);
    if (conversion->is_noop || !inputs[0].texture) return inputs[0];
    std::vector<Input> samplers = {{"u_image", inputs[0]}};
    for (const ColorConversion::Table& table : conversion->tables)
      samplers.emplace_back(table.sampler, uploaded(*conversion, table, context));
    const bool divides = call.knobs.flag("unpremultiply") && inputs[0].coverage;
    const Uniform uniforms[] = {{"u_unpremultiply", divides ? 1.0 : 0.0}};
    Image result = context.make(extent);
    context.draw(program(*conversion, context), result, uniforms, samplers);
    return result;
  }

 private:
  static std::shared_ptr<const ColorConversion> conversion_of(const Call& call) {
    return color_conversion(resolved_path(call.project, call.knobs.text("config")), call.knobs.text("in"),
                            call.knobs.text("out"));
  }

  static const programs::Program& program(const ColorConversion& conversion, RenderContext& context) {
    programs::ShaderLibrary& shaders = context.shaders();
    return shaders.get_generated("ocio " + conversion.id, [&] {
      return qv::nodes::ocio::splice(shaders.source("ocio.glsl"), conversion.generated);
    });
  }

  static gpu::TexturePtr uploaded(const ColorConversion& conversion, const ColorConversion::Table& table,
                                  RenderContext& context) {
    return context.table("ocio " + conversion.id + " " + table.sampler, [&table] {
      return gpu::make_table(table.width, table.height, table.depth, table.rgba.data(), false);
    });
  }
};

NodeType ocio_colorspace() {
  NodeType type;
  type.name = "ocio_colorspace";
  type.family = "colour";
  type.help = "Converts between colour spaces of an OpenColorIO config.";
  type.inputs = {{"image", true, "What to convert."}};
  type.knobs = {
      file("config",
           "The config; empty: the environment's OCIO, else a built-in one with linear, srgb, rec709, log "
           "and raw."),
      text("in", "scene_linear", "The space that the image is in: a name, alias or role of the config."),
      text("out", "srgb", "The space to convert to."),
      flag("unpremultiply", true, "Converts colour as it is without its coverage."),
  };
  type.operation = std::make_shared<OcioColorspace>();
  return type;
}

}  // namespace

std::vector<NodeType> ocio_family() {
  return {ocio_colorspace()};
}

}  // namespace host::nodes
