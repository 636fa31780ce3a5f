// The rules of the live page's render side, row by row.

#include "host/gpu/gl_functions.h"
#include "host/live/session/ahead.h"
#include "host/live/session/wishes.h"
#include "tests/host/live/told.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace live_test;
using host::live::session::Wishes;

// What becomes of an image in hand when the list changes.
TEST(Session, WhatIsInHandEndsUnlessItIsScrubbed) {
  const auto start = Wishes::Clock::now();
  const auto at = [&start](int ms) { return start + std::chrono::milliseconds(ms); };
  const struct {
    const char* name;
    std::vector<Wish> then;
    int given_ms;  // before the list changes, and how long that image took
    int took_ms;
    bool ends, told;
  } rows[] = {
      {"still listed, behind another", {wish(9, 3), wish(1, 1)}, 10, 300, false, true},
      {"another frame, given long ago", {wish(9, 3)}, 200, 300, false, true},
      {"another frame, given just now", {wish(9, 3)}, 100, 300, true, false},
      {"another frame, given just now and soon", {wish(9, 3)}, 100, 199, false, true},
      {"an older version", {wish(9, 1, "", 4)}, 200, 10, true, false},
      {"the same version by its number", {wish(9, 2, "", 5)}, 200, 300, false, true},
      {"another node", {wish(9, 1, "other")}, 200, 10, true, false},
      {"nothing", {}, 200, 10, true, false},
  };
  for (const auto& row : rows) {
    for (const bool sent : {false, true}) {
      Wishes wishes;
      wishes.set("c", {wish(0, 0)}, 5, at(0));
      wishes.take(5, at(1000 - row.given_ms - row.took_ms));
      wishes.drawn();
      wishes.arrived("c", 0, at(1000 - row.given_ms));
      wishes.set("c", {wish(1, 1)}, 5, at(1000 - row.given_ms));
      ASSERT_EQ(wishes.take(5, at(1000))->wish.id, 1U);
      // One that is drawn is told of where scrubbing may want it.
      if (sent) wishes.drawn();
      EXPECT_EQ(wishes.set("c", row.then, 5, at(1000)), row.ends && !sent) << row.name;
      const bool scrubbed = row.told || std::string(row.name) == "another frame, given just now";
      EXPECT_EQ(wishes.arrived("c", 1, at(1001)), sent ? scrubbed : row.told) << row.name << sent;
    }
  }
  // Clients in turn, each one's best first, whatever the others have on their lists.
  Wishes wishes;
  wishes.set("a", {wish(1, 1), wish(2, 2), wish(3, 3)}, 1, at(0));
  wishes.set("b", {wish(11, 1), wish(12, 2)}, 1, at(0));
  std::string order;
  while (const auto job = wishes.take(1, at(0))) {
    order += std::to_string(job->wish.id) + " ";
    wishes.drawn();
  }
  EXPECT_EQ(order, "1 11 2 12 3 ");
}

TEST(Session, FramesAheadComeNearestFirstAndTheFarthestGoFirst) {
  using Frames = std::vector<int64_t>;
  EXPECT_EQ(host::live::session::nearest_first(1, 9, 4, 1), (Frames{4, 5, 3, 6, 2, 7, 1, 8, 9}));
  EXPECT_EQ(host::live::session::nearest_first(1, 5, 9, -1), (Frames{5, 4, 3, 2, 1}));
  EXPECT_EQ(host::live::session::nearest_first(INT64_MIN, INT64_MAX, INT64_MAX, 1).size(),
            host::live::session::most_frames_ahead);

  // Images of 1 MiB, of which some fit; only what is nearest may be there, wherever the playhead comes from.
  host::render::RendererOptions options;
  options.memory = uint64_t{14} << 20;
  Told told;
  Session session(options, software, told);
  session.set_composition(1, composition(R"({"name": "card", "type": "constant"}, )" +
                                             grade("out", "card", R"("gain": {"keys": [[1, 1], [40, 2]]})"),
                                         256));
  uint64_t id = 0;
  for (const auto& [frame, direction] : {std::pair<int64_t, int>{20, 1}, {23, 1}, {22, -1}, {40, 1}}) {
    session.wish("c", {wish(++id, frame)}, Ahead{"", 1, 1, 40, frame, direction});
    told.wait("c", id);
    wait_idle(session);
    Frames cached;
    for (const auto& [first, last] : told.cached_frames()) {
      for (int64_t each = first; each <= last; ++each) cached.push_back(each);
    }
    Frames nearest = host::live::session::nearest_first(1, 40, frame, direction);
    ASSERT_GE(cached.size(), 4U);
    ASSERT_LE(cached.size(), 13U);
    // The next one's place may have been made before there turned out to be too little.
    nearest.resize(cached.size());
    std::sort(nearest.begin(), nearest.end());
    EXPECT_EQ(cached, nearest) << "around " << frame;
  }
  // One more image takes the place of the farthest.
  session.wish("c", {wish(++id, 20)}, Ahead{"", 1, 1, 40, 20, 1});
  told.wait("c", id);
  wait_idle(session);
  const Runs full = told.cached_frames();
  session.wish("c", {wish(++id, 38)}, {});
  told.wait("c", id);
  wait_idle(session);
  const Runs left = told.cached_frames();
  ASSERT_EQ(full.size(), 1U);
  ASSERT_EQ(left.size(), 2U);
  EXPECT_EQ(left[1], std::pair(int64_t{38}, int64_t{38}));
  const int64_t gone = full[0].second - full[0].first - left[0].second + left[0].first;
  EXPECT_GE(gone, 1);
  Frames nearest = host::live::session::nearest_first(1, 40, 20, 1);
  nearest.resize(static_cast<size_t>(left[0].second - left[0].first + 1));
  EXPECT_EQ(left[0], std::pair(*std::min_element(nearest.begin(), nearest.end()),
                               *std::max_element(nearest.begin(), nearest.end())));
}

