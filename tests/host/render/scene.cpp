#include "tests/host/render/scene.h"

#include <stdexcept>
#include <utility>

#include <OpenImageIO/imageio.h>
#include <unistd.h>

namespace scene {

namespace {

struct Folder {
  std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("quorvel-render-" + std::to_string(getpid()));
  Folder() {
    std::filesystem::create_directories(path);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() {
    std::filesystem::remove_all(path);
  }
};

}  // namespace

host::gpu::GpuContext& gpu() {
  // Never ended: a driver that has been unloaded cannot be named where it leaks.
  static auto* const context =
      new host::gpu::GpuContext(host::gpu::GpuContext::open({host::gpu::DeviceChoice::Kind::software, 0}));
  return *context;
}

std::filesystem::path folder() {
  static const Folder folder;
  return folder.path;
}

Scene::Scene(const std::string& nodes, int width, int height, host::render::RenderOptions options)
    : composition_(host::shot::parse_composition(R"({"format": {"width": )" + std::to_string(width) +
                                                     R"(, "height": )" + std::to_string(height) +
                                                     R"(}, "frames": "1-10", "nodes": [)" + nodes + "]}",
                                                 folder() / "shot.json")),
      renderer_(std::make_unique<host::render::Renderer>(composition_, std::move(options), gpu())) {}

host::render::HostImage Scene::image(const std::string& node, int64_t frame) {
  const int at = composition_.find(node);
  if (at < 0) throw std::invalid_argument("no node " + node);
  return renderer_->image(at, frame);
}

std::string failure(Scene& shot, const std::string& node, int64_t frame) {
  try {
    shot.image(node, frame);
  } catch (const host::frame::FrameError& error) {
    return error.what();
  }
  return "";
}

std::array<float, 4> pixel(const host::render::HostImage& image, int64_t x, int64_t y) {
  const host::Box& window = image.extent.window;
  std::array<float, 4> rgba{};
  if (x < window[0] || x >= window[2] || y < window[1] || y >= window[3]) return rgba;
  const auto at = static_cast<size_t>((window[3] - 1 - y) * host::box_width(window) + (x - window[0])) * 4;
  for (size_t i = 0; i < 4; ++i) rgba[i] = image.rgba.at(at + i);
  return rgba;
}

void write_plate(const std::filesystem::path& file, const Plate& plate) {
  std::filesystem::create_directories(file.parent_path());
  OIIO::ImageSpec spec(plate.width, plate.height, static_cast<int>(plate.channels.size()),
                       OIIO::TypeDesc::FLOAT);
  spec.channelnames = plate.channels;
  spec.x = plate.x;
  spec.y = plate.y;
  spec.full_width = plate.full_width ? plate.full_width : plate.width;
  spec.full_height = plate.full_height ? plate.full_height : plate.height;
  const auto output = OIIO::ImageOutput::create(file.string());
  if (!output || !output->open(file.string(), spec) ||
      !output->write_image(OIIO::TypeDesc::FLOAT, plate.pixels.data()) || !output->close()) {
    throw std::runtime_error("cannot write " + file.string());
  }
}

}  // namespace scene
