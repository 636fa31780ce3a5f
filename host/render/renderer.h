#pragma once

#include "host/base/extent.h"
#include "host/frame/existing.h"
#include "host/frame/frame_error.h"
#include "host/gpu/gpu_context.h"
#include "host/plates/headers.h"
#include "host/render/progress.h"
#include "host/render/stats.h"
#include "host/shot/composition.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace host::render {

struct RenderOptions {
  std::vector<int64_t> frames;          // in the order to render; empty: the composition's
  std::vector<std::string> outputs;     // each as -o: in place of the composition's paths
  double scale = 1;                     // --proxy, above 0 and at most 1
  int threads = 0;                      // decoders and encoders; 0: one a processor
  uint64_t memory = uint64_t{2} << 30;  // bytes of images kept; what one node works on may go beyond
  frame::Existing existing = frame::Existing::refuse;
  std::set<int64_t> kept;                    // with Existing::current: frames whose files stay
  bool by_content = false;                   // --content: files that are read are known by their bytes
  std::map<int64_t, std::string> stale;      // frames that fail for what stands in their place, and why
  bool keep_going = false;                   // a failed frame does not end the run
  std::shared_ptr<plates::Headers> headers;  // what is known of files already; null: nothing
  const std::atomic<bool>* stop = nullptr;   // set from a signal handler: ends within a second
};

// Pixels in host memory: RGBA float, rows top to bottom, the window's size.
struct HostImage {
  Extent extent;
  std::vector<float> rgba;
};

// Renders frames of one composition: for each, the graph of (node, frame) instances, a walk for what
// changed, a schedule against the result cache, decodes ahead of need, draws, read-back through the
// transfer ring, files from the writer's thread. Results stay cached from frame to frame up to the
// memory budget. Needs the GPU context current on its thread; composition and context outlive it.
// GL thread only. Every queue is bounded: memory does not grow with the number of frames.
class Renderer {
 public:
  // Throws ShaderError, TargetError, or std::runtime_error when the context lacks what the transfer ring
  // needs.
  Renderer(const shot::Composition& composition, RenderOptions options, gpu::GpuContext& context);
  ~Renderer();
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  // Renders every frame and writes its files, then reports; failed frames go to `progress`. Throws
  // only what makes every frame impossible: TargetError, ShaderError.
  Outcome run(Progress& progress);

  // One node's image at one frame, for tests and for looking at; its whole window. Throws FrameError.
  HostImage image(int node, int64_t frame);

  const Stats& stats() const;

  struct State;

 private:
  std::unique_ptr<State> state_;
};

}  // namespace host::render
