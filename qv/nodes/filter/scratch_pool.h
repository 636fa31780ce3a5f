#pragma once

#include <qv/nodes/filter/scratch.h>

#include <cstdint>
#include <list>

namespace qv::nodes::filter {

// One texture of the pool.
struct ScratchEntry {
  Tex tex;
  uint64_t bytes = 0;
  uint64_t used = 0;  // the frame in which it came back
};

// A texture taken from the pool, or empty. A list, because its node travels between the pool and a
// slot by splicing: giving a texture back cannot fail for want of memory.
using Held = std::list<ScratchEntry>;

// Bytes of a scratch texture of this size; 0 for a size that no texture can have.
uint64_t scratch_bytes(int32_t w, int32_t h);

// The process-wide pool, as a running plan uses it. GL thread only.
// Between runs nothing is in use; `pooled` and `in_use` of the stats are exact at every moment.
class ScratchPool {
 public:
  // Whether drawing is allowed: the current context is the one that gl::load accepted and, fetching
  // the filter layer's own entry points first if they are another context's, the filter context.
  bool enter_context();

  // Moves a texture of exactly this size into `held`, from the pool or newly made. False, with
  // nothing held and no GL object left, when GL gives no name for it.
  bool take(int32_t w, int32_t h, uint32_t restore_framebuffer, Held& held);

  // Puts what is held, if anything, at the front of the pool.
  void give_back(Held& held);

  // Deletes from the back until at most `limit` bytes are pooled; nothing under another context.
  void trim(uint64_t limit);
  void trim_to_cap() {
    trim(cap_);
  }

  // Brings `bytes` and `peak` of the stats up to date.
  void refresh_bytes();

  // Deletes what has been pooled since before the last call.
  void end_frame();

  void set_cap(uint64_t bytes) {
    cap_ = bytes;
  }
  void set_sampler(uint32_t sampler);

  // Whether textures are of one texel; for an empty pool.
  void rehearse(bool on) {
    rehearsing_ = on;
  }

  ScratchStats stats;

 private:
  bool make(int32_t w, int32_t h, uint32_t restore_framebuffer, Tex& tex);
  bool in_filter_context() const;
  void drop_oldest();

  // Most recently released at the front.
  std::list<ScratchEntry> entries_;
  uint64_t cap_ = 536870912;
  uint32_t sampler_ = 0;
  bool rehearsing_ = false;
  uint64_t frame_ = 0;
  void* filter_context_ = nullptr;
};

ScratchPool& scratch_pool();

}  // namespace qv::nodes::filter
