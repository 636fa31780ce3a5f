#include "host/node/render_context.h"

#include <qv/gpu/draw.h>
#include <qv/nodes/filter/ops.h>
#include <qv/nodes/filter/scratch.h>

#include "host/base/stopwatch.h"
#include "host/gpu/gl_functions.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace host::node {
namespace {

namespace filter = qv::nodes::filter;

// Collects what a draw uploads; values that the program has no place for are passed over.
class PendingUniforms {
 public:
  explicit PendingUniforms(uint32_t program) : program_(program) {}

  void add(const Uniform& uniform) {
    const qv::gpu::UniformInfo* info = qv::gpu::uniform_info(program_, uniform.name);
    if (!info || !qv::gpu::uniform_accepts(*info, uniform.count)) return;
    qv::gpu::Pending pending;
    pending.location = info->location;
    pending.count = uniform.count;
    std::copy(uniform.values.begin(), uniform.values.end(), pending.values);
    list_.push_back(pending);
  }

  const qv::gpu::Pending* data() const {
    return list_.data();
  }
  int32_t size() const {
    return static_cast<int32_t>(list_.size());
  }

 private:
  uint32_t program_;
  std::vector<qv::gpu::Pending> list_;
};

// (dx, dy, width, height): target texel t lies over image texel t + (dx, dy).
Uniform window_uniform(const std::string& name, const Box& target, const Image& image) {
  if (!image.texture) return {name, {0.0, 0.0, 0.0, 0.0}};
  const Box& window = image.extent.window;
  return {name,
          {static_cast<double>(target[0] - window[0]), static_cast<double>(window[3] - target[3]),
           static_cast<double>(image.texture->width), static_cast<double>(image.texture->height)}};
}

filter::Tex filter_image(const Image& image) {
  const gpu::Texture& texture = *image.texture;
  return {texture.name, texture.framebuffer, texture.sampler, texture.width, texture.height};
}

}  // namespace

// A rehearsal's decoder counts what it hands out by itself.
Decoded::Decoded(decode::Pixels decoded, MemoryUse use)
    : pixels(std::move(decoded)), account(std::move(use), Owner::decoded) {
  if (pixels.rgba || pixels.halves) account.set(pixels.bytes());
}

Uniform::Uniform(std::string_view uniform, std::span<const double> list)
    : name(uniform), count(static_cast<int>(std::min<size_t>(list.size(), 16))) {
  std::transform(list.begin(), list.begin() + count, values.begin(),
                 [](double value) { return static_cast<float>(value); });
}

Uniform::Uniform(std::string_view uniform, std::initializer_list<double> list)
    : Uniform(uniform, std::span<const double>(list.begin(), list.size())) {}

Uniform::Uniform(std::string_view uniform, double value) : Uniform(uniform, {value}) {}

RenderContext::RenderContext(programs::ShaderLibrary& shaders, gpu::TexturePool& pool,
                             decode::Decoder& decoder, MemoryUse use)
    : RenderContext(
          shaders, pool, [&decoder](const plates::Source& source) { return decoder.take(source); },
          std::move(use)) {}

RenderContext::RenderContext(programs::ShaderLibrary& shaders, gpu::TexturePool& pool, Fetch fetch,
                             MemoryUse use)
    : shaders_(shaders),
      pool_(pool),
      fetch_(std::move(fetch)),
      use_(std::move(use)),
      scratch_(use_, Owner::device) {
  constexpr std::array<float, 4> clear = {0, 0, 0, 0};
  nothing_ = gpu::make_table(1, 1, 1, clear.data(), false);
}

RenderContext::~RenderContext() = default;

Image RenderContext::make(const Extent& extent) {
  return make(extent, gpu::Texel::real);
}

Image RenderContext::make(const Extent& extent, gpu::Texel texel) {
  if (is_empty(extent.window)) return {{extent.format, {}}, nullptr, nullptr};
  return {extent, pool_.acquire(box_width(extent.window), box_height(extent.window), texel), nullptr};
}

Image RenderContext::solid(const Extent& extent, const std::array<float, 4>& rgba) {
  Image image = make(extent);
  if (!image.texture) return image;
  gpu::gl.BindFramebuffer(GL_FRAMEBUFFER, image.texture->framebuffer);
  gpu::gl.ClearBufferfv(GL_COLOR, 0, rgba.data());
  gpu::gl.BindFramebuffer(GL_FRAMEBUFFER, 0);
  return image;
}

