#pragma once

#include "host/base/spans.h"
#include "host/draw/frame_image.h"
#include "host/draw/stats.h"
#include "host/frame/frame_error.h"
#include "host/gpu/gpu_context.h"
#include "host/plan/existing.h"
#include "host/plates/headers.h"
#include "host/render/progress.h"
#include "host/shot/composition.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace host::render {

class ImageSequence;
class Viewing;

// What holds for as long as a renderer lives.
struct RendererOptions {
  double scale = 1;                          // --proxy, above 0 and at most 1
  int threads = 0;                           // decoders and encoders; 0: one a processor
  uint64_t memory = uint64_t{2} << 30;       // bytes of images kept; what one node works on may go beyond
  bool by_content = false;                   // --content: files that are read are known by their bytes
  std::shared_ptr<plates::Headers> headers;  // what is known of files already; null: nothing
  std::shared_ptr<Spans> spans;              // told what is worked on when; null: nobody asks
};

// What is asked of one run.
struct RunOptions {
  std::vector<int64_t> frames;       // in the order to render; empty: the composition's
  std::vector<std::string> outputs;  // each as -o: in place of the composition's paths
  plan::Existing existing = plan::Existing::refuse;
  std::set<int64_t> kept;                   // with Existing::current: frames whose files stay
  std::map<int64_t, std::string> stale;     // frames that fail for what stands in their place, and why
  bool keep_going = false;                  // a failed frame does not end the run
  const std::atomic<bool>* stop = nullptr;  // set from a signal handler: ends within a second
};

struct RenderOptions : RendererOptions, RunOptions {};

// Renders frames of one composition: for each, the graph of (node, frame) instances, a walk for what
// changed, a schedule against the result cache, decodes ahead of need, draws, read-back through the
// transfer ring, files from the writer's thread. Results stay cached from frame to frame up to the
// memory budget. Needs the GPU context current on its thread, which outlives it.
// GL thread only; several may live there and be asked in turn. Every queue is bounded: memory does not grow
// with the number of frames.
class Renderer {
 public:
  using CompositionPtr = std::shared_ptr<const shot::Composition>;

  // Throws ShaderError, or std::runtime_error when the context lacks what the transfer ring needs.
  Renderer(CompositionPtr composition, const RendererOptions& options, gpu::GpuContext& context);
  ~Renderer();
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  // Takes another composition over, the one before with edits or any. What is cached stays: a result is known
  // by what it was made of, so an edit costs what lies downstream of it, in looking at nodes too as long as
  // they are as many and of the same types.
  void replace(CompositionPtr composition);

  // Renders every frame and writes its files, then reports; failed frames go to `progress`. Throws
  // only what makes every frame impossible: TargetError, ShaderError.
  Outcome run(const RunOptions& options, Progress& progress);

  // One node's image at one frame; waits for its pixels. Throws FrameError, MemoryBudget, ShaderError,
  // Interrupted. Results stay cached, because nothing is known of what will be asked for next.
  draw::FrameImage read(const draw::ImageRequest& request, int64_t frame);

  // The same for one frame after another, see image_sequence.h. The renderer outlives it; what it draws is of
  // the composition as it is now.
  std::unique_ptr<ImageSequence> sequence(const draw::ImageRequest& request, std::vector<int64_t> frames);

  // Images at somebody's wish, see viewing.h. The renderer outlives it.
  std::unique_ptr<Viewing> viewing();

  const RendererOptions& options() const;
  const draw::Stats& stats() const;

  // The images that somebody holds.
  const draw::HeldImages& held() const;

  // What a person should be told of what was read, as Progress::notice has it of runs; each text once.
  std::vector<std::string> take_notices();

  struct State;

 private:
  std::unique_ptr<State> state_;
};

}  // namespace host::render
