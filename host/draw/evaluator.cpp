#include "host/draw/evaluator.h"

#include "host/base/allocator.h"
#include "host/base/stopwatch.h"
#include "host/gpu/debug.h"
#include "host/gpu/gl_functions.h"
#include "host/node/pending_transform.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace host::draw {
namespace {

// Runs what a node does, for GPU debuggers a group under its name, putting file, node and frame in front
// of what it throws. A program that does not compile fails every frame alike and passes through.
template <class Work>
auto attempt(const shot::Composition& composition, const frame::Instance& instance, Work&& work) {
  try {
    const gpu::DebugGroup group(composition.nodes[static_cast<size_t>(instance.node)].name);
    auto result = work();
    gpu::check_errors();
    return result;
  } catch (const frame::FrameError&) {
    throw;
  } catch (const programs::ShaderError&) {
    throw;
  } catch (const std::exception& error) {
    throw frame::FrameError(composition, instance.node, instance.frame, error.what());
  }
}

// Times an evaluation: on the device, and on this thread without what it waits for files and moves
// pixels, which is counted elsewhere.
class DrawTime {
 public:
  DrawTime(gpu::Timer* timer, Stats& stats, const node::ContextTimes& elsewhere)
      : timer_(timer), stats_(stats), elsewhere_(elsewhere), before_(sum()), watch_(stats.draw_ms) {
    if (timer_) timer_->begin();
  }
  ~DrawTime() {
    if (timer_) timer_->end();
    stats_.draw_ms -= sum() - before_;
  }
  DrawTime(const DrawTime&) = delete;
  DrawTime& operator=(const DrawTime&) = delete;

 private:
  double sum() const {
    return elsewhere_.wait_decode_ms + elsewhere_.upload_ms;
  }

  gpu::Timer* timer_;
  Stats& stats_;
  const node::ContextTimes& elsewhere_;
  double before_;
  Stopwatch watch_;
};

// Which instances' images somebody draws with, however many nodes lie between that hand them on to files.
std::vector<uint8_t> drawn_with(const shot::Composition& composition, const frame::FrameGraph& graph) {
  std::vector<uint8_t> drawn(graph.instances.size());
  for (size_t at = graph.instances.size(); at-- > 0;) {
    const frame::Instance& instance = graph.instances[at];
    const node::NodeType& type = *composition.nodes[static_cast<size_t>(instance.node)].type;
    const bool draws = type.reads_pixels && (!type.writes_files || drawn[at]);
    for (const int read : instance.reads)
      if (read >= 0 && draws) drawn[static_cast<size_t>(read)] = 1;
  }
  return drawn;
}

// What was drawn while the flag went up may be half an image, which nobody may see.
void check(const std::atomic<bool>* stop) {
  if (stop && *stop) throw frame::Interrupted();
}

// Closes the touch cycle, where one is open, however the evaluation ends.
struct TouchCycle {
  ResultStore& store;
  const Manner& manner;
  TouchCycle(ResultStore& results, const Manner& how) : store(results), manner(how) {}
  TouchCycle(const TouchCycle&) = delete;
  TouchCycle& operator=(const TouchCycle&) = delete;
  ~TouchCycle() {
    if (!manner.spares_pinned) store.end_touch(manner.beside);
  }
};

uint64_t bytes_of(const Result& result) {
  uint64_t bytes = 0;
  for (const node::Image* image : {&result.image, &result.settled, &result.in_format}) {
    bytes += image->bytes();
  }
  return bytes;
}

}  // namespace

// What one evaluation knows of its instances, by their positions.
struct Evaluator::Run {
  const frame::KeyedFrame& frame;
  const Keep& keep;
  const Manner& manner;
  std::vector<uint8_t> drawn_with;             // by somebody, however many writers lie between
  std::vector<std::optional<Extent>> extents;  // of those that somebody asked about
  std::vector<ResultPtr> results;
  std::vector<std::optional<NodeUse>> uses;                  // of those that were needed; empty unless wanted
  std::vector<std::pair<node::Image, node::Image>> settled;  // pending, and drawn: for other readers
};

