#include <qv/nodes/ocio/splice.h>

#include "host/nodes/color_conversion.h"
#include "host/nodes/drawn.h"
#include "host/nodes/families.h"

#include <array>
#include <bit>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

// Colour management through OpenColorIO: it writes the conversion's shader text and tables, the
// program around them is ours. Each node only says of which transform a conversion is made.

namespace host::nodes {
namespace {

namespace ocio = OCIO_NAMESPACE;
namespace fs = std::filesystem;

class OcioNode : public Drawn {
 public:
  // The knobs say nothing of what a config or a file makes of them.
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

 protected:
  virtual ConversionRecipe recipe(const Call& call) const = 0;
  virtual std::string config(const Call& call) const {
    return resolved_path(call.project, call.knobs.text("config"));
  }

 private:
  std::shared_ptr<const ColorConversion> conversion_of(const Call& call) const {
    return color_conversion(config(call), recipe(call));
  }

  static gpu::TexturePtr uploaded(const ColorConversion& conversion, const ColorConversion::Table& table,
                                  RenderContext& context) {
    return context.table("ocio " + conversion.id + " " + table.sampler, [&table] {
      return gpu::make_table(table.width, table.height, table.depth, table.rgba.data(), false);
    });
  }
};

void check_space(const ocio::Config& config, const std::string& name, const std::string& knob) {
  if (config.getColorSpace(name.c_str())) return;
  std::vector<std::string> known(static_cast<size_t>(config.getNumColorSpaces()));
  for (size_t i = 0; i < known.size(); ++i) known[i] = config.getColorSpaceNameByIndex(static_cast<int>(i));
  refuse_name(knob, "colour space", name, known);
}

ocio::TransformDirection direction(const Knobs& knobs) {
  return knobs.flag("invert") ? ocio::TRANSFORM_DIR_INVERSE : ocio::TRANSFORM_DIR_FORWARD;
}

// Texts side by side, none of which can be taken for a part of another.
std::string joined(std::initializer_list<std::string> texts) {
  std::string all;
  for (const std::string& text : texts) all += std::to_string(text.size()) + ":" + text;
  return all;
}

class OcioColorspace final : public OcioNode {
  ConversionRecipe recipe(const Call& call) const override {
    const std::string& from = call.knobs.text("in");
    const std::string& to = call.knobs.text("out");
    return {joined({"space", from, to}), "config", [from, to](const ocio::Config& config) {
              check_space(config, from, "in");
              check_space(config, to, "out");
              auto transform = ocio::ColorSpaceTransform::Create();
              transform->setSrc(from.c_str());
              transform->setDst(to.c_str());
              return transform;
            }};
  }
};

// The name given, or the config's own where that is empty; refused when the config does not have it.
template <class Name>
std::string named(const std::string& given, const std::string& otherwise, const std::string& knob, int count,
                  Name&& name) {
  if (given.empty()) return otherwise;
  std::vector<std::string> known(static_cast<size_t>(count));
  for (size_t i = 0; i < known.size(); ++i) known[i] = name(static_cast<int>(i));
  for (const std::string& each : known)
    if (each == given) return given;
  refuse_name(knob, knob, given, known);
}

class OcioDisplay final : public OcioNode {
  ConversionRecipe recipe(const Call& call) const override {
    const Knobs& knobs = call.knobs;
    const std::string in = knobs.text("in"), display = knobs.text("display"), view = knobs.text("view");
    const std::string looks = knobs.text("looks");
    const ocio::TransformDirection way = direction(knobs);
    return {joined({"display", in, display, view, looks, way == ocio::TRANSFORM_DIR_INVERSE ? "<" : ">"}),
            looks.empty() ? "view" : "looks", [=](const ocio::Config& config) {
              return display_transform(config, in, display, view, looks, way);
            }};
  }

  // Looks that are named stand in place of those that the view has.
  static ocio::ConstTransformRcPtr display_transform(const ocio::Config& config, const std::string& in,
                                                     const std::string& display, const std::string& view,
                                                     const std::string& looks, ocio::TransformDirection way) {
    check_space(config, in, "in");
    const std::string screen = named(display, config.getDefaultDisplay(), "display", config.getNumDisplays(),
                                     [&](int i) { return config.getDisplay(i); });
    const char* name = screen.c_str();
    const std::string seen = named(view, config.getDefaultView(name), "view", config.getNumViews(name),
                                   [&](int i) { return config.getView(name, i); });
    auto shown = ocio::DisplayViewTransform::Create();
    shown->setSrc(in.c_str());
    shown->setDisplay(name);
    shown->setView(seen.c_str());
    shown->setLooksBypass(!looks.empty());
    auto all = ocio::GroupTransform::Create();
    if (!looks.empty() && looks != "none") {
      auto look = ocio::LookTransform::Create();
      look->setSrc(in.c_str());
      look->setDst(in.c_str());
      look->setLooks(looks.c_str());
      all->appendTransform(look);
    }
    all->appendTransform(shown);
    all->setDirection(way);
    return all;
  }
};

class OcioFile final : public OcioNode {
  std::string config(const Call& /*call*/) const override {
    return "";
  }

