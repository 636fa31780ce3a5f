#include "host/nodes/color_conversion.h"

#include <qv/nodes/ocio/splice.h>

#include "host/base/suggest.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

#include <OpenColorIO/OpenColorIO.h>

namespace host::nodes {
namespace {

namespace ocio = OCIO_NAMESPACE;
namespace fs = std::filesystem;

// The log space is the density of a film scan: code value (685 + 300 log10(x (1 - b) + b)) / 1023,
// with b = 10^((95 - 685) / 300) for black at code 95 and white at 685.
constexpr const char* built_in_config = R"(ocio_profile_version: 2

strictparsing: true

roles:
  default: linear
  scene_linear: linear
  compositing_log: log
  data: raw

displays:
  screen:
    - !<View> {name: plain, colorspace: srgb}

colorspaces:
  - !<ColorSpace>
    name: linear
    description: Linear light with the primaries of Rec. 709.
    bitdepth: 32f

  - !<ColorSpace>
    name: srgb
    description: The curve of sRGB screens and images.
    bitdepth: 32f
    to_scene_reference: !<ExponentWithLinearTransform> {gamma: 2.4, offset: 0.055}

  - !<ColorSpace>
    name: rec709
    description: The camera curve of Rec. 709 video.
    bitdepth: 32f
    to_scene_reference: !<ExponentWithLinearTransform> {gamma: 2.22222222222222, offset: 0.099}

  - !<ColorSpace>
    name: log
    description: Film density, as in 10-bit scans.
    bitdepth: 32f
    from_scene_reference: !<LogAffineTransform> {base: 10, log_side_slope: 0.293255131964809, log_side_offset: 0.669599217986315, lin_side_slope: 0.989202248377107, lin_side_offset: 0.010797751622893}

