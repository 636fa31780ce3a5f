#include "tests/host/render/scene.h"

#include "tests/support/files.h"
#include "tests/support/images.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <gtest/gtest.h>

namespace scene {

host::gpu::GpuContext& gpu() {
  // Never ended: a driver that has been unloaded cannot be named where it leaks.
  static auto* const context =
      new host::gpu::GpuContext(host::gpu::GpuContext::open({host::gpu::DeviceChoice::Kind::software, 0}));
  return *context;
}

std::filesystem::path folder() {
  static const std::filesystem::path folder = support::new_folder();
  return folder;
}

Scene::Scene(const std::string& nodes, int width, int height, host::render::RenderOptions options)
    : composition_(std::make_shared<const host::shot::Composition>(host::shot::parse_composition(
          R"({"format": {"width": )" + std::to_string(width) + R"(, "height": )" + std::to_string(height) +
              R"(}, "frames": "1-10", "nodes": [)" + nodes.substr(nodes.starts_with(",") ? 1 : 0) + "]}",
          folder() / "shot.json"))),
      options_(std::move(options)),
      renderer_(std::make_unique<host::render::Renderer>(composition_, options_, gpu())) {}

HostImage Scene::image(const std::string& node, int64_t frame) {
  const int at = composition_->find(node);
  if (at < 0) throw std::invalid_argument("no node " + node);
  const host::draw::FrameImage read = renderer_->read({at, host::draw::Area::window}, frame);
  HostImage image{read.extent, {}};
  const auto pixels = static_cast<size_t>(host::box_width(read.area) * host::box_height(read.area));
  if (read.pixels) image.rgba.assign(read.pixels.get(), read.pixels.get() + 4 * pixels);
  return image;
}

void render(const std::string& nodes, int width, int height, host::render::RenderOptions options) {
  if (options.frames.empty()) options.frames = {1};
  options.existing = host::plan::Existing::overwrite;
  Recorder recorder;
  const auto outcome = Scene(nodes, width, height, std::move(options)).run(recorder);
  ASSERT_EQ(outcome, host::render::Outcome::done) << recorder.frames.back().error;
}

std::vector<std::string> told(const std::string& program, const std::filesystem::path& file,
                              std::vector<std::string> without) {
  const std::filesystem::path out = folder() / "told";
  const std::string line = program + " '" + file.string() + "' >" + out.string() + " 2>&1";
  if (std::system(line.c_str()) != 0) throw std::runtime_error(line + ": " + support::bytes_of(out));
  without.push_back(file.string());
  std::istringstream text(support::bytes_of(out));
  std::vector<std::string> lines;
  for (std::string each; std::getline(text, each);) {
    const auto has = [&each](const std::string& part) { return each.find(part) != std::string::npos; };
    if (std::none_of(without.begin(), without.end(), has)) lines.push_back(each);
  }
  return lines;
}

Rgba pixel(const HostImage& image, int64_t x, int64_t y) {
  const host::Box& window = image.extent.window;
  Rgba rgba{};
  if (x < window[0] || x >= window[2] || y < window[1] || y >= window[3]) return rgba;
  const auto at = static_cast<size_t>((window[3] - 1 - y) * host::box_width(window) + (x - window[0])) * 4;
  for (size_t i = 0; i < 4; ++i) rgba[i] = image.rgba.at(at + i);
  return rgba;
}

Plate noise(std::mt19937& random, int width, int height, std::vector<std::string> channels) {
  Plate plate{width, height, std::move(channels)};
  plate.pixels.resize(static_cast<size_t>(width * height) * plate.channels.size());
  std::uniform_real_distribution<float> value(0, 1);
  for (float& each : plate.pixels) each = value(random);
  return plate;
}

void write_plate(const std::filesystem::path& file, const Plate& plate) {
  OIIO::ImageSpec spec(plate.width, plate.height, static_cast<int>(plate.channels.size()),
                       OIIO::TypeDesc::FLOAT);
  spec.channelnames = plate.channels;
  spec.x = plate.x;
  spec.y = plate.y;
  spec.full_width = plate.full_width ? plate.full_width : plate.width;
  spec.full_height = plate.full_height ? plate.full_height : plate.height;
  support::write_image(folder() / file, spec, plate.pixels);
}

void write_numbered(const std::string& file, int width, int height) {
  Plate plate{width, height};
  for (int row = height; row-- > 0;)
    for (int x = 0; x < width; ++x)
      plate.pixels.insert(plate.pixels.end(), 4, static_cast<float>(1 + x + 10 * row));
  write_plate(file, plate);
}

std::string node(const std::string& name, const std::string& input, const std::string& type,
                 const std::string& knobs) {
  const bool by_name = input.find_first_of("[{\"") == std::string::npos;
  return R"(, {"name": ")" + name + R"(", "inputs": )" + (by_name ? '"' + input + '"' : input) +
         R"(, "type": ")" + type + R"(", "knobs": {)" + knobs + "}}";
}

std::string read_plate(const std::string& file, const std::string& name) {
  return node(name, "[]", "read", R"("file": ")" + file + '"');
}

std::string write_node(const std::string& input, const std::string& file, const std::string& knobs) {
  return node("out " + file, input, "write",
              R"("file": ")" + file + '"' + (knobs.empty() ? "" : ", ") + knobs);
}

std::string constant(const std::string& name, const Rgba& color) {
  std::string list;
  for (const float channel : color) list += (list.empty() ? "" : ", ") + std::to_string(channel);
  return node(name, "[]", "constant", R"("color": [)" + list + "]");
}

}  // namespace scene
