#pragma once

#include "host/gpu/gpu_context.h"
#include "host/render/progress.h"
#include "host/render/renderer.h"
#include "host/shot/composition.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace scene {

using Rgba = std::array<float, 4>;

// The process's GPU context on the software device, so that results do not depend on the machine.
host::gpu::GpuContext& gpu();

// A folder of this process, empty at first and removed at its end.
std::filesystem::path folder();

// Pixels in host memory: RGBA float, rows top to bottom, the window's size.
struct HostImage {
  host::Extent extent;
  std::vector<float> rgba;
};

// A composition with a renderer, as a text under `folder()`; `nodes` is the inside of its list, which may
// begin with a comma.
class Scene {
 public:
  explicit Scene(const std::string& nodes, int width = 8, int height = 8,
                 host::render::RenderOptions options = {});

  // The image of a node by name; its pixels in `rgba`, rows top to bottom.
  HostImage image(const std::string& node, int64_t frame = 1);

  // Renders its frames to files.
  host::render::Outcome run(host::render::Progress& progress) {
    return renderer_->run(options_, progress);
  }

  host::render::Renderer& renderer() {
    return *renderer_;
  }
  const host::shot::Composition& composition() const {
    return *composition_;
  }

 private:
  std::shared_ptr<const host::shot::Composition> composition_;
  host::render::RenderOptions options_;
  std::unique_ptr<host::render::Renderer> renderer_;
};

// The names of colour and alpha, as files have them.
inline const std::vector<std::string> rgba_names = {"R", "G", "B", "A"};

// Keeps what a render says.
struct Recorder : host::render::Progress {
  std::vector<host::render::FrameReport> frames;
  host::draw::Stats stats;
  std::function<void(const host::render::FrameReport&)> on_frame;

  void begin(int64_t /*frames*/, const std::string& /*renderer*/, bool /*software*/) override {}
  void notice(const std::string& /*text*/) override {}
  void frame(const host::render::FrameReport& report) override {
    frames.push_back(report);
    if (on_frame) on_frame(report);
  }
  void end(host::render::Outcome /*outcome*/, const host::draw::Stats& all) override {
    stats = all;
  }
};

// Renders frame 1, or those of the options, to files, all of which must stand in the end, whatever stood
// there.
void render(const std::string& nodes, int width = 8, int height = 8,
            host::render::RenderOptions options = {});

// What a program says of a file, a line each, without lines that hold any of `without` or the file's path.
// Throws where the program fails.
std::vector<std::string> told(const std::string& program, const std::filesystem::path& file,
                              std::vector<std::string> without = {});

// The pixel at knob coordinates (x, y), transparent black outside the window.
Rgba pixel(const HostImage& image, int64_t x, int64_t y);

// Writes an image of float channels, rows top to bottom, at (x, y) of a display window; the file under
// `folder()` where its path is not whole.
struct Plate {
  int width = 8;
  int height = 8;
  std::vector<std::string> channels = rgba_names;
  std::vector<float> pixels = {};
  int x = 0;  // of the data window in the display window, y down
  int y = 0;
  int full_width = 0;  // 0: the data window's
  int full_height = 0;
};
void write_plate(const std::filesystem::path& file, const Plate& plate);

// A plate of random values from 0 to 1.
Plate noise(std::mt19937& random, int width, int height, std::vector<std::string> channels = rgba_names);

// A plate whose pixel (x, y), y up, holds 1 + x + 10 y in every channel, as a file under `folder()`.
void write_numbered(const std::string& file, int width, int height);

// Texts of nodes, each behind a comma: one that reads a file; one that writes it, named "out FILE"; a
// constant; and any. `input` is a name, or a list or object as it stands, and `knobs` the inside of the
// knobs.
std::string read_plate(const std::string& file, const std::string& name = "p");
std::string write_node(const std::string& input, const std::string& file, const std::string& knobs = "");
std::string constant(const std::string& name, const Rgba& color);
std::string node(const std::string& name, const std::string& input, const std::string& type,
                 const std::string& knobs);

}  // namespace scene
