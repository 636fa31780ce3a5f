#pragma once

#include <qv/gpu/registry.h>

#include "host/base/memory_use.h"
#include "host/base/notices.h"
#include "host/frame/keyed_frame.h"
#include "host/frame/targets.h"
#include "host/gpu/texture_pool.h"
#include "host/node/render_context.h"
#include "host/plates/sources.h"
#include "host/programs/shader_library.h"
#include "host/render/evaluator.h"
#include "host/render/limits.h"
#include "host/render/read_back.h"
#include "host/render/renderer.h"
#include "host/render/result_store.h"

#include <cstdint>
#include <memory>

namespace host::render {

// What a renderer is made of, each part for those below it.
struct Renderer::State {
  State(const shot::Composition& composition, RenderOptions options, gpu::GpuContext& context);
  ~State();
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Brings the counters that others keep into the statistics.
  void gather_stats();

  const shot::Composition& composition;
  RenderOptions options;
  gpu::GpuContext& gpu;
  const Limits limits;
  const MemoryUse use;
  Stats stats;
  Notices notices;
  std::shared_ptr<plates::Headers> headers;
  node::Project project;
  plates::Decoder decoder;
  programs::ShaderLibrary shaders;
  gpu::TexturePool pool;
  node::RenderContext context;
  frame::Targets targets;
  ResultStore store;
  BufferPool buffers;  // of images on their way to files
  Evaluator evaluator;
  frame::FrameKeys keys;         // of the composition's outputs
  frame::FrameKeys single_keys;  // of whatever image() asks for
  qv::gpu::Stats gpu_before;
  uint64_t scratch_before;
  uint64_t read_back_before;
};

}  // namespace host::render
