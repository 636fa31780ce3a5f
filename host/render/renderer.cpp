#include "host/render/renderer.h"

#include <qv/nodes/filter/scratch.h>
#include <qv/transport/ring.h>

#include "host/base/stopwatch.h"
#include "host/draw/upcoming.h"
#include "host/frame/colors.h"
#include "host/frame/frame_notices.h"
#include "host/frame/project.h"
#include "host/programs/program_binaries.h"
#include "host/render/image_sequence.h"
#include "host/render/renderer_state.h"
#include "host/render/viewing.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace host::render {
namespace {

namespace filter = qv::nodes::filter;

constexpr size_t most_scales = 4;

std::string place_name(const draw::FrameImage& image) {
  return image.node + " " + std::to_string(image.frame);
}

int ring_users = 0;  // on the GL thread

frame::FrameKeys keys_of(const shot::Composition& composition, const node::Project& project,
                         frame::FrameKeys* before) {
  if (!before) return {composition, project};
  return {composition, project, std::move(*before)};
}

}  // namespace

// Told first: once ready the ring gives no buffer up.
RingUser::RingUser(int buffers) {
  std::string error;
  qv::transport::set_ring_size(buffers);
  if (!qv::transport::init(&error)) {
    const std::string text = "images cannot be read back: " + error;
    if (!error.starts_with("no background thread")) throw std::runtime_error(text);
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), text);
  }
  ++ring_users;
}

RingUser::~RingUser() {
  if (--ring_users == 0) qv::transport::close();
}

Subject::Subject(Renderer::State& of, Renderer::CompositionPtr shot, double scale, Subject* before)
    : renderer(of),
      held(std::move(shot)),
      composition(*held),
      project(frame::make_project(composition, scale, *of.headers, of.options.by_content)),
      evaluator(composition, project, of.pool, of.context, of.store, of.stats, of.use, of.options.memory,
                of.timer ? &*of.timer : nullptr),
      keys(keys_of(composition, project, before ? &before->keys : nullptr)),
      single_keys(keys_of(composition, project, before ? &before->single_keys : nullptr)),
      later_keys(keys_of(composition, project, before ? &before->later_keys : nullptr)) {}

Subject::~Subject() {
  renderer.visited_before += visited();
}

int64_t Subject::visited() const {
  return keys.visited() + single_keys.visited() + later_keys.visited();
}

void Subject::notice(const frame::KeyedFrame& frame) {
  const auto add = [this](const std::vector<std::string>& texts) {
    for (const std::string& text : texts) renderer.notices.add(text);
  };
  if (!std::exchange(colors_noted, true)) add(frame::color_notices(composition, project, frame.graph.frame));
  add(frame::frame_notices(composition, frame.graph, project));
}

Renderer::State::State(CompositionPtr composition, RendererOptions given, gpu::GpuContext& gpu_context)
    : options(std::move(given)),
      gpu(gpu_context),
      limits(options.threads, options.memory, gpu.software()),
      use(!gpu.software()),
      headers(options.headers ? options.headers : std::make_shared<plates::Headers>()),
      decoder(*headers, limits.threads, limits.decoded_bytes, notices, use, options.spans.get()),
      shaders(programs::ShaderLibrary::default_root(), programs::ProgramBinaries::default_folder()),
      pool(options.memory, gpu.max_texture_size(), use),
      context(shaders, pool, decoder, use),
      buffers(static_cast<size_t>(limits.threads), limits.strip_bytes, use),
      views(draw::images_ahead + 1, limits.strip_bytes, use),
      held(options.memory),
      ring(use, Owner::ring),
      ring_user(limits.ring) {
  headers->hold_to(gpu.max_texture_size());
  if (gpu.software()) {
    shaders.widen_blurs();
  } else {
    timer.emplace();
  }
  subject = std::make_shared<Subject>(*this, std::move(composition), options.scale);
}

Renderer::State::~State() {
  // Its sampler goes with the pool of textures.
  filter::scratch_trim(0);
  filter::scratch_sampler(0);
}

const SubjectPtr& Renderer::State::at_scale(double scale) {
  if (scale == 0 || scale == options.scale) return subject;
  const auto known = std::find_if(scaled.begin(), scaled.end(),
                                  [scale](const SubjectPtr& each) { return each->project.scale == scale; });
  if (known != scaled.end()) {
    std::rotate(scaled.begin(), known, known + 1);
  } else {
    if (scaled.size() == most_scales) scaled.pop_back();
    scaled.insert(scaled.begin(), nullptr);
  }
  SubjectPtr& first = scaled.front();
  if (!first || first->held != subject->held)
    first = std::make_shared<Subject>(*this, subject->held, scale, first.get());
  return first;
}

uint64_t Renderer::State::send(const Subject& of, const draw::ImageRequest& request, int64_t frame,
                               const node::Image& image, draw::ImageDone done) {
  const Extent& extent = image.extent;
  draw::FrameImage sent;
  sent.node = of.composition.nodes[static_cast<size_t>(request.node)].name;
  sent.frame = frame;
  sent.extent = extent;
  sent.area = request.area == draw::Area::format ? format_box(extent.format)
                                                 : draw::read_window(image, extent.window);
  sent.extent.window = draw::read_window(image, sent.area);
  sent.coverage = image.coverage;
  sent.metadata = image.metadata;
  if (is_empty(sent.area)) {
    done(std::move(sent), "");
    return 0;
  }
  const Box area = sent.area;
  const auto counted = held.hold(
      {sent.node, frame,
       uint64_t{16} * static_cast<uint64_t>(box_width(area)) * static_cast<uint64_t>(box_height(area))});
  const std::string place = frame::frame_place(of.composition, request.node, frame);
  const auto arrived = [sent = std::move(sent), counted, place, done = std::move(done), spans = options.spans,
                        begin = Spans::Clock::now()](const draw::ReadBack& read) {
    draw::FrameImage whole = sent;
    if (spans) spans->add(Work::read_back, place_name(sent), begin, Spans::Clock::now());
    if (!read.rgba) return done(std::move(whole), place + "the image could not be read back from the device");
    whole.pixels = {read.rgba.get(), [rgba = read.rgba, counted](const float*) {}};
    done(std::move(whole), "");
  };
  const uint64_t ticket =
      draw::read_back(image, area, draw::Outside::transparent, views, draw::unlimited, arrived);
  ring.set(qv::transport::stats().held);
  return ticket;
}