Evaluator::Evaluator(const shot::Composition& composition, const node::Project& project,
                     gpu::TexturePool& pool, node::RenderContext& context, ResultStore& store, Stats& stats,
                     MemoryUse use, uint64_t memory, gpu::Timer* timer)
    : composition_(composition),
      project_(project),
      pool_(pool),
      context_(context),
      store_(store),
      stats_(stats),
      use_(std::move(use)),
      memory_(memory),
      timer_(timer) {}

std::vector<node::Image> Evaluator::evaluate(const frame::KeyedFrame& frame, const Keep& keep,
                                             const std::vector<Part>& parts, const Manner& manner) {
  const DrawTime time(timer_, stats_, context_.times());
  const size_t count = frame.graph.instances.size();
  Run run{frame,
          keep,
          manner,
          drawn_with(composition_, frame.graph),
          std::vector<std::optional<Extent>>(count),
          std::vector<ResultPtr>(count),
          {},
          {}};
  if (manner.uses) run.uses.resize(count);
  const TouchCycle cycle(store_, manner);
  qv::graph::ScheduleResult plan = store_.plan(*frame.schedule, frame.keys, !manner.spares_pinned);

  // Take the cached results first: making room for the others may give them up in the store.
  take_cached(run, plan);
  for (const int at : plan.order) {
    const auto place = static_cast<size_t>(at);
    if (place == count || run.results[place]) continue;
    if (manner.uses || manner.spans) {
      compute_measured(run, place);
    } else {
      compute(run, place);
    }
    const frame::Instance& instance = frame.graph.instances[place];
    if (!composition_.nodes[static_cast<size_t>(instance.node)].type->reads_pixels) continue;
    for (const int read : instance.reads) {
      if (read >= 0 && --plan.uses[static_cast<size_t>(read)] == 0)
        run.results[static_cast<size_t>(read)].reset();
    }
  }

  std::vector<node::Image> images;
  for (size_t i = 0; i < parts.size(); ++i) {
    images.push_back(settled(run, static_cast<size_t>(frame.graph.outputs[i]), parts[i]));
  }
  end_frame();
  for (const std::optional<NodeUse>& use : run.uses) {
    if (use) manner.uses->push_back(*use);
  }
  return images;
}

void Evaluator::take_cached(Run& run, const qv::graph::ScheduleResult& plan) {
  for (const int at : plan.order) {
    const auto place = static_cast<size_t>(at);
    if (plan.cached[place] < 0) continue;
    run.results[place] = store_.at(plan.cached[place]);
    run.extents[place] = run.results[place]->extent;
    ++stats_.cache_hits;
    if (run.uses.empty()) continue;
    const frame::Instance& instance = run.frame.graph.instances[place];
    run.uses[place] = {composition_.nodes[static_cast<size_t>(instance.node)].name,
                       instance.frame,
                       true,
                       0,
                       run.frame.keys[place],
                       bytes_of(*run.results[place])};
  }
}

// Every driver puts draws off: only waiting for the node's tells what they took.
void Evaluator::compute_measured(Run& run, size_t at) {
  const frame::Instance& instance = run.frame.graph.instances[at];
  const std::string& name = composition_.nodes[static_cast<size_t>(instance.node)].name;
  const int64_t computed = stats_.computed;
  const auto begin = Spans::Clock::now();
  compute(run, at);
  gpu::gl.Finish();
  const auto end = Spans::Clock::now();
  if (run.manner.spans && stats_.computed != computed) {
    run.manner.spans->add(Work::drawing, name + " " + std::to_string(instance.frame), begin, end);
  }
  if (run.uses.empty()) return;
  run.uses[at] = {name,
                  instance.frame,
                  stats_.computed == computed,
                  std::chrono::duration<double, std::milli>(end - begin).count(),
                  run.frame.keys[at],
                  bytes_of(*run.results[at])};
}

