#pragma once

#include "host/gpu/gpu_context.h"
#include "host/render/prediction.h"
#include "host/render/renderer.h"
#include "host/shot/composition.h"

#include <optional>
#include <string>

namespace host::cli {

// The value of --gpu. Throws UsageError.
gpu::DeviceChoice device_choice(const std::string& text);

// A device that is opened once somebody needs it.
class Device {
 public:
  explicit Device(const gpu::DeviceChoice& choice) : choice_(choice) {}

  // Throws gpu::NoGpu.
  gpu::GpuContext& context();

 private:
  gpu::DeviceChoice choice_;
  std::optional<gpu::GpuContext> context_;
};

// The memory of a run; nothing where there is no frame, or no device that could draw it.
std::optional<render::Prediction> predicted(const shot::Composition& composition,
                                            const render::RenderOptions& options, Device& device);

}  // namespace host::cli