void Renderer::State::gather_stats() {
  const decode::DecoderStats files = decoder.stats();
  stats.gpu_ms = timer ? timer->total_ms(true) : stats.draw_ms;
  stats.visited = visited_before + subject->visited();
  for (const SubjectPtr& each : scaled) stats.visited += each->visited();
  stats.programs_compiled = shaders.made().compiled;
  stats.programs_restored = shaders.made().restored;
  stats.bytes_read_back = buffers.bytes_read() + views.bytes_read();
  stats.files_read = files.files;
  const Holdings peaks = use.peaks();
  stats.peak_texture_bytes = peaks.of(Owner::device);
  stats.peak_decoded_bytes = peaks.of(Owner::decoded);
  stats.peak_ring_bytes = peaks.of(Owner::ring);
  stats.peak_sent_bytes = peaks.of(Owner::sent);
  stats.peak_encoder_bytes = peaks.of(Owner::encoders);
  stats.peak_bytes = use.at_most().sum();
  stats.decode_ms = files.decode_ms;
  stats.wait_decode_ms = context.times().wait_decode_ms;
  stats.upload_ms = context.times().upload_ms;
}

Turn::Turn(Renderer::State& renderer, const std::atomic<bool>* stop) : renderer_(renderer) {
  const uint64_t scratch_cap = renderer.options.memory / 4;
  qv::transport::set_ring_size(renderer.limits.ring);
  filter::scratch_sampler(renderer.pool.sampler());
  filter::scratch_cap(scratch_cap);
  renderer.context.trim_scratch(scratch_cap);
  if (stop && renderer.gpu.software()) stoppable_.emplace(*stop);
  gpu_before_ = qv::gpu::stats();
  scratch_before_ = filter::stats().created + renderer.pool.created();
}

Turn::~Turn() {
  const qv::gpu::Stats& now = qv::gpu::stats();
  draw::Stats& stats = renderer_.stats;
  stats.draws += static_cast<int64_t>(now.draws - gpu_before_.draws);
  stats.uniforms_sent += static_cast<int64_t>(now.uploads - gpu_before_.uploads);
  stats.uniforms_skipped += static_cast<int64_t>(now.skipped - gpu_before_.skipped);
  stats.textures_created +=
      static_cast<int64_t>(filter::stats().created + renderer_.pool.created() - scratch_before_);
}

Renderer::Renderer(CompositionPtr composition, const RendererOptions& options, gpu::GpuContext& context) {
  double start_ms = 0;
  {
    const Stopwatch watch(start_ms);
    state_ = std::make_unique<State>(std::move(composition), options, context);
  }
  state_->stats.start_ms = start_ms;
}

Renderer::~Renderer() = default;

void Renderer::replace(CompositionPtr composition) {
  // Files are known by their path as written, which may mean others in another folder.
  if (composition->folder != state_->subject->composition.folder) state_->store.shrink(0);
  state_->subject = std::make_shared<Subject>(*state_, std::move(composition), state_->options.scale,
                                              state_->subject.get());
}

draw::FrameImage Renderer::read(const draw::ImageRequest& request, int64_t frame) {
  State& state = *state_;
  const SubjectPtr subject = state.at_scale(request.scale);
  const Turn turn(state, request.stop);
  const frame::KeyedFrame keyed = subject->single_keys.frame({request.node}, frame);
  std::vector<decode::Wanted> wanted;
  draw::add_wanted(subject->composition, subject->project, keyed, 0, state.store, wanted);
  state.decoder.want(wanted);
  subject->notice(keyed);
  const auto images = subject->evaluator.evaluate(
      keyed, [](int64_t) { return true; }, {draw::part_of(request.area)}, draw::Manner{request.stop});
  draw::FrameImage result;
  std::string error = "out of memory";  // unless it arrives
  qv::transport::wait(
      state.send(*subject, request, frame, images.at(0), [&](draw::FrameImage image, const std::string& why) {
        result = std::move(image);
        error = why;
      }));
  if (!error.empty()) throw frame::FrameError(error);
  return result;
}

std::unique_ptr<ImageSequence> Renderer::sequence(const draw::ImageRequest& request,
                                                  std::vector<int64_t> frames) {
  return std::make_unique<ImageSequence>(state_->at_scale(request.scale), request, std::move(frames));
}

std::unique_ptr<Viewing> Renderer::viewing() {
  return std::make_unique<Viewing>(*state_);
}

const RendererOptions& Renderer::options() const {
  return state_->options;
}

const draw::Stats& Renderer::stats() const {
  state_->gather_stats();
  return state_->stats;
}

const draw::HeldImages& Renderer::held() const {
  return state_->held;
}

std::vector<std::string> Renderer::take_notices() {
  return state_->notices.take();
}

}  // namespace host::render
