// Renders in C++ what the rows render from Python, and prints what each call took in seconds, a line each.
// usage: render_peer COMPOSITION frame|frames FIRST LAST

#include <qv/transport/ring.h>

#include "host/base/allocator.h"
#include "host/gpu/gpu_context.h"
#include "host/render/image_sequence.h"
#include "host/render/renderer.h"
#include "host/shot/composition.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace {

namespace draw = host::draw;
namespace render = host::render;

template <class Work>
void time(Work&& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  std::cout << std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() << "\n";
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 5) return 2;
  host::keep_freed_memory();  // as the command does
  const auto shot =
      std::make_shared<const host::shot::Composition>(host::shot::read_composition(arguments[1]));
  auto device = host::gpu::GpuContext::open({host::gpu::DeviceChoice::Kind::software, 0});
  std::vector<int64_t> frames(static_cast<size_t>(std::atoll(arguments[4]) - std::atoll(arguments[3]) + 1));
  std::iota(frames.begin(), frames.end(), std::atoll(arguments[3]));
  const std::atomic<bool> stop = false;  // as the command has it
  const draw::ImageRequest request{shot->outputs.front(), draw::Area::format, 0, &stop};
  render::Renderer renderer(shot, {}, device);
  renderer.read(request, 0);
  if (arguments[2] == std::string("frame")) {
    for (const int64_t frame : frames) time([&] { renderer.read(request, frame); });
    return 0;
  }
  time([&] {
    const auto sequence = renderer.sequence(request, frames);
    while (sequence->draw_next([](const draw::FrameImage&, const std::string&) {})) {
    }
    qv::transport::wait_all();
  });
}