void Evaluator::compute(Run& run, size_t at) {
  const frame::Instance& instance = run.frame.graph.instances[at];
  const int64_t key = run.frame.keys[at];
  // Two instances may be the same image, a still at two frames for one.
  if ((run.results[at] = store_.find(key, !run.manner.spares_pinned))) {
    run.extents[at] = run.results[at]->extent;
    ++stats_.cache_hits;
    return;
  }
  const node::Node& node = composition_.nodes[static_cast<size_t>(instance.node)];
  std::vector<node::Image> inputs;
  for (const int read : instance.reads) inputs.push_back(input_image(run, instance, read));
  auto result = std::make_shared<Result>();
  result->extent = extent_of(run, static_cast<int>(at));
  make_room(run, instance, result->extent.window);
  result->image = attempt(composition_, instance, [&] {
    const node::Call call = node.call_at(instance.frame, project_);
    context_.expect_draws(run.drawn_with[at]);
    node::Image image = node.type->operation->render(call, inputs, result->extent, context_);
    image.coverage = node.type->operation->coverage(call, inputs);
    image.metadata = node.type->operation->metadata(call, inputs);
    return image;
  });
  check(run.manner.stop);
  ++stats_.computed;
  if (run.keep(key)) store_.put(key, result, !run.manner.spares_pinned);
  run.results[at] = std::move(result);
  hold_to_memory();
}

// Asked for what is computed alone, and for images that are looked at without their pixels.
Extent Evaluator::extent_of(Run& run, int asked) {
  const std::vector<frame::Instance>& instances = run.frame.graph.instances;
  std::vector<int> unknown;
  const auto want = [&](int at) {
    if (at >= 0 && !run.extents[static_cast<size_t>(at)]) unknown.push_back(at);
  };
  want(asked);
  for (size_t i = 0; i < unknown.size(); ++i) {
    for (const int read : instances[static_cast<size_t>(unknown[i])].reads) want(read);
  }
  std::sort(unknown.begin(), unknown.end());
  for (const int at : unknown) {
    std::optional<Extent>& extent = run.extents[static_cast<size_t>(at)];
    if (extent) continue;
    std::vector<Extent> inputs;
    for (const int read : instances[static_cast<size_t>(at)].reads) {
      inputs.push_back(read < 0 ? Extent{project_.format, {}} : *run.extents[static_cast<size_t>(read)]);
    }
    extent = frame::instance_extent(composition_, instances[static_cast<size_t>(at)], inputs, project_);
  }
  return *run.extents[static_cast<size_t>(asked)];
}

node::Image Evaluator::input_image(Run& run, const frame::Instance& reader, int read) {
  if (read < 0) return {{project_.format, {}}, nullptr, nullptr};
  const auto at = static_cast<size_t>(read);
  const node::NodeType& type = *composition_.nodes[static_cast<size_t>(reader.node)].type;
  if (!type.reads_pixels) return {extent_of(run, read), nullptr, nullptr};
  // What an earlier evaluation left decoded somebody may draw with now.
  if (run.drawn_with[at]) bring_to_device(run, at);
  return type.takes_pending ? run.results[at]->image : settled(run, at);
}

void Evaluator::bring_to_device(Run& run, size_t at) {
  node::Image& image = run.results[at]->image;
  if (!image.decoded) return;
  const frame::Instance& instance = run.frame.graph.instances[at];
  make_room(run, instance, image.extent.window);
  image.texture = attempt(composition_, instance,
                          [&] { return context_.upload(image.extent, image.decoded->pixels).texture; });
  image.decoded.reset();
  const int64_t key = run.frame.keys[at];
  if (store_.contains(key)) store_.put(key, run.results[at], !run.manner.spares_pinned);
}

