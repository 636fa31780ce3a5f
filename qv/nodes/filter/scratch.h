#pragma once

#include <qv/export.h>

#include <cstdint>

// Filters draw their intermediate images into RGBA float textures from one process-wide pool, so
// that a filter run again at the same size makes no GL object. A texture is taken by exact size,
// goes back as soon as no later pass reads it, and the one that has lain there longest is the first
// to be deleted when the pool holds more than its cap.
//
// The pool belongs to the filter context: the last one under which a filter ran. When a run takes
// another context in its place the textures of the old one are dropped without GL calls, for their
// names mean nothing in the new one.
//
// Everything here: GL thread only.
namespace qv::nodes::filter {

// A GL image as filters see it; they never own one that the host hands them.
struct Tex {
  uint32_t texture = 0;  // GL texture name
  uint32_t fbo = 0;      // framebuffer with the texture as colour attachment 0, when drawn into
  uint32_t sampler = 0;  // GL sampler name, when read; 0 for none
  int32_t w = 0;         // pixels
  int32_t h = 0;
};

// How well the pool works. Sizes in bytes, 16 a pixel; the others count since the process began.
struct ScratchStats {
  uint64_t bytes = 0;      // pooled and in use, at the end of the last run or scratch_trim
  uint64_t peak = 0;       // the largest `bytes` there was
  uint64_t created = 0;    // textures made
  uint64_t reused = 0;     // textures taken from the pool
  uint64_t evicted = 0;    // pooled textures deleted by trimming
  uint64_t runs = 0;       // runs of a plan that came to draw
  uint64_t draws = 0;      // passes drawn
  uint64_t fallbacks = 0;  // calls of note_fallback
  uint64_t pooled = 0;     // lying in the pool now
  uint64_t in_use = 0;     // bound to a running plan now
};

QV_API const ScratchStats& stats();

// The most that the pool keeps when a run ends; 512 MiB to begin with. Nothing is deleted before
// the next run does end.
QV_API void scratch_cap(uint64_t bytes);

// The GL sampler through which scratch textures are read, those in the pool included. 0, for none,
// to begin with: they are then read with GL_NEAREST when made smaller.
QV_API void scratch_sampler(uint32_t sampler);

// Deletes pooled textures, longest unused first, until at most `bytes` of them are left; 0 empties
// the pool, as a host does before it destroys the context. Under any other context than the filter
// context, or where gl::load has accepted another, only brings `bytes` and `peak` up to date.
QV_API void scratch_trim(uint64_t bytes);

// Deletes the pooled textures that no run has used since the last call, as scratch_trim does: sizes that come
// and go pile up nothing. For a host to call once a frame.
QV_API void scratch_end_frame();

// Whether plans are only rehearsed, from the next run on: textures are of one texel, whatever size they stand
// for, so that a run costs next to nothing, draws nothing to look at, and the counters tell what it would
// take. Empties the pool, under the filter context.
QV_API void scratch_rehearse(bool on);

// Counts a filter that the host computed without this layer.
QV_API void note_fallback();

}  // namespace qv::nodes::filter
