#include "host/gpu/stoppable_draws.h"

#include <qv/gpu/gl/entry_points.h>

#include "host/gpu/gl_functions.h"
#include "host/gpu/wide_draws.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>

namespace host::gpu {
namespace {

namespace entry = qv::gpu::gl;

// Fragments of the band that tells how long the others will take. One may give several pixels
// (wide_draws.h), and a blur read thousands for each, so no more than this is drawn in one piece unasked.
constexpr int first_fragments = 1 << 14;
constexpr double band_ms = 100;
constexpr double most_growth = 1000;

const std::atomic<bool>* stop_flag = nullptr;
decltype(entry::DrawElementsInstancedBaseInstance) draw_whole = nullptr;

double ms_since(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

// The first band also waits for what was drawn before, and a busy machine makes any band slow: none is
// smaller than the first.
int rows_after(int rows, double ms, int fewest) {
  const double wanted = rows * std::min(band_ms / std::max(ms, 1e-3), most_growth);
  return std::max(fewest, static_cast<int>(std::min(wanted, 1e6)));
}

void draw_in_bands(unsigned mode, int count, unsigned type, const void* indices, int instances,
                   unsigned base) {
  std::array<GLint, 4> viewport{};
  gl.GetIntegerv(GL_VIEWPORT, viewport.data());
  const auto [x, y, width, height] = viewport;
  const int fewest = std::max(1, first_fragments / std::max(1, width));
  int rows = fewest;
  gl.Enable(GL_SCISSOR_TEST);
  for (int row = 0; row < height && !*stop_flag;) {
    const auto begin = std::chrono::steady_clock::now();
    entry::Scissor(x, y + row, width, std::min(rows, height - row));
    draw_whole(mode, count, type, indices, instances, base);
    row += rows;
    if (row >= height) break;
    gl.Finish();
    rows = rows_after(rows, ms_since(begin), fewest);
  }
  gl.Disable(GL_SCISSOR_TEST);
}

}  // namespace

StoppableDraws::StoppableDraws(const std::atomic<bool>& stop) {
  stop_flag = &stop;
  draw_whole = draw_as_seen();
  draw_as_seen() = draw_in_bands;
}

StoppableDraws::~StoppableDraws() {
  draw_as_seen() = draw_whole;
}

}  // namespace host::gpu
