#include "host/cli/device.h"

#include "host/cli/options.h"
#include "host/programs/shader_library.h"

#include <stdexcept>

namespace host::cli {

gpu::DeviceChoice device_choice(const std::string& text) {
  try {
    return gpu::parse_device(text);
  } catch (const std::invalid_argument& error) {
    throw UsageError(std::string("--gpu: ") + error.what());
  }
}

gpu::GpuContext& Device::context() {
  if (!context_) context_.emplace(gpu::GpuContext::open(choice_));
  return *context_;
}

std::optional<render::Prediction> predicted(const shot::Composition& composition,
                                            const render::RenderOptions& options, Device& device) {
  if (options.frames.empty()) return std::nullopt;
  try {
    return render::predict(composition, options, device.context());
  } catch (const gpu::NoGpu&) {
    return std::nullopt;
  } catch (const programs::ShaderError&) {
    return std::nullopt;  // as a driver's without GL 4.2 in full; who renders is told
  }
}

}  // namespace host::cli
