#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/registry.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <tuple>

#include <gtest/gtest.h>

namespace {

using qv::gpu::Pending;
using qv::gpu::UniformInfo;

bool same(const Pending& a, const Pending& b) {
  return a.location == b.location && a.count == b.count && std::equal(a.values, a.values + 16, b.values);
}

// The registry said plainly: what each location holds, and which batch, if any, is known to be
// there unchanged. Counts what should be sent and skipped.
class Model {
 public:
  void set(uint32_t program, const Pending& p) {
    if (p.location >= 0) known[program];
    const auto at = known.find(program);
    std::vector<float> value(p.values, p.values + p.count);
    if (p.location >= 0 && at->second.held[p.location] == value) {
      ++skipped;
      return;
    }
    ++uploads;
    if ((p.count >= 1 && p.count <= 4) || p.count == 9 || p.count == 16) ++gl_calls;
    if (at == known.end()) return;
    if (p.location >= 0) at->second.held[p.location] = value;
    at->second.key.reset();
    at->second.many.reset();
  }

  void set_block(uint32_t program, uint64_t key, const std::vector<Pending>& batch) {
    if (key != 0 && known[program].key == key) {
      skipped += batch.size();
      return;
    }
    for (const Pending& p : batch) set(program, p);
    known[program].key = key;
    known[program].many.emplace();
  }

  void set_many(uint32_t program, const std::vector<Pending>& batch) {
    auto& entry = known[program];
    if (entry.many && std::equal(batch.begin(), batch.end(), entry.many->begin(), entry.many->end(), same)) {
      skipped += batch.size();
      return;
    }
    for (const Pending& p : batch) set(program, p);
    entry.many = batch;
    entry.key.reset();
  }

  void forget(uint32_t program, int32_t location) {
    const auto at = known.find(program);
    if (at == known.end()) return;
    at->second.key.reset();
    at->second.many.reset();
    for (auto& [place, value] : at->second.held)
      if (location < 0 || location == place) value.clear();
  }

