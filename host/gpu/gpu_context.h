#pragma once

#include <memory>
#include <stdexcept>
#include <string>

namespace host::gpu {

// Which device to render on, the value of --gpu.
struct DeviceChoice {
  enum class Kind { automatic, software, index } kind = Kind::automatic;
  int index = 0;  // of the devices that EGL lists, for Kind::index
};

// "auto", "software" or a device number. Throws std::invalid_argument that names the text.
DeviceChoice parse_device(const std::string& text);

// No usable GL: the text lists every device and platform that was tried and why each failed.
class NoGpu : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The driver has let go of the context, see GpuContext::lost.
class ContextLost : public std::runtime_error {
 public:
  ContextLost() : std::runtime_error("the device was reset") {}
};

// An OpenGL 4.2 core context without a window, current on the thread that opened it until it is
// destroyed there, with the library's entry points loaded for it. Tries the EGL device platform
// first (a real GPU needs no display server), then the surfaceless platform.
// GL thread only. One at a time in a process: the library's tables are process-wide.
class GpuContext {
 public:
  // Throws NoGpu.
  static GpuContext open(const DeviceChoice& choice);

  GpuContext(GpuContext&&) noexcept;
  GpuContext& operator=(GpuContext&&) noexcept;
  ~GpuContext();

  const std::string& renderer() const;  // GL_RENDERER, to show
  bool software() const;                // rendered by the processor
  int max_texture_size() const;

  // Whether the driver has let go of everything that was made in it, as after a device's reset: nothing that
  // is drawn from now on is right. False where the driver cannot be asked.
  bool lost() const;

 private:
  struct State;
  explicit GpuContext(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace host::gpu