Image RenderContext::upload(const Extent& extent, const decode::Pixels& pixels) {
  const Stopwatch watch(times_.upload_ms);
  const bool half = pixels.half;
  Image image = make(extent, half ? gpu::Texel::half : gpu::Texel::real);
  const void* const values =
      half ? static_cast<const void*>(pixels.halves.get()) : static_cast<const void*>(pixels.rgba.get());
  if (!image.texture || !values) return image;
  gpu::gl.BindTexture(GL_TEXTURE_2D, image.texture->name);
  gpu::gl.TexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, image.texture->width, image.texture->height, GL_RGBA,
                        half ? GL_HALF_FLOAT : GL_FLOAT, values);
  gpu::gl.BindTexture(GL_TEXTURE_2D, 0);
  return image;
}

Image RenderContext::decoded(const Extent& extent, decode::Pixels pixels) {
  if (draws_) return upload(extent, pixels);
  Image image{extent, nullptr, nullptr};
  image.decoded = std::make_shared<const Decoded>(std::move(pixels), use_);
  return image;
}

void RenderContext::draw(std::string_view program_file, const Image& target,
                         std::span<const Uniform> uniforms, std::span<const Input> inputs, Blend blend) {
  draw(shaders_.get(program_file), target, uniforms, inputs, blend);
}

void RenderContext::draw(const programs::Program& program, const Image& target,
                         std::span<const Uniform> uniforms, std::span<const Input> inputs, Blend blend) {
  if (!target.texture) return;
  const Box& window = target.extent.window;
  PendingUniforms pending(program.name);
  pending.add({"u_target",
               {static_cast<double>(window[0]), static_cast<double>(window[3]),
                static_cast<double>(target.texture->width), static_cast<double>(target.texture->height)}});
  for (const Uniform& uniform : uniforms) pending.add(uniform);

  std::vector<qv::gpu::Unit> units;
  for (const auto& [sampler, unit] : program.samplers) {
    const auto input = std::find_if(inputs.begin(), inputs.end(),
                                    [&name = sampler](const Input& each) { return each.name == name; });
    const gpu::Texture* texture = nothing_.get();
    if (input != inputs.end() && input->table) texture = input->table.get();
    if (input != inputs.end() && input->image) {
      pending.add(window_uniform(sampler + "_window", window, *input->image));
      if (input->image->texture) texture = input->image->texture.get();
    }
    units.push_back({static_cast<uint32_t>(unit), texture->target, texture->name, texture->sampler});
  }

  if (blend == Blend::add) {
    gpu::gl.Enable(GL_BLEND);
    gpu::gl.BlendFunc(GL_ONE, GL_ONE);
  }
  const int refused =
      qv::gpu::draw(target.texture->framebuffer, target.texture->width, target.texture->height, program.name,
                    pending.data(), pending.size(), units.data(), static_cast<int32_t>(units.size()),
                    shaders_.vertex_array(), shaders_.draw_mode(), shaders_.index_count(), 0);
  if (blend == Blend::add) gpu::gl.Disable(GL_BLEND);
  if (refused) throw std::runtime_error("the OpenGL context is no longer current");
}

Image RenderContext::windowed(const Image& image, const Box& window, bool repeat) {
  if (image.extent.window == window) return image;
  Image result = make({image.extent.format, image.texture ? window : Box{}});
  result.coverage = image.coverage;
  const Uniform uniforms[] = {{"u_repeat", repeat ? 1.0 : 0.0}};
  const Input inputs[] = {{"u_image", image}};
  draw("window.frag", result, uniforms, inputs);
  return result;
}

bool RenderContext::filter(std::string_view operation, std::span<const Image> inputs,
                           std::span<const double> params, const Image& target) {
  if (!target.texture) return false;
  shaders_.prepare_filter(operation);
  std::vector<filter::Tex> images;
  for (const Image& input : inputs) {
    if (!input.texture) return false;
    images.push_back(filter_image(input));
  }
  const int outcome = filter::run_op(operation, images, params, filter_image(target), 0);
  scratch_.set(filter::stats().bytes);
  if (outcome < 0) {
    throw std::runtime_error(
        "the filter \"" + std::string(operation) +
        (outcome == filter::run_refused ? "\" found no usable OpenGL context" : "\" refused its parameters"));
  }
  return outcome == filter::run_drawn;
}

decode::Pixels RenderContext::fetch(const plates::Source& source) {
  const Stopwatch watch(times_.wait_decode_ms);
  return fetch_(source);
}

gpu::TexturePtr RenderContext::table(const std::string& name, const std::function<gpu::TexturePtr()>& make) {
  gpu::TexturePtr& kept = tables_[name];
  if (!kept) kept = make();
  return kept;
}

void RenderContext::trim_scratch(uint64_t most) {
  if (filter::stats().bytes > most) filter::scratch_trim(most);
  scratch_.set(filter::stats().bytes);
}

void RenderContext::end_frame() {
  filter::scratch_end_frame();
  scratch_.set(filter::stats().bytes);
}

programs::ShaderLibrary& RenderContext::shaders() {
  return shaders_;
}

}  // namespace host::node
