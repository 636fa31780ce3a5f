#include <qv/gpu/gl/entry_points.h>
#include <qv/nodes/filter/plan.h>

#include "tests/nodes/filter/programs.h"
#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <random>

#include <gtest/gtest.h>

namespace {

using namespace qv::nodes::filter;

// The pool as a plain list of sizes in bytes, last released first. Every size below has its own
// number of bytes, so bytes say which texture fits.
struct Model {
  std::vector<uint64_t> pool;
  uint64_t cap = 536870912;
  ScratchStats stats;

  void run(const Plan& plan, int out) {
    std::vector<uint64_t> held(plan.slots.size(), 0);
    for (size_t i = 0; i < plan.passes.size(); ++i) {
      const int to = plan.passes[i].out;
      if (to != out) held[static_cast<size_t>(to)] = take(plan.w(to), plan.h(to));
      ++stats.draws;
      for (const auto& [name, slot] : plan.passes[i].textures)
        if (!read_after(plan, i, slot)) release(held[static_cast<size_t>(slot)]);
    }
    for (uint64_t& bytes : held) release(bytes);
    trim(cap);
    ++stats.runs;
  }

  static bool read_after(const Plan& plan, size_t pass, int slot) {
    for (size_t i = pass + 1; i < plan.passes.size(); ++i)
      for (const auto& [name, read] : plan.passes[i].textures)
        if (read == slot) return true;
    return false;
  }

  uint64_t take(int w, int h) {
    const auto bytes = static_cast<uint64_t>(w * h * 16);
    const auto at = std::find(pool.begin(), pool.end(), bytes);
    (at == pool.end() ? stats.created : stats.reused) += 1;
    if (at != pool.end()) pool.erase(at);
    return bytes;
  }

  void release(uint64_t& bytes) {
    if (bytes != 0) pool.insert(pool.begin(), bytes);
    bytes = 0;
  }

  uint64_t pooled() const {
    return std::accumulate(pool.begin(), pool.end(), uint64_t{0});
  }

  void trim(uint64_t limit) {
    for (; pooled() > limit; ++stats.evicted) pool.pop_back();
    stats.bytes = pooled();
    stats.peak = std::max(stats.peak, stats.bytes);
  }
};

std::array<uint64_t, 7> counts(const ScratchStats& s) {
  return {s.created, s.reused, s.evicted, s.draws, s.runs, s.bytes, s.peak};
}

struct Random {
  std::mt19937 engine{42};

  int below(int n) {
    return std::uniform_int_distribution(0, n - 1)(engine);
  }

  // Up to six passes, each reading up to three of the slots before it.
  Plan plan() {
    constexpr int widths[] = {16, 24, 40, 56};
    Plan plan(programs::inputs);
    for (int passes = 1 + below(6); passes > 0; --passes) {
      const auto any = [&] { return below(static_cast<int>(plan.slots.size())); };
      std::vector<std::pair<std::string, int>> textures;
      if (below(2) == 0) textures.emplace_back("u_blur", any());
      if (below(3) == 0) textures.emplace_back("u_matte", any());
      plan.pass("copy.frag", any(), {}, textures, widths[below(4)], 8);
    }
    return plan;
  }
};

TEST(Scratch, KeepsWhatANaiveTwinKeeps) {
  programs::start();
  fake_egl::recording = false;
  Random random;
  Model model;
  model.stats = stats();
  for (int step = 0; step < 20000; ++step) {
    switch (const int kind = random.below(20); kind) {
      case 0:
        model.cap = static_cast<uint64_t>(random.below(40)) * 1024;
        scratch_cap(model.cap);
        break;
      case 1: {
        const auto limit = static_cast<uint64_t>(random.below(40)) * 1024;
        scratch_trim(limit);
        model.trim(limit);
        break;
      }
      case 2: {  // A new context: trimming leaves the pool alone there, and only a run takes it.
        if (random.below(5) != 0) break;
        void* const old = qv::gpu::gl::current_context();
        fake_egl::make_current(fake_egl::fresh_context());
        for (const bool loaded : {false, true}) {
          ASSERT_TRUE(!loaded || qv::gpu::gl::load(nullptr));
          scratch_trim(0);
          ASSERT_TRUE(counts(stats()) == counts(model.stats) && stats().pooled == model.pooled()) << step;
        }
        if (random.below(2) == 0) {
          fake_egl::make_current(old);
          ASSERT_TRUE(qv::gpu::gl::load(nullptr));
          break;
        }
        Plan plan(programs::inputs);
        const int out = plan.pass("copy.frag", 0, {}, {}, 16, 8);
        ASSERT_EQ(plan.run(out, programs::target(16, 8), 0), 1);
        model.pool.clear();
        model.run(plan, out);
        break;
      }
      default: {
        Plan plan = random.plan();
        const int out =
            plan.passes[static_cast<size_t>(random.below(static_cast<int>(plan.passes.size())))].out;
        ASSERT_EQ(plan.run(out, programs::target(plan.w(out), plan.h(out)), 0), 1);
        model.run(plan, out);
        for (const Plan::Slot& slot : plan.slots) ASSERT_TRUE(slot.kind != 1 || slot.tex.texture == 0);
      }
    }
    ASSERT_EQ(counts(stats()), counts(model.stats)) << step;
    ASSERT_TRUE(stats().in_use == 0 && stats().pooled == model.pooled()) << step;
    ASSERT_EQ(fake_egl::alive("texture").bytes, model.pooled()) << step;
    ASSERT_TRUE(fake_egl::alive("texture").count == model.pool.size() &&
                fake_egl::alive("framebuffer").count == model.pool.size())
        << step;
  }
  EXPECT_TRUE(fake_egl::driver.misuse.empty());
  scratch_cap(536870912);
  note_fallback();
  EXPECT_EQ(stats().fallbacks, model.stats.fallbacks + 1);
}

}  // namespace