  struct Entry {
    std::map<int32_t, std::vector<float>> held;
    std::optional<uint64_t> key;
    std::optional<std::vector<Pending>> many;
  };
  std::map<uint32_t, Entry> known;
  uint64_t uploads = 0, skipped = 0, gl_calls = 0;
};

TEST(Registry, SendsExactlyWhatANaiveTwinSends) {
  fake_egl::reset();
  ASSERT_TRUE(qv::gpu::gl::load(nullptr));
  fake_egl::record(false);
  for (uint32_t program = 1; program <= 3; ++program) qv::gpu::program_forget(program);
  std::mt19937 random(20);
  const auto below = [&](int n) { return std::uniform_int_distribution(0, n - 1)(random); };
  const auto pending = [&] {
    constexpr int counts[] = {0, 1, 2, 3, 4, 5, 9, 16};
    Pending p;
    p.location = below(6) - 1;
    p.count = counts[below(8)];
    for (float& value : p.values) value = static_cast<float>(below(8) == 0);
    return p;
  };
  Model model;
  std::vector<Pending> batch;
  const qv::gpu::Stats start = qv::gpu::stats();
  const uint64_t start_calls = fake_egl::call_count();
  for (int step = 0; step < 40000; ++step) {
    const auto program = static_cast<uint32_t>(1 + below(3));
    const int kind = below(16);
    // Often the same batch again, which is what the memos are for.
    if (below(3) == 0) batch.assign(static_cast<size_t>(below(4)), pending());
    const auto n = static_cast<int32_t>(batch.size());
    if (kind < 5) {
      const Pending p = pending();
      qv::gpu::uniform_set(program, p.location, p.values, p.count);
      model.set(program, p);
    } else if (kind < 9) {
      const auto key = static_cast<uint64_t>(below(3));
      qv::gpu::uniform_set_block(program, key, batch.data(), n);
      model.set_block(program, key, batch);
    } else if (kind < 14) {
      qv::gpu::uniform_set_many(program, batch.data(), n);
      model.set_many(program, batch);
    } else if (kind == 14) {
      const int location = below(8) - 1;
      qv::gpu::uniform_forget(program, location);
      model.forget(program, location);
    } else {
      qv::gpu::program_forget(program);
      model.known.erase(program);
    }
    const qv::gpu::Stats now = qv::gpu::stats();
    ASSERT_EQ(std::tuple(now.uploads - start.uploads, now.skipped - start.skipped,
                         fake_egl::call_count() - start_calls, qv::gpu::program_known(program)),
              std::tuple(model.uploads, model.skipped, model.gl_calls, model.known.count(program) != 0))
        << "step " << step << " kind " << kind;
  }
  EXPECT_GT(std::min(model.skipped, model.uploads), 10000U);
}

TEST(Registry, ComparesBytesAndUploadsMatricesUntransposed) {
  fake_egl::reset();
  ASSERT_TRUE(qv::gpu::gl::load(nullptr));
  qv::gpu::program_forget(1);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const float value : {nan, nan, 0.0F, -0.0F}) qv::gpu::uniform_set(1, 0, &value, 1);
  const float matrix[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  qv::gpu::uniform_set(1, 1, matrix, 9);
  qv::gpu::uniform_set(1, 1, matrix, 16);
  EXPECT_EQ(fake_egl::take_calls(),
            (std::vector<std::string>{
                "glProgramUniform1fv 1 0 1 [nan]", "glProgramUniform1fv 1 0 1 [0]",
                "glProgramUniform1fv 1 0 1 [-0]", "glProgramUniformMatrix3fv 1 1 1 0 [1 2 3 4 5 6 7 8 9]",
                "glProgramUniformMatrix4fv 1 1 1 0 [1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16]"}));
  // Counts beyond the 16 floats of a value are never read nor stored.
  const uint64_t uploads = qv::gpu::stats().uploads;
  for (const int count : {17, std::numeric_limits<int>::max(), -1}) qv::gpu::uniform_set(1, 2, matrix, count);
  EXPECT_EQ(qv::gpu::stats().uploads - uploads, 3U);
  EXPECT_TRUE(fake_egl::take_calls().empty());
}

TEST(Registry, FindsUniformsByBytesAtAddressesThatStay) {
  qv::gpu::program_forget(5);
  qv::gpu::program_add(5, "u_size", {3, 1, 2});
  const UniformInfo* const info = qv::gpu::uniform_info(5, "u_size");
  for (int i = 0; i < 1000; ++i) {
    qv::gpu::program_add(5, std::to_string(i) + "_u", {i, 0, 1});
    qv::gpu::program_add(static_cast<uint32_t>(100 + i), "u", {});
  }
  EXPECT_EQ(qv::gpu::uniform_info(5, std::string_view("u_size_x", 6)), info);
  EXPECT_EQ(qv::gpu::uniform_info(5, "u_siz"), nullptr);
  EXPECT_EQ(info->location, 3);
  qv::gpu::program_add(5, "u_size", {});
  EXPECT_TRUE(info->location == -1 && info->type == 7) << "added again: overwritten in place";
  for (uint32_t i = 0; i < 1000; ++i) qv::gpu::program_forget(100 + i);
  EXPECT_FALSE(qv::gpu::program_known(100));
  using qv::gpu::uniform_accepts;
  EXPECT_TRUE(uniform_accepts({0, 1, 4}, 4) && uniform_accepts({0, 5, 1}, 9) &&
              uniform_accepts({0, 6, 1}, 16));
  EXPECT_FALSE(uniform_accepts({0, 1, 5}, 5) || uniform_accepts({0, 5, 1}, 16) || uniform_accepts({}, 1) ||
               uniform_accepts({0, 0, 2}, 1) || uniform_accepts({0, 2, 1}, 1));
}

}  // namespace