// Nodes that take long, one upon another.
std::string slow_nodes(const std::string& name, int count, int size) {
  std::string nodes = R"({"name": "card", "type": "checkerboard"})";
  for (int i = 0; i < count; ++i) {
    nodes += R"(, {"name": ")" + name + std::to_string(i) + R"(", "type": "blur", "inputs": ")" +
             (i == 0 ? "card" : name + std::to_string(i - 1)) + R"(", "knobs": {"size": )" +
             std::to_string(size + i) + "}}";
  }
  return nodes;
}

TEST(Session, AnEditEndsWhatIsDrawnWithinOneDraw) {
  Told told;
  Session session({}, software, told);
  session.set_composition(1, composition(slow_nodes("old", 12, 8), 192));
  session.set_composition(2, composition(slow_nodes("new", 2, 5), 192));
  session.wish("c", {wish(1, 1, "", 1)}, {});
  // Once something of it is drawn.
  const auto spans_of = [&session](const std::string& name) {
    std::vector<host::Spans::Span> found = session.spans().since({});
    std::erase_if(found, [&name](const host::Spans::Span& span) {
      return span.work != host::Work::drawing || !span.name.starts_with(name);
    });
    return found;
  };
  while (spans_of("old").empty()) std::this_thread::yield();
  session.wish("c", {wish(2, 1, "", 2)}, {});
  const auto edited = host::Spans::Clock::now();
  EXPECT_EQ(told.wait("c", 2).error, "");
  wait_idle(session);
  ASSERT_LT(spans_of("old").size(), 12U);
  for (const auto& span : spans_of("old")) EXPECT_LT(span.begin, edited) << span.name;
  EXPECT_EQ(told.all().count({"c", 1}), 0U);

  // What was finished stays: the old one goes on where it was left.
  const auto left = spans_of("old").size();
  session.wish("c", {wish(3, 1, "", 1)}, {});
  told.wait("c", 3);
  EXPECT_EQ(spans_of("old").size(), 12U);
  EXPECT_GT(left, 0U);
  const auto rows = nlohmann::json::parse(session.trace(3600)).at("traceEvents");
  EXPECT_TRUE(std::any_of(rows.begin(), rows.end(), [](const auto& row) {
    return row.at("name") == "old11 1" && row.at("cat") == "drawing";
  }));
}

TEST(Session, FindsThePixelAndWhoMadeIt) {
  Told told;
  Session session({}, software, told);
  // A negative in the cropped part of one branch is not what the other makes; nor is what the output clips.
  session.set_composition(
      1, composition(
             R"({"name": "card", "type": "constant", "knobs": {"color": [0.5, 0.25, 0, 1]}}, )" +
             grade("dark", "card", R"("offset": [0, -1, 0])") +
             R"(, {"name": "corner", "type": "crop", "inputs": "dark", "knobs": {"box": [5, 2, 9, 7]}},
             {"name": "over", "type": "merge", "inputs": {"a": "corner", "b": "card"}}, )" +
             grade("out", "over", R"("gain": 2)") + ", " + grade("clean", "out", R"("clamp_black": true)")));
  const auto found = session.find(host::live::session::Kind::negative, 0, "out", 1, {});
  EXPECT_TRUE(found.found);
  EXPECT_EQ(std::pair(found.x, found.y), std::pair(int64_t{5}, int64_t{6}));
  EXPECT_EQ(found.made_by, "dark");
  EXPECT_FALSE(session.find(host::live::session::Kind::negative, 0, "clean", 1, {}).found);
  EXPECT_FALSE(session.find(host::live::session::Kind::nan, 0, "out", 1, {}).found);
  EXPECT_THROW(session.find(host::live::session::Kind::nan, 0, "nobody", 1, {}),
               host::live::session::Unknown);
  EXPECT_THROW(session.floats(7, "", 1, {}), host::live::session::Unknown);
}

