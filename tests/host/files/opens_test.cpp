#include "host/plates/headers.h"
#include "tests/host/render/scene.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

// Which thread opens and asks for the attributes of source files: this program's own calls into the
// C library are counted, whoever makes them, for paths that hold `watched`.

namespace {

constexpr const char* watched = "watched";

struct Calls {
  int64_t opens = 0, stats = 0;
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

}  // namespace

#define PASSED_ON(name, type) reinterpret_cast<type>(dlsym(RTLD_NEXT, #name))
#define COUNTED_OPEN(name)                                                               \
  int name(const char* path, int flags, ...) {                                           \
    va_list rest;                                                                        \
    va_start(rest, flags);                                                               \
    const mode_t mode = flags & (O_CREAT | O_TMPFILE) ? va_arg(rest, mode_t) : mode_t{}; \
    va_end(rest);                                                                        \
    count_open(path);                                                                    \
    return PASSED_ON(name, int (*)(const char*, int, ...))(path, flags, mode);           \
  }
#define COUNTED_FOPEN(name)                                                   \
  FILE* name(const char* path, const char* mode) {                            \
    count_open(path);                                                         \
    return PASSED_ON(name, FILE * (*)(const char*, const char*))(path, mode); \
  }
#define COUNTED_STAT(name)                                                \
  int name(const char* path, struct name* to) noexcept {                  \
    count_stat(path);                                                     \
    return PASSED_ON(name, int (*)(const char*, struct name*))(path, to); \
  }

extern "C" {

COUNTED_OPEN(open)
COUNTED_OPEN(open64)
COUNTED_FOPEN(fopen)
COUNTED_FOPEN(fopen64)
COUNTED_STAT(stat)
COUNTED_STAT(stat64)

}  // extern "C"

namespace {

void write_sources(int frames) {
  std::mt19937 random(1);
  scene::write_plate("watched still.exr", scene::noise(random, 8, 8));
  std::filesystem::create_directory(scene::folder() / "watched held");
  scene::write_plate("watched held/h.1.exr", scene::noise(random, 8, 8));
  for (const std::string name : {"hole.1", "hole.9", "dark.1", "dark.9"})
    scene::write_plate("watched " + name + ".exr", scene::noise(random, 8, 8));
  for (int frame = 1; frame <= frames; ++frame) {
    const std::string number = std::to_string(frame) + ".exr";
    scene::write_plate("watched plain." + number, scene::noise(random, 8, 8));
    scene::write_plate("watched layers." + number,
                       scene::noise(random, 8, 8, {"R", "G", "B", "A", "key.R", "key.G", "key.B", "key.A"}));
  }
}

const std::string nodes =
    scene::read_plate("watched still.exr", "still") + scene::read_plate("watched plain.#.exr", "plain") + R"(,
    {"name": "key", "type": "read", "knobs": {"file": "watched layers.#.exr", "layer": "key"}},
    {"name": "black", "type": "read", "knobs": {"file": "watched dark.#.exr", "missing": "black"}},
    {"name": "near", "type": "read", "knobs": {"file": "watched hole.#.exr", "missing": "nearest"}},
    {"name": "holes", "type": "merge", "inputs": {"a": "black", "b": "near"}},
    {"name": "all", "type": "merge", "inputs": {"a": "holes", "b": "still"}},
    {"name": "a", "type": "merge", "inputs": {"a": "plain", "b": "all"}},
    {"name": "held", "type": "read", "knobs": {"file": "watched held/h.#.exr", "after": "hold"}},
    {"name": "c", "type": "merge", "inputs": {"a": "key", "b": "a"}},
    {"name": "b", "type": "merge", "inputs": {"a": "held", "b": "c"}},
    {"name": "out", "type": "write", "inputs": "b", "knobs": {"file": "seen.####.exr"}})";

TEST(DrawingThread, OpensNoSourceAndAsksOnceAFrameForItsAttributes) {
  constexpr int frames = 6;
  write_sources(frames);
  host::render::RenderOptions options;
  for (int frame = 1; frame <= frames; ++frame) options.frames.push_back(frame);
  for (const bool run : {true, false}) {
    here = {};
    opens_of_all = 0;
    if (run) {
      scene::render(nodes, 8, 8, options);
    } else {
      scene::Scene again(nodes);
      for (int frame = 1; frame <= frames; ++frame) again.image("b", frame);
    }
    EXPECT_EQ(here.opens, 0) << run;
    // Six sources; where two of them are missing, what stands in for them as well; and the folder of the one
    // that holds its last frame.
    EXPECT_EQ(here.stats, 6 * frames + 2 * (frames - 1) + frames) << run;
    EXPECT_GE(opens_of_all, 2 * frames + 1) << run;
  }
}

}  // namespace
