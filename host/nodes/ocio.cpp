#include <qv/nodes/ocio/splice.h>

#include "host/nodes/color_conversion.h"
#include "host/nodes/drawn.h"
#include "host/nodes/families.h"

#include <memory>
#include <optional>
#include <utility>

// Colour management through OpenColorIO: it writes the conversion's shader text and tables, the
// program around them is ours.

namespace host::nodes {
namespace {

class OcioColorspace final : public Drawn {
 public:
  // The spaces' names say nothing of what the config makes of them.
  void identify(const Call& call, Identity& identity) const override {
    identity.add(conversion_of(call)->id);
  }

  std::optional<Drawing> drawing(const Call& call, std::span<const Image> inputs,
                                 RenderContext& context) const override {
    const auto conversion = conversion_of(call);
    if (conversion->is_noop || !inputs[0].texture) return std::nullopt;
    const bool divides = call.knobs.flag("unpremultiply") && inputs[0].coverage;
    Drawing drawing{
        "ocio " + conversion->id, {{"u_unpremultiply", divides ? 1.0 : 0.0}}, {{"u_image", inputs[0]}}};
    for (const ColorConversion::Table& table : conversion->tables)
      drawing.images.emplace_back(table.sampler, uploaded(*conversion, table, context));
    drawing.text = [conversion, &context] {
      return qv::nodes::ocio::splice(context.shaders().source("ocio.glsl"), conversion->generated);
    };
    return drawing;
  }

 private:
  static std::shared_ptr<const ColorConversion> conversion_of(const Call& call) {
    return color_conversion(resolved_path(call.project, call.knobs.text("config")), call.knobs.text("in"),
                            call.knobs.text("out"));
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
