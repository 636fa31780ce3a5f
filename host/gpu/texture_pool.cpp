#include "host/gpu/texture_pool.h"

#include "host/gpu/debug.h"
#include "host/gpu/gl_functions.h"

#include <algorithm>
#include <initializer_list>
#include <list>
#include <stdexcept>
#include <string>
#include <utility>

namespace host::gpu {
namespace {

uint64_t next_id() {
  static uint64_t last = 0;
  return ++last;
}

uint32_t make_sampler(bool linear) {
  uint32_t sampler = 0;
  gl.GenSamplers(1, &sampler);
  const int filter = linear ? GL_LINEAR : GL_NEAREST;
  gl.SamplerParameteri(sampler, GL_TEXTURE_MIN_FILTER, filter);
  gl.SamplerParameteri(sampler, GL_TEXTURE_MAG_FILTER, filter);
  for (const GLenum axis :
       std::initializer_list<GLenum>{GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T, GL_TEXTURE_WRAP_R}) {
    gl.SamplerParameteri(sampler, axis, GL_CLAMP_TO_EDGE);
  }
  return sampler;
}

void delete_texture(const Texture& texture) {
  if (texture.framebuffer) gl.DeleteFramebuffers(1, &texture.framebuffer);
  gl.DeleteTextures(1, &texture.name);
}

// An error that earlier calls left would be taken for this one's.
void forget_errors() {
  for (int i = 0; i < 100 && gl.GetError() != GL_NO_ERROR; ++i) {
  }
}

std::string size_text(int64_t width, int64_t height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

// `texture`, of which its size and texels are given, as one of GL.
Texture made(Texture texture, uint32_t sampler, bool rehearsed) {
  texture.target = GL_TEXTURE_2D;
  texture.sampler = sampler;
  forget_errors();
  gl.GenTextures(1, &texture.name);
  gl.BindTexture(GL_TEXTURE_2D, texture.name);
  gl.TexStorage2D(GL_TEXTURE_2D, 1, texture.texel == Texel::half ? GL_RGBA16F : GL_RGBA32F,
                  rehearsed ? 1 : texture.width, rehearsed ? 1 : texture.height);
  const GLenum error = gl.GetError();
  gl.BindTexture(GL_TEXTURE_2D, 0);
  gl.GenFramebuffers(1, &texture.framebuffer);
  gl.BindFramebuffer(GL_FRAMEBUFFER, texture.framebuffer);
  gl.FramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture.name, 0);
  const bool whole = gl.CheckFramebufferStatus(GL_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
  gl.BindFramebuffer(GL_FRAMEBUFFER, 0);
  if (error == GL_NO_ERROR && whole) return texture;
  delete_texture(texture);
  throw std::runtime_error("the device has no room for an image of " +
                           size_text(texture.width, texture.height) + " pixels");
}

}  // namespace

// Shared by the pool and every texture that is out, so that the last to go cleans up.
struct TexturePool::State : std::enable_shared_from_this<TexturePool::State> {
  struct Idle {
    Texture texture;
    uint64_t since = 0;  // the frame in which it came back
  };
  const uint64_t limit;
  const int max_size;
  const bool rehearsed;
  const uint32_t sampler = make_sampler(false);
  std::list<Idle> idle;  // most recently returned in front
  uint64_t in_use = 0;
  uint64_t idle_bytes = 0;
  uint64_t created = 0;
  uint64_t frame = 0;
  Account account;

  State(uint64_t most, int largest, MemoryUse use, bool is_rehearsed)
      : limit(most), max_size(largest), rehearsed(is_rehearsed), account(std::move(use), Owner::device) {}
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() {
    for (const Idle& each : idle) delete_texture(each.texture);
    gl.DeleteSamplers(1, &sampler);
  }

  void tell() {
    account.set(in_use + idle_bytes);
  }

  // wanted: its size and texels.
  Texture take(const Texture& wanted) {
    const auto found = std::find_if(idle.begin(), idle.end(), [&](const Idle& each) {
      return each.texture.width == wanted.width && each.texture.height == wanted.height &&
             each.texture.texel == wanted.texel;
    });
    if (found == idle.end()) {
      trim(limit - std::min(limit, in_use + wanted.bytes()));
      ++created;
      return made(wanted, sampler, rehearsed);
    }
    const Texture texture = found->texture;
    idle.erase(found);
    idle_bytes -= texture.bytes();
    return texture;
  }

  void give_back(const Texture& texture) {
    in_use -= texture.bytes();
    idle.push_front({texture, frame});
    idle_bytes += texture.bytes();
    trim(limit - std::min(limit, in_use));
  }

  void trim(uint64_t most) {
    while (idle_bytes > most) drop_oldest();
    tell();
  }

  void drop_oldest() {
    idle_bytes -= idle.back().texture.bytes();
    delete_texture(idle.back().texture);
    idle.pop_back();
  }

  void end_frame() {
    while (!idle.empty() && idle.back().since < frame) drop_oldest();
    ++frame;
    tell();
  }
};

TexturePool::TexturePool(uint64_t limit, int max_size, MemoryUse use, Purpose purpose)
    : state_(std::make_shared<State>(limit, max_size, std::move(use), purpose == Purpose::rehearsal)) {}

TexturePtr TexturePool::acquire(int64_t width, int64_t height, Texel texel) {
  if (width < 1 || height < 1 || width > state_->max_size || height > state_->max_size) {
    throw std::runtime_error("an image of " + size_text(width, height) +
                             " pixels: the device's textures have from 1 to " +
                             std::to_string(state_->max_size) + " pixels a side");
  }
  Texture wanted;
  wanted.width = static_cast<int>(width);
  wanted.height = static_cast<int>(height);
  wanted.texel = texel;
  auto texture = std::make_unique<Texture>(state_->take(wanted));
  texture->id = next_id();
  label_texture(texture->name);
  state_->in_use += texture->bytes();
  state_->tell();
  return {texture.release(), [state = state_](const Texture* returned) {
            state->give_back(*returned);
            delete returned;
          }};
}

void TexturePool::trim(uint64_t idle_bytes) {
  state_->trim(idle_bytes);
}

void TexturePool::end_frame() {
  state_->end_frame();
}

uint64_t TexturePool::bytes_in_use() const {
  return state_->in_use;
}

uint64_t TexturePool::bytes_idle() const {
  return state_->idle_bytes;
}

uint64_t TexturePool::created() const {
  return state_->created;
}

uint32_t TexturePool::sampler() const {
  return state_->sampler;
}

TexturePtr make_table(int width, int height, int depth, const float* rgba, bool linear) {
  auto table = std::make_unique<Texture>();
  table->id = next_id();
  table->target = depth > 1 ? GL_TEXTURE_3D : GL_TEXTURE_2D;
  table->width = width;
  table->height = height;
  table->depth = depth;
  gl.GenTextures(1, &table->name);
  gl.BindTexture(table->target, table->name);
  if (depth > 1) {
    gl.TexStorage3D(GL_TEXTURE_3D, 1, GL_RGBA32F, width, height, depth);
    gl.TexSubImage3D(GL_TEXTURE_3D, 0, 0, 0, 0, width, height, depth, GL_RGBA, GL_FLOAT, rgba);
  } else {
    gl.TexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA32F, width, height);
    gl.TexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, GL_RGBA, GL_FLOAT, rgba);
  }
  gl.BindTexture(table->target, 0);
  label_texture(table->name);
  table->sampler = make_sampler(linear);
  return {table.release(), [](const Texture* last) {
            gl.DeleteSamplers(1, &last->sampler);
            delete_texture(*last);
            delete last;
          }};
}

}  // namespace host::gpu
