#include "host/render/delivery.h"

#include "tests/host/render/scene.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include <gtest/gtest.h>

// Memory that runs out on the ring's thread, where nobody catches: a program of its own, because it
// replaces operator new.

namespace {

std::atomic<size_t> refused_size{0};  // of allocations on other threads than this one
std::thread::id drawing_thread;

}  // namespace

// Not inlined, or g++ takes malloc and free in one function for a mismatch.
[[gnu::noinline]] void* operator new(size_t size) {
  if (size == refused_size && std::this_thread::get_id() != drawing_thread) throw std::bad_alloc();
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t /*size*/) noexcept {
  std::free(memory);
}

namespace {

TEST(Delivery, ReportsAFrameThatTheWriterHadNoMemoryFor) {
  // A path of a length that nothing else has.
  std::string path = scene::folder().string() + "/";
  while (path.size() < 3000) path += "./";
  path += path.size() % 2 ? "o.exr" : "oo.exr";
  host::render::RenderOptions options;
  options.frames = {1};
  options.output = path;
  scene::Scene shot(R"({"name": "grey", "type": "constant"})", 8, 8, options);
  scene::Recorder recorder;
  drawing_thread = std::this_thread::get_id();
  refused_size = path.size() + 1;
  const auto outcome = shot.renderer().run(recorder);
  refused_size = 0;
  EXPECT_EQ(outcome, host::render::Outcome::some_failed);
  ASSERT_EQ(recorder.frames.size(), 1U);
  EXPECT_NE(recorder.frames[0].error, "");
}

}  // namespace
