#include "host/plates/headers.h"
#include "host/render/progress.h"
#include "tests/host/render/scene.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

// Which thread opens and asks for the attributes of source files: this program's own calls into the
// C library are counted, whoever makes them, for paths that hold `watched`.

namespace {

constexpr const char* watched = "watched";

struct Calls {
  int64_t opens = 0;
  int64_t stats = 0;
};

thread_local Calls here;
std::atomic<int64_t> opens_of_all = 0;

void count_open(const char* path) {
  if (!path || !std::strstr(path, watched)) return;
  ++here.opens;
  ++opens_of_all;
}

void count_stat(const char* path) {
  if (path && std::strstr(path, watched)) ++here.stats;
}

template <class Function>
Function* next(Function* /*like*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

mode_t mode_of(int flags, va_list rest) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : mode_t{0};
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = mode_of(flags, rest);
  va_end(rest);
  count_open(path);
  return next(&::open, "open")(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = mode_of(flags, rest);
  va_end(rest);
  count_open(path);
  return next(&::open, "open64")(path, flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
  count_open(path);
  return next(&::fopen, "fopen")(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
  count_open(path);
  return next(&::fopen, "fopen64")(path, mode);
}

int stat(const char* path, struct stat* to) noexcept {
  count_stat(path);
  int (*const original)(const char*, struct stat*) =
      reinterpret_cast<int (*)(const char*, struct stat*)>(dlsym(RTLD_NEXT, "stat"));
  return original(path, to);
}

int stat64(const char* path, struct stat64* to) noexcept {
  count_stat(path);
  int (*const original)(const char*, struct stat64*) =
      reinterpret_cast<int (*)(const char*, struct stat64*)>(dlsym(RTLD_NEXT, "stat64"));
  return original(path, to);
}

}  // extern "C"

namespace {

struct Silent : host::render::Progress {
  void begin(int64_t /*frames*/, const std::string& /*renderer*/, bool /*software*/) override {}
  void notice(const std::string& /*text*/) override {}
  void frame(const host::render::FrameReport& report) override {
    EXPECT_EQ(report.error, "");
  }
  void end(host::render::Outcome /*outcome*/, const host::render::Stats& /*stats*/) override {}
};

void write_sources(int frames) {
  scene::Plate plate;
  plate.pixels.assign(8 * 8 * 4, 0.5F);
  scene::write_plate(scene::folder() / "watched still.exr", plate);
  for (int frame = 1; frame <= frames; ++frame) {
    const std::string number = std::to_string(frame) + ".exr";
    plate.channels = {"R", "G", "B", "A"};
    plate.pixels.assign(8 * 8 * 4, 0.5F);
    scene::write_plate(scene::folder() / ("watched plain." + number), plate);
    plate.channels = {"R", "G", "B", "A", "key.R", "key.G", "key.B", "key.A"};
    plate.pixels.assign(8 * 8 * 8, 0.5F);
    scene::write_plate(scene::folder() / ("watched layers." + number), plate);
  }
}

constexpr const char* nodes = R"({"name": "still", "type": "read", "knobs": {"file": "watched still.exr"}},
    {"name": "plain", "type": "read", "knobs": {"file": "watched plain.#.exr"}},
    {"name": "key", "type": "read", "knobs": {"file": "watched layers.#.exr", "layer": "key"}},
    {"name": "a", "type": "merge", "inputs": {"a": "plain", "b": "still"}},
    {"name": "b", "type": "merge", "inputs": {"a": "key", "b": "a"}},
    {"name": "out", "type": "write", "inputs": "b", "knobs": {"file": "seen.####.exr"}})";

TEST(DrawingThread, OpensNoSourceAndAsksOnceAFrameForItsAttributes) {
  constexpr int frames = 6;
  write_sources(frames);
  host::render::RenderOptions options;
  options.existing = host::frame::Existing::overwrite;
  for (int frame = 1; frame <= frames; ++frame) options.frames.push_back(frame);
  scene::Scene shot(nodes, 8, 8, options);
  for (const bool run : {true, false}) {
    here = {};
    opens_of_all = 0;
    Silent progress;
    if (run) {
      EXPECT_EQ(shot.renderer().run(progress), host::render::Outcome::done);
    } else {
      scene::Scene again(nodes);
      for (int frame = 1; frame <= frames; ++frame) again.image("b", frame);
    }
    EXPECT_EQ(here.opens, 0) << run;
    EXPECT_EQ(here.stats, 3 * frames) << run;  // three sources
    EXPECT_GE(opens_of_all, 2 * frames + 1) << run;
  }
}

}  // namespace
