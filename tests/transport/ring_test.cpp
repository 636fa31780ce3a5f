#include <qv/transport/ring.h>

#include "tests/support/fake_egl/fake_egl.h"
#include "tests/support/fake_egl/transfer.h"

#include <algorithm>
#include <climits>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace transport = qv::transport;
using fake_egl::Fence;

namespace {

int callbacks = 0;  // only the background thread counts

// One read, where it goes and what became of it.
struct Image {
  int x, y, w, h, channels;
  std::vector<float> pixels{std::vector<float>(static_cast<size_t>(w * h * channels), -1.0F)};
  std::vector<unsigned> aux{std::vector<unsigned>(8, 2U)};
  int called = 0, order = 0;
  uint64_t ticket = 0;

  uint64_t start() {
    return ticket = transport::start(7, 9, x, y, w, h, channels, pixels.data(), aux.data(), 8, [this] {
             ++called;
             order = ++callbacks;
             if (transport::pending() == 0 ||
                 transport::start(7, 9, 0, 0, 1, 1, 4, this, nullptr, 0, {}) != 0)
               called = 99;
             throw std::runtime_error("from a callback");
           });
  }
  int rows_a_chunk() const {
    const int chunks = std::clamp(w * h * channels / 1048576, 1, 8);
    return (h + chunks - 1) / chunks;
  }
  // Rows that arrived, by the progress words; -1 when the words or the pixels say otherwise.
  int rows() const {
    const int chunks = (h + rows_a_chunk() - 1) / rows_a_chunk();
    const auto ones = std::count(aux.begin(), aux.end(), 1U);
    std::vector<unsigned> expected(8, 2U);
    std::fill_n(expected.begin(), chunks, 0U);
    std::fill_n(expected.begin(), ones, 1U);
    const int arrived = std::min(static_cast<int>(ones) * rows_a_chunk(), h);
    for (int k = 0; k < w * h * channels; ++k) {
      const int row = k / channels / w;
      const float wanted =
          row < arrived ? fake_egl::pixel(x + k / channels % w, y + row, k % channels) : -1.0F;
      if (pixels[static_cast<size_t>(k)] != wanted) return -1;
    }
    return aux == expected ? arrived : -1;
  }
};

void* context = nullptr;

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
  EXPECT_EQ(fake_egl::alive("buffer") + fake_egl::fences_alive(), 0U);
  EXPECT_EQ(fake_egl::misuse(), std::vector<std::string>());
}

std::string calls() {
  std::string text;
  for (const std::string& call : fake_egl::take_calls()) text += call + '\n';
  return text;
}

TEST(Ring, NeedsEveryFunction) {
  for (const char* name :
       {"glBindBuffer", "glUnmapBuffer", "glDeleteBuffers", "glGenBuffers", "glBufferStorage",
        "glMapBufferRange", "glBindFramebuffer", "glReadBuffer", "glReadPixels", "glFlush",
        "eglGetCurrentDisplay", "eglCreateSyncKHR", "eglClientWaitSyncKHR", "eglDestroySyncKHR"}) {
    fake_egl::reset();
    fake_egl::hide(name);
    std::string error;
    EXPECT_FALSE(transport::init(&error)) << name;
    EXPECT_EQ(error, "libEGL.so.1 / eglGetProcAddress not available");
    EXPECT_EQ((Image{0, 0, 1, 1, 4}.start()), 0U);
  }
}

TEST(Ring, CallsTheDriverInOrder) {
  const auto make = [](const std::string& name, const std::string& mib) {
    return "glGenBuffers 1\nglBindBuffer 0x88eb " + name + "\nglBufferStorage 0x88eb " + mib +
           " null 705\nglMapBufferRange 0x88eb 0 " + mib + " 193\nglBindBuffer 0x88eb 0\n";
  };
  const auto drop = [](const std::string& name) {
    return "glBindBuffer 0x88eb " + name +
           "\nglUnmapBuffer 0x88eb\nglBindBuffer 0x88eb 0\nglDeleteBuffers 1 " + name + "\n";
  };
  const auto read = [](const std::string& name, const std::string& body) {
    return "glBindBuffer 0x88eb " + name + "\nglBindFramebuffer 0x8ca8 7\nglReadBuffer 0x8ce0\n" + body +
           "glBindBuffer 0x88eb 0\nglBindFramebuffer 0x8ca8 9\nglFlush\n";
  };
  const std::string sync = "eglCreateSyncKHR 0x30f9 null\n", wait = "eglClientWaitSyncKHR 0 100\n",
                    end_sync = "eglDestroySyncKHR\n";
  const std::string one =
      read("1", "glReadPixels 3 5 10 300 0x8227 0x1406 0\n" + sync + "glFlush\n") + wait + end_sync;
  const std::string two = read("2", "glReadPixels 3 5 1024 300 0x1908 0x1406 0\n" + sync + "glFlush\n" +
                                        "glReadPixels 3 305 1024 299 0x1908 0x1406 1228800\n" + sync) +
                          wait + wait + end_sync + end_sync;
  begin();
  Image small{3, 5, 10, 300, 2}, large{3, 5, 1024, 599, 4};
  const std::pair<Image*, std::string> steps[] = {
      {&small, make("1", "1") + one}, {&small, one}, {&large, drop("1") + make("2", "10") + two}};
  for (const auto& [image, expected] : steps) {
    transport::wait(image->start());
    EXPECT_EQ(calls(), expected);
    EXPECT_EQ(image->rows(), image->h);
  }
  end();
  EXPECT_EQ(calls(), drop("2"));
}

