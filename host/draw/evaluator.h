#pragma once

#include "host/base/memory_use.h"
#include "host/base/spans.h"
#include "host/draw/frame_image.h"
#include "host/draw/node_use.h"
#include "host/draw/result_store.h"
#include "host/draw/stats.h"
#include "host/frame/keyed_frame.h"
#include "host/gpu/timer.h"
#include "host/node/render_context.h"
#include "host/plan/targets.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <vector>

namespace host::draw {

// There is no room for an image that may not take that of what is pinned. It is nobody's fault.
struct NoRoom {};

// How an evaluation is done, beside what it is of.
struct Manner {
  const std::atomic<bool>* stop = nullptr;  // once set, ends it between two nodes; may be null
  std::vector<NodeUse>* uses = nullptr;     // filled, upstream first; may be null
  Spans* spans = nullptr;                   // told when each node is drawn; may be null
  // For later: what is used is not pinned, and nothing that is pinned is given up.
  bool spares_pinned = false;
  std::vector<int64_t> beside = {};  // keys of what stays pinned beside what is used
};

// Turns a keyed frame into the images of its outputs: takes what is stored, draws the rest, lets go
// of every image at its last reader. GL thread only.
class Evaluator {
 public:
  // Whether a result is worth keeping for later frames.
  using Keep = std::function<bool(int64_t key)>;

  // use: what all owners have, textures among them; memory: bytes that it may come to; timer: asked how long
  // the device draws, may be null.
  Evaluator(const shot::Composition& composition, const node::Project& project, gpu::TexturePool& pool,
            node::RenderContext& context, ResultStore& store, Stats& stats, MemoryUse use, uint64_t memory,
            gpu::Timer* timer);

  // How much of an output is wanted: a transform at the end of a graph is drawn no further.
  enum class Part { whole, in_format };

  // The outputs' images, settled, in the graph's order; `parts` names one an output. Throws
  // FrameError, MemoryLimit when one image alone is larger than the memory, ShaderError, Interrupted, and
  // NoRoom. Where somebody asks what nodes take, each is waited for; nothing is measured otherwise.
  std::vector<node::Image> evaluate(const frame::KeyedFrame& frame, const Keep& keep,
                                    const std::vector<Part>& parts, const Manner& manner = {});

 private:
  struct Run;

  void take_cached(Run& run, const qv::graph::ScheduleResult& plan);
  void compute(Run& run, size_t at);
  void compute_measured(Run& run, size_t at);
  Extent extent_of(Run& run, int asked);
  node::Image input_image(Run& run, const frame::Instance& reader, int read);
  const node::Image& settled(Run& run, size_t at, Part part = Part::whole);
  void bring_to_device(Run& run, size_t at);
  void make_room(const Run& run, const frame::Instance& instance, const Box& window);
  void hold_to_memory();
  void end_frame();

  const shot::Composition& composition_;
  const node::Project& project_;
  gpu::TexturePool& pool_;
  node::RenderContext& context_;
  ResultStore& store_;
  Stats& stats_;
  MemoryUse use_;
  uint64_t memory_;
  gpu::Timer* timer_;
};

// What of an image is drawn where this much of it is wanted.
Evaluator::Part part_of(Area area);

// Where the images of each target stand among plan::images_of, and what of them the files show.
std::vector<std::vector<size_t>> places_of(const std::vector<plan::Target>& targets, size_t outputs);
std::vector<Evaluator::Part> parts_of(const std::vector<plan::Target>& targets,
                                      const std::vector<std::vector<size_t>>& places);

}  // namespace host::draw
