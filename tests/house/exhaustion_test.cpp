#include <qv/anim/curve.h>
#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/registry.h>
#include <qv/graph/schedule.h>
#include <qv/graph/walk.h>
#include <qv/io/scheduler.h>
#include <qv/nodes/filter/ops.h>
#include <qv/nodes/filter/plan.h>
#include <qv/nodes/merge/channels.h>
#include <qv/nodes/merge/merge.h>
#include <qv/nodes/ocio/splice.h>
#include <qv/nodes/time/frames.h>
#include <qv/transport/ring.h>

#include "tests/graph/checks.h"
#include "tests/nodes/filter/programs.h"
#include "tests/support/allocations.h"
#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <new>
#include <tuple>

#include <gtest/gtest.h>

namespace {

namespace gl = qv::gpu::gl;
namespace filter = qv::nodes::filter;
namespace transport = qv::transport;
using qv::graph::ResultCache;
using support::allocations;

// A thing that the library does: from a fresh start it acts, and runs out of memory anywhere on its way.
// What a caller can see is then as it was before, and once there is memory again it acts as if nothing had
// happened.
struct Row {
  const char* name;
  std::function<void()> start;
  std::function<void()> act;
  std::function<std::string()> look;
};

// Runs `act` with its n-th allocation failing; whether that stopped it.
template <class Act>
bool stopped(int64_t n, const Act& act) {
  allocations.left = n;
  try {
    act();
  } catch (const std::bad_alloc&) {
    allocations.left = -1;
    return true;
  }
  allocations.left = -1;
  return false;
}

template <class... Values>
std::string text(const Values&... values) {
  return testing::PrintToString(std::tuple(values...));
}

void start_ring() {
  transport::close();
  fake_egl::reset();
  fake_egl::recording = false;
  fake_egl::plan_transfers([] { return fake_egl::Fence::prompt; }, [] { return true; });
}

void start_filters() {
  programs::start();
  fake_egl::recording = false;
}

const std::string long_name = "a name that is too long for a string's own room";

void step_cache(ResultCache& cache, int64_t step) {
  const std::pair<int64_t, int64_t> holds[] = {{step, 10}, {step / 2, 7}, {~step, 3}};
  cache.touching = true;
  if (step % 6 == 0)
    cache.put(step % 130, step, holds, static_cast<size_t>(step) % 4, true, 1, step % 3 == 0);
  if (step % 6 == 1) cache.get(step % 70, true);
  if (step % 6 == 2) cache.move(step % 50, step % 2 == 0);
  if (step % 6 == 3) cache.touch(step);
  if (step % 6 == 4) cache.evict(step % 17 ? 300 : 60, 200);
  if (step % 6 == 5) cache.end_touch({step / 3, step / 4, step / 5});
}

// The step behind all those before it.
Row cache_row(int64_t step) {
  static std::unique_ptr<ResultCache> cache;
  const auto start = [step] {
    cache = std::make_unique<ResultCache>();
    for (int64_t earlier = 0; earlier < step; ++earlier) step_cache(*cache, earlier);
  };
  const auto look = [] {
    qv::graph::ResultCacheCheck::holds(*cache);
    return testing::PrintToString(std::tuple(cache->keys(false), cache->keys(true), cache->slots(),
                                             cache->held(false), cache->held(true)));
  };
  return {"ResultCache", start, [step] { step_cache(*cache, step); }, look};
}

std::vector<Row> rows() {
  static std::vector<double> in, out;
  static qv::graph::Schedule schedule;
  static qv::graph::Walk walk;
  static std::unique_ptr<qv::io::DecodeScheduler> scheduler;
  static std::array<float, 64> pixels;
  static const std::vector<qv::anim::Key> keys = {{.time = 1, .value = 2, .kind = 4},
                                                  {.time = 2, .value = 9, .kind = 4},
                                                  {.time = 4, .value = 3, .kind = 6}};
  const auto silent = [] { return std::string(); };
  const auto pool = [] {
    return text(filter::stats().in_use, filter::stats().pooled - fake_egl::alive("texture").bytes,
                fake_egl::alive("texture").count - fake_egl::alive("framebuffer").count,
                fake_egl::driver.misuse.size());
  };
  static const qv::gpu::UniformInfo uniform = {3, 0, 1};
  static const filter::Prog few = {1, 2, 3, 4, {{"u_a", 5}}};
  static const filter::Prog many = {6, 7, 8, 9, {{long_name, 1}, {long_name, 2}, {"u_b", 3}}};
  static const std::vector<std::vector<int>> two = {{}, {0}}, three = {{}, {}, {0, 1}};
  std::vector<Row> all = {
      {"gl::load, a function missing",
       [] {
         fake_egl::reset();
         gl::load(nullptr);
         fake_egl::driver.hidden.insert("glScissor");
       },
       [] {
         std::string error;
         EXPECT_FALSE(gl::load(&error));
       },
       [] { return gl::loaded() == (gl::Scissor != nullptr) ? "as it says" : "loaded without a function"; }},
      {"slopes", [] { in = out = {7}; }, [] { qv::anim::slopes(keys, in, out); },
       [] { return text(in.size(), out.size(), in.back(), out.back()); }},
      {"program_add", [] { qv::gpu::program_forget(77); },
       [] { qv::gpu::program_add(77, long_name, uniform); },
       [] { return text(qv::gpu::program_known(77), qv::gpu::uniform_info(77, long_name) != nullptr); }},
      {"program_set", [] { filter::program_set(long_name, few); },
       [] { filter::program_set(long_name, many); },
       [] {
         const filter::Prog* const prog = filter::program_get(long_name);
         return text(prog->program, prog->count, prog->samplers.size(), prog->samplers.back().second);
       }},
      {"uniforms",
       [] {
         start_filters();
         qv::gpu::program_forget(77);
       },
       [] {
         const qv::gpu::Pending batch[] = {{40, 1, {1}}, {3, 4, {1, 2, 3, 4}}};
         qv::gpu::uniform_set_many(77, batch, 2);
         qv::gpu::uniform_set(77, 90, batch[0].values, 1);
       },
       silent},
      {"run_op", start_filters,
       [] {
         const double glow[] = {9, 9, 3, 4, 0, 0, 64, 48, .5, 1, 1, 1, 2, 1, 0};
         const double blur[] = {12, 3, 2, 0, 0, 0, 64, 48};
         EXPECT_EQ(filter::run_op("glow", programs::inputs, glow, programs::target(), 0), 1);
         EXPECT_EQ(filter::run_op("blur", programs::inputs, blur, programs::target(), 0), 1);
         EXPECT_EQ(filter::op_frags("disc").size(), 2U);
       },
       pool},
      {"Walk::walk",
       [] {
         walk = {};
         walk.build({{}, {0}, {1}, {0}}, {0, 0, 0, 0}, {1, 2, 3, 4});
       },
       [] {
         EXPECT_EQ(walk.walk({0}, false, [](int node, bool) { return walk.values[size_t(node)] + 1; }), 4);
       },
       [] { return text(walk.values[0], walk.values[3], int{walk.seeded[0]}, int{walk.changed[0]}); }},
      {"Schedule::build",
       [] {
         schedule = {};
         schedule.build(two, {});
       },
       [] { schedule.build(three, {}); },
       [] { return text(schedule.offsets.size(), schedule.inputs.size(), schedule.flags.size()); }},
      {"DecodeScheduler", [] { scheduler = std::make_unique<qv::io::DecodeScheduler>(1, 0, 1); },
       [] { EXPECT_EQ(scheduler->submit("/dev/null as " + long_name, 0), 1); },
       [] { return text(scheduler->state(1) >= 0); }},
      {"what keeps nothing", [] { schedule.build(two, {}); },
       [] {
         ResultCache cache;
         EXPECT_EQ(schedule.run({1, 2}, cache, true).order.size(), 2U);
         EXPECT_EQ(qv::anim::Curve(keys, true).value(1), 2);
         std::array<qv::nodes::merge::Route, 8> routes;
         qv::nodes::merge::shuffle_routing(long_name, routes);
         qv::nodes::merge::common_parse_channel(long_name + "." + long_name);
         qv::nodes::merge::merge_setup(long_name, long_name, long_name, long_name, long_name, 1, true, true);
         qv::nodes::time::shutter_weights(1, 9, 4, 0, 0);
         std::string source = "texture(" + long_name + ", x)";
         EXPECT_TRUE(qv::nodes::ocio::patch_lut3d(source, long_name));
       },
       silent},
      {"transport::init", start_ring, [] { EXPECT_TRUE(transport::init(nullptr)); },
       [] { return text(transport::ready()); }},
      {"transport::start",
       [] {
         start_ring();
         transport::init(nullptr);
       },
       [] {  // Needs no memory, because none may be missing once reads are on their way.
         EXPECT_FALSE(stopped(0, [] {
           for (int n = 0; n < 12; ++n)
             EXPECT_GT(transport::start(7, 9, 0, 0, 4, 4, 4, pixels.data(), nullptr, 0, {}), 0U);
         }));
         transport::wait_all();
       },
       [] {
         transport::wait_all();
         return text(fake_egl::fences_alive(), fake_egl::driver.misuse.size());
       }},
  };
  for (int64_t step = 0; step < 180; ++step) all.push_back(cache_row(step));
  return all;
}

TEST(Exhaustion, WhicheverAllocationFailsNothingHasHappened) {
  for (const Row& row : rows()) {
    row.start();
    row.act();
    const std::string wanted = row.look();
    for (int64_t n = 0, failed = 1; failed; ++n) {
      row.start();
      const std::string before = row.look();
      failed = stopped(n, row.act);
      if (failed) {
        EXPECT_EQ(row.look(), before) << row.name << ", allocation " << n;
        row.act();
      }
      EXPECT_EQ(row.look(), wanted) << row.name << ", allocation " << n;
    }
    // A second round after the same start leaves nothing more behind than the first.
    row.start();
    const int64_t live = allocations.live;
    row.start();
    EXPECT_EQ(allocations.live, live) << row.name;
  }
  transport::close();
}

// Every entry but two, which share one, holds a buffer of its own, so that the table of buffers is as full at
// each number of entries as it ever gets.
TEST(Exhaustion, ACacheNeedsNoMemoryForWhatIsThere) {
  const std::vector<int64_t> used = {0, 1, -5};
  for (int64_t n = 1; n <= 200; ++n) {
    ResultCache cache;
    for (int64_t key = 0; key < n; ++key) {
      const std::pair<int64_t, int64_t> hold = {std::max<int64_t>(key, 1), 10};
      cache.put(key, key, &hold, 1, true, 1, false);
    }
    const auto use = [&] {
      for (int64_t key = 0; key < n; ++key) {
        cache.get(key, true);
        cache.move(key, key % 2 == 0);
        cache.touch(key);
      }
      cache.end_touch(used);
    };
    cache.touching = true;
    EXPECT_FALSE(stopped(0, use)) << n << " entries";
    qv::graph::ResultCacheCheck::holds(cache);
  }
}

}  // namespace
