#pragma once

#include <qv/gpu/registry.h>

#include "host/base/memory_use.h"
#include "host/base/notices.h"
#include "host/decode/sources.h"
#include "host/draw/evaluator.h"
#include "host/draw/held_images.h"
#include "host/draw/limits.h"
#include "host/draw/read_back.h"
#include "host/draw/result_store.h"
#include "host/frame/keyed_frame.h"
#include "host/gpu/stoppable_draws.h"
#include "host/gpu/texture_pool.h"
#include "host/gpu/timer.h"
#include "host/node/render_context.h"
#include "host/programs/shader_library.h"
#include "host/render/renderer.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace host::render {

// What is rendered: a composition at a scale.
struct Subject {
  // before: of an earlier composition at the same scale, whose knowledge of what nodes are it takes over; may
  // be null.
  Subject(Renderer::State& renderer, Renderer::CompositionPtr composition, double scale,
          Subject* before = nullptr);
  ~Subject();
  Subject(const Subject&) = delete;
  Subject& operator=(const Subject&) = delete;

  // Tells what a person should know of a frame, whose files are on their way.
  void notice(const frame::KeyedFrame& frame);

  // Instances whose keys were worked out.
  int64_t visited() const;

  Renderer::State& renderer;
  const Renderer::CompositionPtr held;
  const shot::Composition& composition;
  const node::Project project;
  draw::Evaluator evaluator;
  frame::FrameKeys keys;         // of the composition's outputs
  frame::FrameKeys single_keys;  // of whatever node is asked for by itself
  frame::FrameKeys later_keys;   // of such a one at frames that are not drawn yet
  bool colors_noted = false;
};
using SubjectPtr = std::shared_ptr<Subject>;

// The process's transfer ring, ready while there is one of these.
class RingUser {
 public:
  // buffers: how many it has from now on, if it is this one that makes it ready.
  explicit RingUser(int buffers);
  ~RingUser();
  RingUser(const RingUser&) = delete;
  RingUser& operator=(const RingUser&) = delete;
};

// What a renderer is made of whatever it renders, each part for those below it; and what it renders.
struct Renderer::State {
  State(CompositionPtr composition, RendererOptions options, gpu::GpuContext& context);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Brings the counters that others keep into the statistics.
  void gather_stats();

  // Of the composition at a scale. That of the renderer stays, and the last few of other scales.
  const SubjectPtr& at_scale(double scale);

  // Starts reading an image of a frame; returns as read_back. Throws MemoryBudget.
  uint64_t send(const Subject& of, const draw::ImageRequest& request, int64_t frame, const node::Image& image,
                draw::ImageDone done);

  const RendererOptions options;
  gpu::GpuContext& gpu;
  const draw::Limits limits;
  const MemoryUse use;
  draw::Stats stats;
  Notices notices;
  std::shared_ptr<plates::Headers> headers;
  std::optional<gpu::Timer> timer;  // of a device with a clock of its own
  decode::Decoder decoder;
  programs::ShaderLibrary shaders;
  gpu::TexturePool pool;
  node::RenderContext context;
  draw::ResultStore store;
  draw::BufferPool buffers;  // of images on their way to files
  draw::BufferPool views;    // of those that are handed out
  draw::HeldImages held;
  Account ring;
  const RingUser ring_user;    // behind everything that its callbacks fill
  int64_t visited_before = 0;  // by subjects that are gone
  SubjectPtr subject;
  std::vector<SubjectPtr> scaled;  // at other scales, the last used first; of older compositions, some
};

// A renderer's turn: while it lives what the process has but one of serves this renderer, and draws end once
// `stop`, which may be null, is set. One at a time.
class Turn {
 public:
  Turn(Renderer::State& renderer, const std::atomic<bool>* stop);
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Renderer::State& renderer_;
  std::optional<gpu::StoppableDraws> stoppable_;
  qv::gpu::Stats gpu_before_;
  uint64_t scratch_before_;
};

}  // namespace host::render