  // A file that changes while the process runs is read anew.
  ConversionRecipe recipe(const Call& call) const override {
    const Knobs& knobs = call.knobs;
    const std::string path = resolved_path(call.project, knobs.text("file"));
    if (path.empty()) throw std::runtime_error("knob \"file\": expected a path, found none");
    std::error_code error;
    const auto written = fs::last_write_time(path, error).time_since_epoch().count();
    const uintmax_t size = error ? 0 : fs::file_size(path, error);
    if (error) throw std::runtime_error("knob \"file\": " + path + ": " + error.message());
    constexpr std::array interpolations = {ocio::INTERP_BEST, ocio::INTERP_NEAREST, ocio::INTERP_LINEAR,
                                           ocio::INTERP_TETRAHEDRAL};
    const auto interpolation = interpolations.at(static_cast<size_t>(knobs.choice("interpolation")));
    const std::string id = knobs.text("id");
    const ocio::TransformDirection way = direction(knobs);
    return {joined({"file", path, std::to_string(written), std::to_string(size), id,
                    std::to_string(interpolation), std::to_string(way)}),
            "file", [=](const ocio::Config& /*config*/) {
              ocio::ClearAllCaches();
              auto transform = ocio::FileTransform::Create();
              transform->setSrc(path.c_str());
              transform->setCCCId(id.c_str());
              transform->setInterpolation(interpolation);
              transform->setDirection(way);
              return transform;
            }};
  }
};

class OcioCdl final : public OcioNode {
  std::string config(const Call& /*call*/) const override {
    return "";
  }

  ConversionRecipe recipe(const Call& call) const override {
    const Knobs& knobs = call.knobs;
    std::array<double, 9> sop{};
    std::string name = joined({"cdl", knobs.flag("clamp") ? "clamp" : "", std::to_string(direction(knobs))});
    for (size_t i = 0; i < sop.size(); ++i) {
      constexpr std::array knob = {"slope", "offset", "power"};
      sop.at(i) = knobs.number(knob.at(i / 3), i % 3);
    }
    const double saturation = knobs.number("saturation");
    for (const double each : sop) name += std::to_string(std::bit_cast<int64_t>(each)) + " ";
    name += std::to_string(std::bit_cast<int64_t>(saturation));
    const auto style = knobs.flag("clamp") ? ocio::CDL_ASC : ocio::CDL_NO_CLAMP;
    return {name, "power", [=, way = direction(knobs)](const ocio::Config& /*config*/) {
              auto transform = ocio::CDLTransform::Create();
              transform->setSOP(sop.data());
              transform->setSat(saturation);
              transform->setStyle(style);
              transform->setDirection(way);
              return transform;
            }};
  }
};

NodeType ocio_type(std::string name, std::string help, std::vector<KnobSpec> knobs,
                   std::shared_ptr<const Operation> operation) {
  NodeType type;
  type.name = std::move(name);
  type.family = "colour";
  type.help = std::move(help);
  type.inputs = {{"image", true, "What to convert."}};
  type.knobs = std::move(knobs);
  type.knobs.push_back(flag("unpremultiply", true, "Converts colour as it is without its coverage."));
  type.operation = std::move(operation);
  return type;
}

KnobSpec config_knob() {
  return file("config",
              "The config; empty: the environment's OCIO, else a built-in one with linear, srgb, rec709, log "
              "and raw.");
}

KnobSpec in_knob() {
  return text("in", "scene_linear", "The space that the image is in: a name, alias or role of the config.");
}

KnobSpec invert_knob() {
  return flag("invert", false, "Undoes the conversion instead.");
}

}  // namespace

std::vector<NodeType> ocio_family() {
  return {
      ocio_type("ocio_colorspace", "Converts between colour spaces of an OpenColorIO config.",
                {config_knob(), in_knob(), text("out", "srgb", "The space to convert to.")},
                std::make_shared<OcioColorspace>()),
      ocio_type("ocio_display", "Shows the image as a screen would, by a display and a view of a config.",
                {config_knob(), in_knob(), text("display", "", "The screen; empty: the config's first."),
                 text("view", "", "How the scene is seen on it; empty: the screen's first."),
                 text("looks", "",
                      "Looks to show instead of the view's own, as \"+grade, -warm\"; empty: the view's; "
                      "none: no looks."),
                 invert_knob()},
                std::make_shared<OcioDisplay>()),
      ocio_type("ocio_file", "Applies a file with a colour conversion: a LUT, a CDL, or several.",
                {file("file", "The file: .cube, .spi1d, .spi3d, .clf, .cc, .ccc and others."),
                 text("id", "", "Which correction of a .ccc or .cdl file, by id or position."),
                 choice("interpolation", "best", {"best", "nearest", "linear", "tetrahedral"},
                        "How values between those of a table are found."),
                 invert_knob()},
                std::make_shared<OcioFile>()),
      ocio_type("ocio_cdl",
                "Corrects colour by the decision list that sets and grading rooms exchange: (x slope + "
                "offset)^power, then saturation. Keyed, it compiles a program a frame; `grade` does not.",
                {numbers("slope", {1, 1, 1}, "What colour is multiplied by.").within(0, 1000),
                 numbers("offset", {0, 0, 0}, "What is added.").within(-1000, 1000),
                 numbers("power", {1, 1, 1}, "The exponent.").within(0.01, 100),
                 number("saturation", 1, "Colourfulness around the Rec. 709 luminance.").within(0, 1000),
                 flag("clamp", false, "Holds values from 0 to 1 on the way, as the published formula does."),
                 invert_knob()},
                std::make_shared<OcioCdl>()),
  };
}

}  // namespace host::nodes
