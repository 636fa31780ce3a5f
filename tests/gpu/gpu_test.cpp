#include <qv/gpu/draw.h>
#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/registry.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <thread>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

namespace {

namespace gl = qv::gpu::gl;
using qv::gpu::Pending;
using qv::gpu::UniformInfo;
using qv::gpu::Unit;

template <class T>
std::string bytes_of(const T* values, size_t count) {
  return {reinterpret_cast<const char*>(values), count * sizeof *values};
}

// The registry said plainly: what each location holds, and which batch, if any, is known to be
// there unchanged. Says what should be sent, its values left out, and counts that and what is skipped.
class Model {
 public:
  void set(uint32_t program, const Pending& p) {
    if (p.location >= 0) known[program];
    const auto at = known.find(program);
    // Counts beyond the 16 floats of a value are remembered, and never read.
    const Value value(p.count, bytes_of(p.values, static_cast<size_t>(std::clamp(p.count, 0, 16))));
    if (p.location >= 0 && at->second.held[p.location] == value) {
      ++skipped;
      return;
    }
    ++uploads;
    static const std::map<int, const char*> functions = {{1, "1fv"}, {2, "2fv"},       {3, "3fv"},
                                                         {4, "4fv"}, {9, "Matrix3fv"}, {16, "Matrix4fv"}};
    if (const auto function = functions.find(p.count); function != functions.end())
      sent.push_back(std::string("glProgramUniform") + function->second + ' ' + std::to_string(program) +
                     ' ' + std::to_string(p.location) + (p.count > 4 ? " 1 0 " : " 1 "));
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
    const std::string bytes = bytes_of(batch.data(), batch.size());
    if (entry.many == bytes) {
      skipped += batch.size();
      return;
    }
    for (const Pending& p : batch) set(program, p);
    entry.many = bytes;
    entry.key.reset();
  }

  void forget(uint32_t program, int32_t location) {
    const auto at = known.find(program);
    if (at == known.end()) return;
    at->second.key.reset();
    at->second.many.reset();
    for (auto& [place, value] : at->second.held)
      if (location < 0 || location == place) value = {};
  }

