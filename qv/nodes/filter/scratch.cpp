#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/gl/enums.h>
#include <qv/gpu/gl/proc_address.h>
#include <qv/nodes/filter/scratch_pool.h>

#include <algorithm>

namespace qv::nodes::filter {

namespace gl = gpu::gl;

namespace {

// What making and deleting scratch textures needs beyond the shared entry points.
struct FilterGl {
  void (*gen_textures)(int count, unsigned* names) = nullptr;
  void (*delete_textures)(int count, const unsigned* names) = nullptr;
  void (*tex_image_2d)(unsigned target, int level, int internal_format, int width, int height, int border,
                       unsigned format, unsigned type, const void* pixels) = nullptr;
  void (*tex_parameter)(unsigned target, unsigned name, int value) = nullptr;
  void (*gen_framebuffers)(int count, unsigned* names) = nullptr;
  void (*delete_framebuffers)(int count, const unsigned* names) = nullptr;
  void (*framebuffer_texture_2d)(unsigned target, unsigned attachment, unsigned texture_target,
                                 unsigned texture, int level) = nullptr;
  void (*draw_buffers)(int count, const unsigned* buffers) = nullptr;

  bool fetch_all() {
    return gl::fetch(gen_textures, "glGenTextures") && gl::fetch(delete_textures, "glDeleteTextures") &&
           gl::fetch(tex_image_2d, "glTexImage2D") && gl::fetch(tex_parameter, "glTexParameteri") &&
           gl::fetch(gen_framebuffers, "glGenFramebuffers") &&
           gl::fetch(delete_framebuffers, "glDeleteFramebuffers") &&
           gl::fetch(framebuffer_texture_2d, "glFramebufferTexture2D") &&
           gl::fetch(draw_buffers, "glDrawBuffers");
  }
};

FilterGl filter_gl;

void delete_objects(const Tex& tex) {
  filter_gl.delete_framebuffers(1, &tex.fbo);
  filter_gl.delete_textures(1, &tex.texture);
}

}  // namespace

uint64_t scratch_bytes(int32_t w, int32_t h) {
  constexpr uint64_t bytes_a_pixel = 16;
  // No driver has a larger texture, and most have less; asking this one would be a GL call.
  constexpr int32_t largest_side = 65536;
  if (w <= 0 || h <= 0 || w > largest_side || h > largest_side) return 0;
  return static_cast<uint64_t>(w) * static_cast<uint64_t>(h) * bytes_a_pixel;
}

ScratchPool& scratch_pool() {
  static ScratchPool pool;
  return pool;
}

bool ScratchPool::in_filter_context() const {
  void* const current = gl::current_context();
  return current != nullptr && current == gl::loaded_context() && current == filter_context_;
}

bool ScratchPool::enter_context() {
  if (in_filter_context()) return true;
  void* const current = gl::current_context();
  if (current == nullptr || current != gl::loaded_context()) return false;
  FilterGl fetched;
  if (!fetched.fetch_all()) return false;
  filter_gl = fetched;
  filter_context_ = current;
  entries_.clear();
  stats.pooled = 0;
  return true;
}

bool ScratchPool::make(int32_t w, int32_t h, uint32_t restore_framebuffer, Tex& tex) {
  tex = {.sampler = sampler_, .w = w, .h = h};
  filter_gl.gen_textures(1, &tex.texture);
  if (tex.texture == 0) return false;
  gl::BindTexture(gl::TEXTURE_2D, tex.texture);
  filter_gl.tex_image_2d(gl::TEXTURE_2D, 0, gl::RGBA32F, rehearsing_ ? 1 : w, rehearsing_ ? 1 : h, 0,
                         gl::RGBA, gl::FLOAT, nullptr);
  filter_gl.tex_parameter(gl::TEXTURE_2D, gl::TEXTURE_BASE_LEVEL, 0);
  filter_gl.tex_parameter(gl::TEXTURE_2D, gl::TEXTURE_MAX_LEVEL, 0);
  filter_gl.tex_parameter(gl::TEXTURE_2D, gl::TEXTURE_MIN_FILTER, gl::NEAREST);
  gl::BindTexture(gl::TEXTURE_2D, 0);

  filter_gl.gen_framebuffers(1, &tex.fbo);
  if (tex.fbo == 0) {
    filter_gl.delete_textures(1, &tex.texture);
    return false;
  }
  gl::BindFramebuffer(gl::FRAMEBUFFER, tex.fbo);
  filter_gl.framebuffer_texture_2d(gl::FRAMEBUFFER, gl::COLOR_ATTACHMENT0, gl::TEXTURE_2D, tex.texture, 0);
  constexpr unsigned buffers[] = {gl::COLOR_ATTACHMENT0};
  filter_gl.draw_buffers(1, buffers);
  gl::BindFramebuffer(gl::FRAMEBUFFER, restore_framebuffer);
  return true;
}

bool ScratchPool::take(int32_t w, int32_t h, uint32_t restore_framebuffer, Held& held) {
  const auto fits = [w, h](const ScratchEntry& entry) { return entry.tex.w == w && entry.tex.h == h; };
  const auto pooled = std::find_if(entries_.begin(), entries_.end(), fits);
  if (pooled != entries_.end()) {
    held.splice(held.begin(), entries_, pooled);
    stats.pooled -= held.front().bytes;
    ++stats.reused;
  } else {
    ScratchEntry& made = held.emplace_front();
    made.bytes = scratch_bytes(w, h);
    if (!make(w, h, restore_framebuffer, made.tex)) {
      held.clear();
      return false;
    }
    ++stats.created;
  }
  stats.in_use += held.front().bytes;
  return true;
}

void ScratchPool::give_back(Held& held) {
  if (held.empty()) return;
  const uint64_t bytes = held.front().bytes;
  stats.in_use -= bytes;
  stats.pooled += bytes;
  held.front().used = frame_;
  entries_.splice(entries_.begin(), held);
}

void ScratchPool::trim(uint64_t limit) {
  if (stats.pooled <= limit || !in_filter_context()) return;
  while (stats.pooled > limit && !entries_.empty()) drop_oldest();
}

void ScratchPool::drop_oldest() {
  stats.pooled -= entries_.back().bytes;
  delete_objects(entries_.back().tex);
  entries_.pop_back();
  ++stats.evicted;
}

void ScratchPool::end_frame() {
  if (!in_filter_context()) return;
  while (!entries_.empty() && entries_.back().used < frame_) drop_oldest();
  ++frame_;
}

void ScratchPool::refresh_bytes() {
  stats.bytes = stats.in_use + stats.pooled;
  stats.peak = std::max(stats.peak, stats.bytes);
}

void ScratchPool::set_sampler(uint32_t sampler) {
  sampler_ = sampler;
  for (ScratchEntry& entry : entries_) entry.tex.sampler = sampler;
}

const ScratchStats& stats() {
  return scratch_pool().stats;
}

void scratch_cap(uint64_t bytes) {
  scratch_pool().set_cap(bytes);
}

void scratch_sampler(uint32_t sampler) {
  scratch_pool().set_sampler(sampler);
}

void scratch_trim(uint64_t bytes) {
  ScratchPool& pool = scratch_pool();
  pool.trim(bytes);
  pool.refresh_bytes();
}

void scratch_end_frame() {
  scratch_pool().end_frame();
  scratch_pool().refresh_bytes();
}

void scratch_rehearse(bool on) {
  scratch_trim(0);
  scratch_pool().rehearse(on);
}

void note_fallback() {
  ++scratch_pool().stats.fallbacks;
}

}  // namespace qv::nodes::filter
