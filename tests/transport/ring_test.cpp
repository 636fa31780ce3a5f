#include <qv/transport/ring.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <array>
#include <climits>
#include <deque>
#include <latch>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

namespace transport = qv::transport;
using fake_egl::Fence;

namespace {

int callbacks = 0;  // only the background thread counts
void* context = nullptr;

// One read, where it goes and what became of it.
struct Image {
  int x, y, w, h, channels;
  std::vector<float> pixels = std::vector<float>(static_cast<size_t>(w * h * channels), -1.0F);
  std::vector<unsigned> aux = std::vector<unsigned>(8, 2U);
  int called = 0, order = 0;
  uint64_t ticket = 0, told = 0;  // by start, in the callback
  bool failed = false;            // in the callback

  uint64_t start() {
    return ticket = transport::start(7, 9, x, y, w, h, channels, pixels.data(), aux.data(), 8, [this] {
             order = ++callbacks;
             failed = transport::failed(told = transport::current_ticket());
             called +=
                 transport::pending() > 0 && transport::start(7, 9, 0, 0, 1, 1, 4, this, nullptr, 0, {}) == 0;
             throw std::runtime_error("from a callback");
           });
  }
  int chunk_rows() const {
    const int chunks = std::clamp(w * h * channels / 1048576, 1, 8);
    return (h + chunks - 1) / chunks;
  }
  // The rows that arrived by the progress words; -1 when the words or the pixels say otherwise.
  int rows() const {
    const auto ones = std::count(aux.begin(), aux.end(), 1U);
    std::vector<unsigned> expected(8, 2U);
    std::fill_n(expected.begin(), (h + chunk_rows() - 1) / chunk_rows(), 0U);
    std::fill_n(expected.begin(), ones, 1U);
    const int arrived = std::min(static_cast<int>(ones) * chunk_rows(), h);
    bool same = aux == expected;
    for (int k = 0; k < w * h * channels; ++k) {
      const int row = k / channels / w;
      const float wanted =
          row < arrived ? fake_egl::pixel(x + k / channels % w, y + row, k % channels) : -1.0F;
      same = same && pixels[static_cast<size_t>(k)] == wanted;
    }
    return same ? arrived : -1;
  }
};

// A ring on a driver whose fences and mappings do as they are told.
void begin(
    std::function<Fence()> fence = [] { return Fence::prompt; },
    std::function<bool()> map = [] { return true; }) {
  fake_egl::reset();
  fake_egl::make_current(context = fake_egl::fresh_context());
  fake_egl::plan_transfers(std::move(fence), std::move(map));
  EXPECT_TRUE(transport::init(nullptr) && transport::init(nullptr) && transport::pending() == 0);
}

void end() {
  transport::close();
  EXPECT_EQ(fake_egl::alive("buffer").count + fake_egl::fences_alive(), 0U);
  EXPECT_EQ(fake_egl::driver.misuse, std::vector<std::string>());
}

TEST(Ring, NeedsEveryFunction) {
  for (const char* name :
       {"glBindBuffer", "glUnmapBuffer", "glDeleteBuffers", "glGenBuffers", "glBufferStorage",
        "glMapBufferRange", "glBindFramebuffer", "glReadBuffer", "glReadPixels", "glFlush",
        "eglGetCurrentDisplay", "eglCreateSyncKHR", "eglClientWaitSyncKHR", "eglDestroySyncKHR"}) {
    fake_egl::reset();
    fake_egl::driver.hidden.insert(name);
    std::string error;
    EXPECT_FALSE(transport::init(&error) || transport::ready()) << name;
    EXPECT_EQ(error, "libEGL.so.1 / eglGetProcAddress not available");
    EXPECT_EQ((Image{0, 0, 1, 1, 4}.start()), 0U);
  }
}

// What arrives, in how many waits of 100 ms, and what is left bound.
TEST(Ring, ServesWhatItsFencesLetThrough) {
  const std::tuple<int, int, int, Fence, Fence, int, int, int> cases[] = {
      {10, 300, 2, Fence::prompt, Fence::prompt, 1, 300, 1},
      {10, 300, 2, Fence::silent, Fence::prompt, 1, 0, 300},
      {1024, 599, 4, Fence::prompt, Fence::prompt, 1, 599, 2},
      {1024, 599, 4, Fence::late, Fence::broken, 1, 300, 5},
      {1024, 599, 4, Fence::broken, Fence::prompt, 1, 0, 1},
      {1024, 599, 4, Fence::prompt, Fence::refused, 0, 0, 1}};  // waited for before it is let go
  std::deque<Fence> kinds;
  std::map<std::string, std::string> last;  // of each call its last argument
  begin([&] { return kinds.size() > 1 ? kinds.pop_front(), kinds.front() : kinds.front(); });
  for (const auto& [w, h, channels, first, second, called, rows, expected_waits] : cases) {
    kinds = {Fence::prompt, first, second};
    Image image{3, 5, w, h, channels};
    transport::wait(image.start());
    EXPECT_TRUE(image.called == called && (called == 0 || image.rows() == rows)) << rows;
    int waits = 0, flushes = 0;
    for (const std::string& call : fake_egl::take_calls()) {
      waits += call.starts_with("eglClientWaitSyncKHR");
      flushes += call == "glFlush";
      last[call.substr(0, call.find(' '))] = call.substr(call.rfind(' ') + 1);
    }
    EXPECT_TRUE(waits == expected_waits && flushes == 2) << waits << " and " << flushes;
    EXPECT_TRUE(last["glBindBuffer"] == "0" && last["glBindFramebuffer"] == "9") << rows;
    EXPECT_EQ(fake_egl::alive("buffer").count, 1U);
  }
  end();
  // Colour attachment 0, into memory that stays mapped, is the host's and needs no flush to be seen.
  EXPECT_TRUE(last["glReadBuffer"] == "0x8ce0" && last["glBufferStorage"] == "705" &&
              last["glMapBufferRange"] == "193");
}

TEST(Ring, RefusesWhatCannotBeRead) {
  begin();
  const auto held = std::make_shared<std::array<float, 2>>();
  const std::array<int, 5> cases[] = {
      {0, 0, 0, 1, 4},       {0, 0, 1, -1, 4},          {0, 0, 1, 1, 3},
      {0, INT_MAX, 1, 1, 4}, {INT_MAX - 4, 0, 5, 1, 2}, {0, 0, INT_MAX, INT_MAX, 4},
      {0, 0, 1, 1, 4}};
  for (const auto& [x, y, w, h, channels] : cases) {
    float* const out = &cases[6][0] == &x ? nullptr : held->data();
    EXPECT_EQ(transport::start(7, 9, x, y, w, h, channels, out, nullptr, 0, [held] { FAIL(); }), 0U) << w;
  }
  EXPECT_TRUE(held.use_count() == 1 && fake_egl::take_calls().empty());
  // What a callback captured ends before its ticket, and where it may still look at the ring.
  const auto look = [](void*) { transport::pending(); };
  const uint64_t ticket = transport::start(7, 9, 0, 0, 1, 1, 2, held->data(), nullptr, 8,
                                           [held, last = std::shared_ptr<void>(nullptr, look)] {});
  transport::wait(ticket);
  EXPECT_TRUE(held.use_count() == 1 && transport::done(0) && transport::done(ticket + 1));
  end();
}

TEST(Ring, CutsLargeImagesAndKeepsBuffers) {
  begin();
  const uint64_t before = transport::stats().allocations;
  const std::array<int, 6> cases[] = {
      {512, 512, 4, 1, 512, 1},   {1024, 512, 4, 2, 256, 2},  {512, 512, 4, 1, 512, 2},
      {1448, 1449, 2, 4, 363, 3}, {400000, 5, 4, 5, 1, 4},    {1536, 1536, 4, 8, 192, 5},
      {1537, 1536, 4, 8, 192, 6}, {2048, 2048, 4, 8, 256, 7}, {2048, 2047, 4, 8, 256, 7}};
  for (const auto& [w, h, channels, chunks, rows, allocations] : cases) {
    Image image{0, 0, w, h, channels};
    transport::wait(image.start());
    EXPECT_EQ(std::count(image.aux.begin(), image.aux.end(), 1U), chunks);
    EXPECT_TRUE(image.chunk_rows() == rows && image.rows() == h) << w;
    EXPECT_EQ(transport::stats().allocations - before, static_cast<uint64_t>(allocations)) << w;
  }
  end();
}

// The ring never shrinks, so this comes before the storm, which adds slots.
TEST(Ring, HoldsStartsBackWhileItIsFull) {
  begin([first = true]() mutable { return std::exchange(first, false) ? Fence::held : Fence::prompt; });
  std::deque<Image> images(7, {1, 2, 33, 9, 2});
  images[1] = {0, 0, 400, 400, 4};
  for (size_t k = 0; k < 3; ++k) images[k].start();
  std::vector<std::thread> threads;
  std::latch waiting(4);
  for (size_t k = 3; k < 7; ++k) {
    threads.emplace_back([&, k] {
      fake_egl::make_current(context);
      waiting.count_down();
      images[k].start();
      transport::wait(images[0].ticket);
    });
  }
  waiting.wait();
  std::this_thread::yield();
  transport::set_ring_size(4);  // lets one of the four in
  fake_egl::await_reads(4);
  EXPECT_TRUE(transport::pending() >= 3 && !transport::done(images[0].ticket) &&
              !transport::done(images[2].ticket));
  fake_egl::release();
  for (std::thread& thread : threads) thread.join();
  transport::wait_all();
  for (const Image& image : images) EXPECT_TRUE(image.called == 1 && image.rows() == image.h);
  const uint64_t before = transport::stats().allocations;
  transport::wait(images[1].start());  // passes over the smaller slot before its own
  EXPECT_EQ(transport::stats().allocations, before);
  end();
}

TEST(Ring, SurvivesAStorm) {
  const transport::Stats before = transport::stats();
  std::mt19937 fate(1);
  constexpr Fence odd[] = {Fence::refused, Fence::broken, Fence::silent, Fence::late};
  begin([&] { return fate() % 5 == 0 ? odd[fate() % 4] : Fence::prompt; }, [&] { return fate() % 3 != 0; });
  fake_egl::recording = false;
  std::deque<Image> images[3];
  std::vector<std::thread> threads;
  for (unsigned k = 0; k < 3; ++k) {
    threads.emplace_back([&mine = images[k], random = std::mt19937(k)]() mutable {
      fake_egl::make_current(context);
      const auto upto = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
      for (int n = 0; n < 60; ++n) {
        const int size = std::max(0, upto(12) - 7);  // mostly under a MiB, at times some chunks
        Image& image = mine.emplace_back(
            Image{upto(9), upto(9), 1 + upto(90) + size * 270, 1 + upto(90) + size * 150, 2 + 2 * upto(2)});
        EXPECT_TRUE(transport::init(nullptr));  // else a ring just closed refuses the rest in no time
        image.start();
        if (upto(3) == 0) transport::wait(image.ticket);
        if (upto(9) == 0) transport::wait_all();
        EXPECT_TRUE(image.ticket == 0 || !transport::done(image.ticket) || image.called == 1);
        EXPECT_LE(transport::pending(), 8);
      }
    });
  }
  for (int n = 0; n < 40; ++n) {
    transport::set_ring_size(n % 10);
    if (n % 4 == 0) transport::close();
    EXPECT_TRUE(transport::init(nullptr));
  }
  for (std::thread& thread : threads) thread.join();
  end();

  // Every ticket was served once and in order; what the driver refused was never called back.
  std::map<uint64_t, const Image*> served;
  for (const auto& each : images) {
    for (const Image& image : each) {
      EXPECT_EQ(image.called, image.ticket != 0);
      if (image.ticket != 0) served[image.ticket] = &image;
    }
  }
  transport::Stats expected = before;
  int last = 0;
  for (const auto& [ticket, image] : served) {
    EXPECT_EQ(ticket, ++expected.started);
    EXPECT_LT(std::exchange(last, image->order), image->order);
    const int rows = image->rows();
    ASSERT_GE(rows, 0);
    EXPECT_TRUE(image->told == ticket && image->failed == (rows != image->h)) << ticket;
    EXPECT_EQ(transport::failed(ticket), image->failed) << ticket;
    ++(rows == image->h ? expected.completed : expected.failed);
    expected.bytes += sizeof(float) * static_cast<uint64_t>(rows * image->w * image->channels);
  }
  const transport::Stats after = transport::stats();
  EXPECT_EQ(std::tie(after.started, after.completed, after.bytes, after.failed),
            std::tie(expected.started, expected.completed, expected.bytes, expected.failed));
  EXPECT_GT(after.failed, before.failed) << after.started - before.started;

  // What a ticket 1,024 later has pushed out is no longer known, and no other's fate is taken for it.
  EXPECT_FALSE(transport::failed(0) || transport::failed(after.started + 1) || transport::current_ticket());
  begin();
  fake_egl::recording = false;
  float pixel[4];
  for (int n = 0; n < 1024; ++n) EXPECT_NE(transport::start(7, 9, 0, 0, 1, 1, 4, pixel, nullptr, 0, {}), 0U);
  transport::wait_all();
  for (const auto& [ticket, image] : served) EXPECT_FALSE(transport::failed(ticket)) << ticket;
  end();
}

}  // namespace