  - !<ColorSpace>
    name: raw
    description: Data that no conversion touches.
    isdata: true
    bitdepth: 32f
)";

// A config file as it was when it was read: path ("" is the built-in one), time and size.
using ConfigVersion = std::tuple<std::string, fs::file_time_type, uintmax_t>;

[[noreturn]] void refuse_config(const std::string& path, const std::string& problem) {
  throw std::runtime_error("knob \"config\": " + path + ": " + problem);
}

ConfigVersion find_config(const std::string& config) {
  const char* environment = std::getenv("OCIO");
  const std::string path = config.empty() && environment ? environment : config;
  if (path.empty()) return {};
  std::error_code error;
  const fs::file_time_type written = fs::last_write_time(path, error);
  const uintmax_t size = error ? 0 : fs::file_size(path, error);
  if (error) refuse_config(path, error.message());
  return {path, written, size};
}

ocio::ConstConfigRcPtr load_config(const std::string& path) {
  if (!path.empty()) {
    try {
      return ocio::Config::CreateFromFile(path.c_str());
    } catch (const ocio::Exception& error) {
      refuse_config(path, error.what());
    }
  }
  std::istringstream text(built_in_config);
  return ocio::Config::CreateFromStream(text);
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

// One-dimensional tables are uploaded as images, and read through a function that interpolates.
ColorConversion::Table take_table_1d(const ocio::GpuShaderDesc& shader, unsigned index, std::string& text) {
  const char* name = nullptr;
  const char* sampler = nullptr;
  unsigned width = 0;
  unsigned height = 0;
  ocio::GpuShaderCreator::TextureType channels{};
  ocio::Interpolation interpolation{};
#if OCIO_VERSION_HEX >= 0x02050000
  ocio::GpuShaderCreator::TextureDimensions dimensions{};  // the text's sampler says the same
  shader.getTexture(index, name, sampler, width, height, channels, dimensions, interpolation);
#else
  shader.getTexture(index, name, sampler, width, height, channels, interpolation);
#endif
  const float* values = nullptr;
  shader.getTextureValues(index, values);

  ColorConversion::Table table{sampler, static_cast<int>(width), static_cast<int>(height), 1, {}};
  const size_t texels = size_t{width} * height;
  table.rgba.resize(4 * texels);
  if (channels == ocio::GpuShaderCreator::TEXTURE_RED_CHANNEL) {
    for (size_t i = 0; i < table.rgba.size(); ++i) table.rgba[i] = values[i / 4];
  } else {
    qv::nodes::ocio::rgb_to_rgba(values, texels, table.rgba.data());
  }
  replace_all(text, "sampler1D " + table.sampler, "sampler2D " + table.sampler);
  replace_all(text, "texture(" + table.sampler + ", ", "sample_lut1d(" + table.sampler + ", ");
  return table;
}

ColorConversion::Table take_table_3d(const ocio::GpuShaderDesc& shader, unsigned index, std::string& text) {
  const char* name = nullptr;
  const char* sampler = nullptr;
  unsigned edge = 0;
  ocio::Interpolation interpolation{};
  shader.get3DTexture(index, name, sampler, edge, interpolation);
  const float* values = nullptr;
  shader.get3DTextureValues(index, values);

  const int side = static_cast<int>(edge);
  ColorConversion::Table table{sampler, side, side, side, {}};
  const size_t texels = size_t{edge} * edge * edge;
  table.rgba.resize(4 * texels);
  qv::nodes::ocio::rgb_to_rgba(values, texels, table.rgba.data());
  if (interpolation != ocio::INTERP_NEAREST) qv::nodes::ocio::patch_lut3d(text, table.sampler);
  return table;
}

ColorConversion make_conversion(const std::string& path, const ConversionRecipe& recipe) {
  const ocio::ConstConfigRcPtr config = load_config(path);
  try {
    return generated_conversion(*config, recipe.make(*config), ocio::GPU_LANGUAGE_GLSL_4_0, "ocio_convert");
  } catch (const ocio::Exception& error) {
    throw std::runtime_error("knob \"" + recipe.knob + "\": " + error.what());
  }
}

}  // namespace

ColorConversion generated_conversion(const ocio::Config& config, const ocio::ConstTransformRcPtr& transform,
                                     ocio::GpuLanguage language, const std::string& function) {
  const auto processor = config.getProcessor(transform);
  // Nothing changes after the text is made, so parameters that could are constants in it.
  constexpr auto constant = static_cast<ocio::OptimizationFlags>(ocio::OPTIMIZATION_DEFAULT |
                                                                 ocio::OPTIMIZATION_NO_DYNAMIC_PROPERTIES);
  const auto gpu = processor->getOptimizedGPUProcessor(constant);
  ColorConversion conversion;
  conversion.id = gpu->getCacheID();
  conversion.is_noop = gpu->isNoOp();
  if (conversion.is_noop) return conversion;

  ocio::GpuShaderDescRcPtr shader = ocio::GpuShaderDesc::CreateShaderDesc();
  shader->setLanguage(language);
  shader->setFunctionName(function.c_str());
  shader->setResourcePrefix("ocio_");
  gpu->extractGpuShaderInfo(shader);
  conversion.generated = shader->getShaderText();
  for (unsigned i = 0; i < shader->getNumTextures(); ++i)
    conversion.tables.push_back(take_table_1d(*shader, i, conversion.generated));
  for (unsigned i = 0; i < shader->getNum3DTextures(); ++i)
    conversion.tables.push_back(take_table_3d(*shader, i, conversion.generated));
  return conversion;
}

std::shared_ptr<const ColorConversion> color_conversion(const std::string& config,
                                                        const ConversionRecipe& recipe) {
  constexpr size_t most = 64;
  static std::map<std::pair<ConfigVersion, std::string>, std::shared_ptr<const ColorConversion>> known;
  auto key = std::pair(find_config(config), recipe.name);
  const auto found = known.find(key);
  if (found != known.end()) return found->second;
  auto made = std::make_shared<const ColorConversion>(make_conversion(std::get<0>(key.first), recipe));
  if (known.size() == most) known.clear();
  known.emplace(std::move(key), made);
  return made;
}

void refuse_name(const std::string& knob, const std::string& what, const std::string& name,
                 const std::vector<std::string>& known) {
  std::string list;
  for (const std::string& each : known) list += (list.empty() ? "\"" : ", \"") + each + "\"";
  throw std::runtime_error("knob \"" + knob + "\": no " + what + " \"" + name + "\"" +
                           did_you_mean(name, known) + "; the config has " + list);
}

}  // namespace host::nodes
