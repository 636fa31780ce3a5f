#include "host/render/renderer.h"

#include <qv/nodes/filter/scratch.h>
#include <qv/transport/ring.h>

#include "host/base/stopwatch.h"
#include "host/frame/project.h"
#include "host/programs/program_binaries.h"
#include "host/render/read_back.h"
#include "host/render/renderer_state.h"
#include "host/render/upcoming.h"

#include <stdexcept>
#include <utility>

namespace host::render {
namespace {

namespace filter = qv::nodes::filter;

}  // namespace

Renderer::State::State(const shot::Composition& shot, RenderOptions render_options,
                       gpu::GpuContext& gpu_context)
    : composition(shot),
      options(std::move(render_options)),
      gpu(gpu_context),
      limits(options.threads, options.memory, gpu.software()),
      use(!gpu.software()),
      headers(options.headers ? options.headers : std::make_shared<plates::Headers>()),
      project(frame::make_project(shot, options.scale, *headers, options.by_content)),
      decoder(*headers, limits.threads, limits.decoded_bytes, notices, use),
      shaders(programs::ShaderLibrary::default_root(), programs::ProgramBinaries::default_folder()),
      pool(options.memory, gpu.max_texture_size(), use),
      context(shaders, pool, decoder, use),
      targets(composition, project, options.outputs),
      buffers(static_cast<size_t>(limits.threads), use),
      evaluator(composition, project, pool, context, store, stats, use, options.memory, !gpu.software(),
                options.stop),
      keys(composition, project),
      single_keys(composition, project),
      gpu_before(qv::gpu::stats()),
      scratch_before(filter::stats().created),
      read_back_before(qv::transport::stats().bytes) {
  headers->hold_to(gpu.max_texture_size());
  qv::transport::set_ring_size(limits.ring);
  std::string error;
  if (!qv::transport::init(&error)) throw std::runtime_error("images cannot be read back: " + error);
  if (gpu.software()) shaders.widen_blurs();
  filter::scratch_sampler(pool.sampler());
  filter::scratch_cap(options.memory / 4);
}

Renderer::State::~State() {
  qv::transport::close();
  filter::scratch_trim(0);
}

void Renderer::State::gather_stats() {
  const qv::gpu::Stats& now = qv::gpu::stats();
  const plates::DecoderStats files = decoder.stats();
  stats.gpu_ms = evaluator.device_ms();
  stats.visited = keys.visited() + single_keys.visited();
  stats.draws = static_cast<int64_t>(now.draws - gpu_before.draws);
  stats.uniforms_sent = static_cast<int64_t>(now.uploads - gpu_before.uploads);
  stats.uniforms_skipped = static_cast<int64_t>(now.skipped - gpu_before.skipped);
  stats.programs_compiled = shaders.made().compiled;
  stats.programs_restored = shaders.made().restored;
  stats.textures_created = static_cast<int64_t>(pool.created() + filter::stats().created - scratch_before);
  stats.bytes_read_back = qv::transport::stats().bytes - read_back_before;
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

Renderer::Renderer(const shot::Composition& composition, RenderOptions options, gpu::GpuContext& context) {
  double start_ms = 0;
  {
    const Stopwatch watch(start_ms);
    state_ = std::make_unique<State>(composition, std::move(options), context);
  }
  state_->stats.start_ms = start_ms;
}

Renderer::~Renderer() = default;

HostImage Renderer::image(int node, int64_t frame) {
  State& state = *state_;
  const frame::KeyedFrame keyed = state.single_keys.frame({node}, frame);
  std::vector<plates::Wanted> wanted;
  add_wanted(state.composition, state.project, keyed, 0, state.store, wanted);
  state.decoder.want(wanted);
  // Nothing is known of what will be asked for next, so everything may be.
  const auto images = state.evaluator.evaluate(keyed, [](int64_t) { return true; }, {Evaluator::Part::whole});
  const node::Image& image = images.at(0);
  HostImage result{image.extent, {}};
  if (!image.texture) return result;
  ReadBack pixels;
  qv::transport::wait(read_back(image, image.extent.window, state.buffers, {},
                                [&](ReadBack read) { pixels = std::move(read); }));
  if (!pixels.rgba) {
    throw frame::FrameError(frame::frame_place(state.composition, node, frame) +
                            "the image could not be read back from the device");
  }
  const auto floats = static_cast<size_t>(box_width(pixels.window) * box_height(pixels.window) * 4);
  result.rgba.assign(pixels.rgba.get(), pixels.rgba.get() + floats);
  return result;
}

const Stats& Renderer::stats() const {
  state_->gather_stats();
  return state_->stats;
}

}  // namespace host::render