  using Value = std::pair<int, std::string>;
  struct Entry {
    std::map<int32_t, Value> held;
    std::optional<uint64_t> key;
    std::optional<std::string> many;
  };
  std::map<uint32_t, Entry> known;
  uint64_t uploads = 0, skipped = 0;
  std::vector<std::string> sent;
};

TEST(Registry, SendsExactlyWhatANaiveTwinSends) {
  fake_egl::reset();
  ASSERT_TRUE(gl::load(nullptr));
  for (uint32_t program = 1; program <= 3; ++program) qv::gpu::program_forget(program);
  std::mt19937 random(20);
  const auto below = [&](int n) { return std::uniform_int_distribution(0, n - 1)(random); };
  const auto pending = [&] {
    constexpr int counts[] = {0, 1, 2, 3, 4, 5, 9, 16, 17, std::numeric_limits<int>::max(), -1};
    constexpr float values[] = {0, 0, 0, 0, 0, 0, 1, -0.0F, std::numeric_limits<float>::quiet_NaN()};
    Pending p;
    p.location = below(6) - 1;
    p.count = counts[below(11)];
    for (float& value : p.values) value = values[below(9)];
    return p;
  };
  Model model;
  std::vector<Pending> batch;
  const qv::gpu::Stats start = qv::gpu::stats();
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
    std::vector<std::string> calls = fake_egl::take_calls();
    for (std::string& call : calls) call.resize(call.find('['));
    ASSERT_EQ(std::tuple(now.uploads - start.uploads, now.skipped - start.skipped,
                         qv::gpu::program_known(program), calls),
              std::tuple(model.uploads, model.skipped, model.known.count(program) != 0,
                         std::exchange(model.sent, {})))
        << "step " << step << " kind " << kind;
  }
  EXPECT_GT(std::min(model.skipped, model.uploads), 10000U);
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

int draw() {
  return qv::gpu::draw(1, 2, 2, 3, nullptr, -1, nullptr, -1, 4, 5, 6, 0);
}

TEST(EntryPoints, EveryMissingOneIsNamedAndLeavesTheOthersInPlace) {
  std::istringstream names(
      "BindFramebuffer Viewport Scissor UseProgram ActiveTexture BindTexture BindSampler BindVertexArray "
      "ProgramUniform1fv ProgramUniform2fv ProgramUniform3fv ProgramUniform4fv ProgramUniformMatrix3fv "
      "ProgramUniformMatrix4fv DrawElementsInstancedBaseInstance GetError");
  for (std::string hidden; names >> hidden;) {
    fake_egl::reset();
    ASSERT_TRUE(gl::load(nullptr));
    fake_egl::driver.hidden.insert("gl" + hidden);
    fake_egl::driver.hidden.insert("glBindFramebuffer");
    std::string error = "old";
    EXPECT_FALSE(gl::load(&error) || gl::load(nullptr) || gl::loaded() || gl::loaded_context());
    EXPECT_EQ(error, "OpenGL entry point gl" + hidden + " not available") << "the last missing one";
    EXPECT_TRUE(!gl::BindFramebuffer && !gl::Viewport == (hidden == "Viewport") &&
                !gl::GetError == (hidden == "GetError"));
    EXPECT_EQ(draw(), -2);
    EXPECT_TRUE(fake_egl::take_calls().empty());
  }
}

TEST(EntryPoints, BelongToTheContextOfTheLastLoadThatCouldLook) {
  fake_egl::reset();
  void* const first = gl::current_context();
  std::string error = "old";
  ASSERT_TRUE(gl::load(&error));
  EXPECT_EQ(error, "old");
  EXPECT_TRUE(gl::loaded() && gl::loaded_context() == first);
  EXPECT_EQ(draw(), 0);

  fake_egl::make_current(nullptr);
  EXPECT_FALSE(gl::load(&error));
  EXPECT_EQ(error, "no current EGL context on this thread");
  EXPECT_TRUE(gl::loaded() && gl::loaded_context() == first);
  EXPECT_EQ(draw(), -2);

  void* const second = fake_egl::fresh_context();
  fake_egl::make_current(second);
  EXPECT_EQ(draw(), -2);
  EXPECT_TRUE(gl::load(nullptr) && gl::loaded_context() == second);
  EXPECT_EQ(draw(), 0);
  std::thread([] { EXPECT_EQ(gl::current_context(), nullptr); }).join();
  fake_egl::make_current(first);
  EXPECT_EQ(draw(), -2);
}

TEST(Draw, BindsUploadsDrawsAndRestoresInThisOrder) {
  fake_egl::reset();
  ASSERT_TRUE(gl::load(nullptr));
  qv::gpu::program_forget(7);
  const std::array pending{Pending{2, 1, {0.5F}}, Pending{5, 4, {1, 2, 3, 4}}};
  const std::array units{Unit{3, 0x0DE1, 11, 12}, Unit{0, 0x0DE1, 13, 0}};
  std::vector<std::string> calls{"glBindFramebuffer 0x8d40 9",
                                 "glViewport 0 0 640 480",
                                 "glScissor 0 0 640 480",
                                 "glUseProgram 7",
                                 "glProgramUniform1fv 7 2 1 [0.5]",
                                 "glProgramUniform4fv 7 5 1 [1 2 3 4]",
                                 "glActiveTexture 0x84c3",
                                 "glBindTexture 0xde1 11",
                                 "glBindSampler 3 12",
                                 "glActiveTexture 0x84c0",
                                 "glBindTexture 0xde1 13",
                                 "glBindSampler 0 0",
                                 "glBindVertexArray 21",
                                 "glDrawElementsInstancedBaseInstance 4 6 0x1405 null 1 0",
                                 "glBindVertexArray 0",
                                 "glBindFramebuffer 0x8d40 1"};
  const qv::gpu::Stats before = qv::gpu::stats();
  for (const auto draws : {qv::gpu::draw, qv::gpu::draw, qv::gpu::draw_in_context}) {
    if (draws == qv::gpu::draw_in_context) fake_egl::make_current(fake_egl::fresh_context());
    EXPECT_EQ(draws(9, 640, 480, 7, pending.data(), 2, units.data(), 2, 21, 4, 6, 1), 0);
    EXPECT_EQ(fake_egl::take_calls(), calls);
    if (calls.size() == 16) calls.erase(calls.begin() + 4, calls.begin() + 6);  // the values are there
  }
  qv::gpu::count_draw();
  EXPECT_EQ(qv::gpu::stats().draws - before.draws, 4U);
  EXPECT_EQ(qv::gpu::stats().uploads - before.uploads, 2U);
  EXPECT_EQ(qv::gpu::stats().skipped - before.skipped, 4U);
}

}  // namespace
