#pragma once

#include <cstdint>

namespace host::draw {

// Where a render's time and memory went. Durations are sums in milliseconds over the run; those of
// different threads overlap, so they may exceed the wall time.
struct Stats {
  int64_t frames = 0;  // finished, whole
  int64_t failed = 0;
  double wall_ms = 0;
  double start_ms = 0;        // context, shaders, composition
  double wait_decode_ms = 0;  // the render thread waiting for pixels
  double decode_ms = 0;       // on the decoders' threads
  double upload_ms = 0;
  double draw_ms = 0;        // the render thread issuing draws, and waiting where the driver makes it
  double gpu_ms = 0;         // drawing, by the device's own clock; as draw_ms on a software device
  double read_back_ms = 0;   // waiting for the transfer ring
  double wait_write_ms = 0;  // waiting for room in the writer's queue
  double encode_ms = 0;      // on the writer's thread
  int64_t computed = 0;      // results computed
  int64_t cache_hits = 0;    // results taken from the cache
  int64_t evicted = 0;       // results given up for memory
  int64_t visited = 0;       // nodes looked at for changes
  int64_t draws = 0;
  int64_t uniforms_sent = 0;
  int64_t uniforms_skipped = 0;
  int64_t textures_created = 0;
  int64_t programs_compiled = 0;
  int64_t programs_restored = 0;  // taken as an earlier run's driver left them
  int64_t files_read = 0;
  int64_t files_written = 0;
  uint64_t bytes_written = 0;
  uint64_t bytes_read_back = 0;     // from the device
  uint64_t peak_texture_bytes = 0;  // images, scratch and cached results together
  uint64_t peak_decoded_bytes = 0;  // sources on their way from files, until they are taken
  uint64_t peak_ring_bytes = 0;     // buffers of the transfer ring
  uint64_t peak_sent_bytes = 0;     // images on their way to files, as they were drawn
  uint64_t peak_encoder_bytes = 0;  // what files were made in
  uint64_t peak_bytes = 0;          // all of these together
};

}  // namespace host::draw