TEST(Ring, RefusesWhatCannotBeRead) {
  begin();
  const auto held = std::make_shared<int>();
  float out = 0;
  const struct {
    int x, y, w, h, channels;
    float* dst;
  } cases[] = {{0, 0, 0, 1, 4, &out},
               {0, 0, 1, -1, 4, &out},
               {0, 0, 1, 1, 3, &out},
               {0, 0, 1, 1, 4, nullptr},
               {0, INT_MAX, 1, 1, 4, &out},
               {INT_MAX - 4, 0, 5, 1, 2, &out},
               {0, 0, INT_MAX, INT_MAX, 4, &out}};
  for (const auto& c : cases)
    EXPECT_EQ(transport::start(7, 9, c.x, c.y, c.w, c.h, c.channels, c.dst, nullptr, 0, [held] { FAIL(); }),
              0U);
  EXPECT_TRUE(held.use_count() == 1 && calls().empty());
  EXPECT_TRUE(transport::done(0) && transport::done(UINT64_MAX));
  end();
}

TEST(Ring, CutsLargeImagesAndKeepsBuffers) {
  begin();
  const uint64_t before = transport::stats().allocations;
  const struct {
    int w, h, channels, chunks, rows;
    uint64_t allocations;
  } cases[] = {{512, 512, 4, 1, 512, 1},   {1024, 512, 4, 2, 256, 2},  {512, 512, 4, 1, 512, 2},
               {1448, 1449, 2, 4, 363, 3}, {400000, 5, 4, 5, 1, 4},    {1536, 1536, 4, 8, 192, 5},
               {1537, 1536, 4, 8, 192, 6}, {2048, 2048, 4, 8, 256, 7}, {2048, 2047, 4, 8, 256, 7}};
  for (const auto& c : cases) {
    Image image{0, 0, c.w, c.h, c.channels};
    transport::wait(image.start());
    EXPECT_EQ(std::count(image.aux.begin(), image.aux.end(), 1U), c.chunks);
    EXPECT_TRUE(image.rows_a_chunk() == c.rows && image.rows() == c.h) << c.w;
    EXPECT_EQ(transport::stats().allocations - before, c.allocations) << c.w;
  }
  end();
}

// The ring never shrinks, so this comes before the storm, which may add slots.
TEST(Ring, HoldsStartsBackWhileItIsFull) {
  begin([first = true]() mutable { return std::exchange(first, false) ? Fence::held : Fence::prompt; });
  std::deque<Image> images(7, {1, 2, 33, 9, 2});
  images[1] = {0, 0, 400, 400, 4};
  for (size_t k = 0; k < 3; ++k) images[k].start();
  std::vector<std::thread> threads;
  for (size_t k = 3; k < 7; ++k) {
    threads.emplace_back([&, k] {
      fake_egl::make_current(context);
      images[k].start();
      transport::wait(images[0].ticket);
    });
  }
  transport::set_ring_size(4);  // lets one of the four in
  fake_egl::await_reads(4);
  EXPECT_FALSE(transport::done(images[0].ticket) || transport::done(images[2].ticket));
  EXPECT_GE(transport::pending(), 3);
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
  std::mt19937 fate(1);
  const transport::Stats before = transport::stats();
  begin(
      [&] {
        constexpr Fence odd[] = {Fence::refused, Fence::broken, Fence::silent, Fence::late};
        const auto n = fate() % 40;
        return n < 4 ? odd[n] : Fence::prompt;
      },
      [&] { return fate() % 6 != 0; });
  fake_egl::record(false);
  std::deque<Image> images[3];
  std::vector<std::thread> threads;
  for (unsigned k = 0; k < 3; ++k) {
    threads.emplace_back([&, k] {
      fake_egl::make_current(context);
      std::mt19937 random(k);
      const auto upto = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
      for (int n = 0; n < 60; ++n) {
        const bool large = upto(8) == 0;
        images[k].push_back(
            {upto(9), upto(9), 1 + upto(90) + large * 1100, 1 + upto(90) + large * 600, 2 + 2 * upto(2)});
        Image& image = images[k].back();
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

  // Every ticket was served once, in order; what the driver refused was never called back.
  std::map<uint64_t, const Image*> served;
  for (const auto& of_thread : images) {
    for (const Image& image : of_thread) {
      EXPECT_EQ(image.called, image.ticket != 0);
      if (image.ticket != 0) served[image.ticket] = &image;
    }
  }
  transport::Stats expected = before;
  int last = 0;
  for (const auto& [ticket, image] : served) {
    EXPECT_EQ(ticket, before.started + ++expected.started - before.started);
    EXPECT_LT(std::exchange(last, image->order), image->order);
    const int rows = image->rows();
    ASSERT_GE(rows, 0);
    ++(rows == image->h ? expected.completed : expected.failed);
    expected.bytes += sizeof(float) * static_cast<uint64_t>(rows * image->w * image->channels);
  }
  const transport::Stats after = transport::stats();
  EXPECT_TRUE(after.started == expected.started && after.completed == expected.completed);
  EXPECT_TRUE(after.failed == expected.failed && after.bytes == expected.bytes);
  EXPECT_GT(after.failed, before.failed);
}

}  // namespace
