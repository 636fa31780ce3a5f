#include "host/report/stats_text.h"

#include <cstdio>

#include <nlohmann/json.hpp>

namespace host::report {

namespace {

std::string formatted(const char* format, auto... values) {
  char text[240];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

double mebibytes(uint64_t bytes) {
  return static_cast<double>(bytes) / 1048576.0;
}

long long whole(int64_t value) {
  return value;
}

}  // namespace

std::string stats_text(const draw::Stats& stats) {
  std::string text;
  text += formatted("frames     %lld written, %lld failed, in %.2f s (start-up %.2f s)\n",
                    whole(stats.frames), whole(stats.failed), stats.wall_ms / 1000, stats.start_ms / 1000);
  text += formatted(
      "results    %lld computed, %lld from the cache, %lld given up for memory, %lld nodes visited\n",
      whole(stats.computed), whole(stats.cache_hits), whole(stats.evicted), whole(stats.visited));
  text += formatted(
      "render     waiting for pixels %.0f ms, upload %.0f ms, drawing %.0f ms, read-back %.0f ms, "
      "waiting to write %.0f ms\n",
      stats.wait_decode_ms, stats.upload_ms, stats.draw_ms, stats.read_back_ms, stats.wait_write_ms);
  text +=
      formatted("draws      %lld, uniforms sent %lld, skipped %lld, textures made %lld\n", whole(stats.draws),
                whole(stats.uniforms_sent), whole(stats.uniforms_skipped), whole(stats.textures_created));
  text += formatted("programs   %lld compiled, %lld taken from earlier runs\n",
                    whole(stats.programs_compiled), whole(stats.programs_restored));
  text +=
      formatted("files      %lld read, %lld written (%.1f MiB of %.1f MiB drawn)\n", whole(stats.files_read),
                whole(stats.files_written), mebibytes(stats.bytes_written), mebibytes(stats.bytes_read_back));
  text += formatted("beside it  decoding %.0f ms, encoding %.0f ms on other threads\n", stats.decode_ms,
                    stats.encode_ms);
  text += formatted(
      "memory     %.1f MiB of images at most: %.1f MiB of textures, %.1f MiB decoded ahead, %.1f MiB in the "
      "transfer ring, %.1f MiB on the way to files, %.1f MiB in encoders\n",
      mebibytes(stats.peak_bytes), mebibytes(stats.peak_texture_bytes), mebibytes(stats.peak_decoded_bytes),
      mebibytes(stats.peak_ring_bytes), mebibytes(stats.peak_sent_bytes),
      mebibytes(stats.peak_encoder_bytes));
  return text;
}

std::string stats_json(const draw::Stats& stats) {
  const nlohmann::ordered_json json = {{"frames", stats.frames},
                                       {"failed", stats.failed},
                                       {"wall_ms", stats.wall_ms},
                                       {"start_ms", stats.start_ms},
                                       {"wait_decode_ms", stats.wait_decode_ms},
                                       {"decode_ms", stats.decode_ms},
                                       {"upload_ms", stats.upload_ms},
                                       {"draw_ms", stats.draw_ms},
                                       {"gpu_ms", stats.gpu_ms},
                                       {"read_back_ms", stats.read_back_ms},
                                       {"wait_write_ms", stats.wait_write_ms},
                                       {"encode_ms", stats.encode_ms},
                                       {"computed", stats.computed},
                                       {"cache_hits", stats.cache_hits},
                                       {"evicted", stats.evicted},
                                       {"visited", stats.visited},
                                       {"draws", stats.draws},
                                       {"uniforms_sent", stats.uniforms_sent},
                                       {"uniforms_skipped", stats.uniforms_skipped},
                                       {"textures_created", stats.textures_created},
                                       {"programs_compiled", stats.programs_compiled},
                                       {"programs_restored", stats.programs_restored},
                                       {"files_read", stats.files_read},
                                       {"files_written", stats.files_written},
                                       {"bytes_written", stats.bytes_written},
                                       {"bytes_read_back", stats.bytes_read_back},
                                       {"peak_texture_bytes", stats.peak_texture_bytes},
                                       {"peak_decoded_bytes", stats.peak_decoded_bytes},
                                       {"peak_ring_bytes", stats.peak_ring_bytes},
                                       {"peak_sent_bytes", stats.peak_sent_bytes},
                                       {"peak_encoder_bytes", stats.peak_encoder_bytes},
                                       {"peak_bytes", stats.peak_bytes}};
  return json.dump(2) + "\n";
}

}  // namespace host::report