const node::Image& Evaluator::settled(Run& run, size_t at, Part part) {
  Result& result = *run.results[at];
  if (!result.image.pending) return result.image;
  node::Image& drawn = part == Part::whole ? result.settled : result.in_format;
  if (drawn.texture) return drawn;
  node::Image wanted = result.image;
  Box& window = wanted.extent.window;
  if (part == Part::in_format) window = intersection(window, format_box(wanted.extent.format));
  const auto known = std::find_if(run.settled.begin(), run.settled.end(), [&](const auto& each) {
    return each.first.pending == wanted.pending && each.first.extent.window == window;
  });
  if (known != run.settled.end()) {
    drawn = known->second;
  } else {
    const frame::Instance& instance = run.frame.graph.instances[at];
    make_room(run, instance, window);
    node::Image image = attempt(composition_, instance, [&] { return node::settle(wanted, context_); });
    check(run.manner.stop);
    drawn = std::move(image);
    run.settled.emplace_back(wanted, drawn);
    hold_to_memory();
  }
  drawn.metadata = wanted.metadata;
  const int64_t key = run.frame.keys[at];
  if (store_.contains(key)) store_.put(key, run.results[at], !run.manner.spares_pinned);
  return drawn;
}

void Evaluator::make_room(const Run& run, const frame::Instance& instance, const Box& window) {
  const uint64_t wanted = pixel_bytes(window);
  if (wanted > memory_) {
    throw frame::MemoryLimit(composition_, instance.node, instance.frame,
                             "its image of " + std::to_string(box_width(window)) + " x " +
                                 std::to_string(box_height(window)) + " pixels needs " +
                                 std::to_string(wanted) + " bytes, the memory limit is " +
                                 std::to_string(memory_));
  }
  const auto over = [&]() -> uint64_t {
    const uint64_t used = use_.now().sum() - pool_.bytes_idle() + wanted;
    return used - std::min(used, memory_);
  };
  const auto what = run.manner.spares_pinned ? ResultStore::GiveUp::unpinned : ResultStore::GiveUp::any;
  if (over() == 0) return;
  stats_.evicted += store_.shrink(store_.held() - std::min(store_.held(), over()), what);
  if (run.manner.spares_pinned && over() > 0) throw NoRoom();
}

Evaluator::Part part_of(Area area) {
  return area == Area::format ? Evaluator::Part::in_format : Evaluator::Part::whole;
}

std::vector<std::vector<size_t>> places_of(const std::vector<plan::Target>& targets, size_t outputs) {
  std::vector<std::vector<size_t>> places;
  size_t next = outputs;
  for (size_t i = 0; i < targets.size(); ++i) {
    places.push_back({i});
    for (size_t layer = 1; layer < targets[i].file.layers.size(); ++layer) places[i].push_back(next++);
  }
  return places;
}

std::vector<Evaluator::Part> parts_of(const std::vector<plan::Target>& targets,
                                      const std::vector<std::vector<size_t>>& places) {
  size_t count = 0;
  for (const auto& each : places) count = std::max(count, 1 + *std::max_element(each.begin(), each.end()));
  std::vector<Evaluator::Part> parts(count);
  for (size_t i = 0; i < targets.size(); ++i) {
    for (const size_t at : places[i])
      parts[at] = targets[i].file.overscan ? Evaluator::Part::whole : Evaluator::Part::in_format;
  }
  return parts;
}

// A filter's scratch textures and those that wait for their next use are worth keeping only while
// there is room for them.
void Evaluator::hold_to_memory() {
  const uint64_t spare = pool_.bytes_idle() + context_.scratch_bytes();
  const uint64_t room = memory_ - std::min(memory_, use_.now().sum() - spare);
  context_.trim_scratch(room);
  pool_.trim(room - std::min(room, context_.scratch_bytes()));
}

void Evaluator::end_frame() {
  const uint64_t before = pool_.bytes_idle() + context_.scratch_bytes();
  pool_.end_frame();
  context_.end_frame();
  // Textures of sizes that do not come again, in the memory of the process, leave holes that fit nothing
  // else.
  if (!timer_ && pool_.bytes_idle() + context_.scratch_bytes() < before) return_freed_memory();
}

}  // namespace host::draw