std::atomic<int> resets = 0;  // that the driver still has to tell of

GLenum APIENTRY reset_status() {
  return resets > 0 && resets-- > 0 ? GL_GUILTY_CONTEXT_RESET : GL_NO_ERROR;
}

TEST(Session, ALostDeviceIsOpenedAnewOnce) {
  Told told;
  Session session({}, software, told);
  session.set_composition(1, composition(storm_nodes(1)));
  session.wish("c", {wish(1, 1)}, {});
  told.wait("c", 1);
  wait_idle(session);
  for (const bool second : {false, true}) {
    resets = 1;
    host::gpu::gl.GetGraphicsResetStatus = reset_status;
    const uint64_t id = second ? 3 : 2;
    session.wish("c", {wish(id, 5)}, {});
    EXPECT_EQ(told.wait("c", id).error, "");
    wait_idle(session);
    EXPECT_EQ(told.losses(), second ? "lost back lost back " : "lost back ");
  }
  // One that goes again before it has given an image stays away.
  told.on_back = [] { host::gpu::gl.GetGraphicsResetStatus = reset_status; };
  host::gpu::gl.GetGraphicsResetStatus = reset_status;
  resets = 2;
  session.wish("c", {wish(4, 7)}, {});
  EXPECT_NE(told.wait("c", 4).error, "");
  EXPECT_EQ(told.losses(), "lost back lost back lost back lost ");
  EXPECT_NE(told.last_loss().find("start quorvel live again"), std::string::npos) << told.last_loss();
}

// Does not return from being told of the first wish until it may.
class Held : public Told {
 public:
  void drawn(const std::string& client, Drawn what) override {
    if (what.wish.id == 1) {
      reached_.set_value();
      go_on.get_future().wait();
    }
    Told::drawn(client, std::move(what));
  }
  void wait_until_reached() {
    reached_.get_future().wait();
  }
  std::promise<void> go_on;

 private:
  std::promise<void> reached_;
};

// A failed wish that cannot be told yet is not taken for the one behind it, which is put off.
TEST(Session, WhatBecomesOfAWishIsNotedOfNoOther) {
  Held told;
  Session session({}, software, told);
  session.set_composition(1, composition(storm_nodes(1)));
  session.wish("a", {wish(1, 1)}, {});
  told.wait_until_reached();
  session.pause(true);
  session.wish("b", {wish(2, 1, "nobody")}, {});
  session.wish("c", {wish(3, 5)}, {});
  // Asked behind all wishes.
  EXPECT_THROW(session.floats(0, "", 7, {}), std::runtime_error);
  told.go_on.set_value();
  session.pause(false);
  EXPECT_NE(told.wait("b", 2).error, "");
  EXPECT_EQ(told.wait("c", 3).error, "");
  wait_idle(session);
}

// An image in memory outlives the composition that made it, with a transform that waits to be applied.
TEST(Session, AnImageInMemoryNeedsItsCompositionNoMore) {
  const auto shot = [](int edit) {
    return composition(R"({"name": "card", "type": "checkerboard", "knobs": {"size": 3}},
        {"name": "thrown", "type": "transform", "inputs": "card", "knobs": {
          "translate": {"keys": [[1, 0], [9, 40]]}, "motion_blur": 1}},
        {"name": "out", "type": "merge", "inputs": {"a": "thrown", "b": "card"}, "knobs": {"mix": 0.)" +
                       std::to_string(edit) + "}}");
  };
  Told told;
  Session session({}, software, told), other({}, software, told);
  session.set_composition(1, shot(1));
  session.wish("c", {wish(1, 4, "out")}, std::nullopt);
  told.wait("c", 1);
  for (int version = 2; version < 60; ++version) session.set_composition(version, shot(version));
  session.wish("c", {wish(2, 4, "thrown")}, std::nullopt);
  other.set_composition(1, shot(1));
  other.wish("other", {wish(1, 4, "thrown")}, std::nullopt);
  const Drawn old = told.wait("c", 2), made = told.wait("other", 1);
  ASSERT_EQ(old.error + made.error, "");
  EXPECT_TRUE(std::equal(old.image.pixels.get(), old.image.pixels.get() + ptrdiff_t{4} * 16 * 16,
                         made.image.pixels.get()));
}

}  // namespace
