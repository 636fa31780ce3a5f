// The render side of a live page against renderers that draw each image for itself, and its rules row by row.

#include "host/live/session.h"

#include "host/frame/frame_error.h"
#include "host/gpu/gl_functions.h"
#include "host/live/ahead.h"
#include "host/live/wishes.h"
#include "host/service/shared_renderer.h"
#include "tests/support/files.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using host::live::Ahead;
using host::live::Drawn;
using host::live::Session;
using host::live::Wish;
using host::live::Wishes;
using Runs = std::vector<std::pair<int64_t, int64_t>>;

const host::gpu::DeviceChoice software{host::gpu::DeviceChoice::Kind::software, 0};

Session::CompositionPtr composition(const std::string& nodes, int side = 16) {
  static const auto folder = support::new_folder();
  const std::string size = std::to_string(side);
  return std::make_shared<const host::shot::Composition>(
      host::shot::parse_composition(R"({"format": {"width": )" + size + R"(, "height": )" + size +
                                        R"(}, "frames": "1-40", "nodes": [)" + nodes + "]}",
                                    folder / "shot.json"));
}

Wish wish(uint64_t id, int64_t frame, const std::string& node = "", int64_t version = 0) {
  Wish made;
  made.id = id;
  made.frame = frame;
  made.node = node;
  made.version = version;
  return made;
}

// Keeps what it is told, and wakes who waits for that.
class Told : public host::live::Listener {
 public:
  void drawn(const std::string& client, Drawn what) override {
    const std::lock_guard lock(mutex_);
    order_.emplace_back(client, what.wish.id);
    drawn_.insert_or_assign({client, what.wish.id}, std::move(what));
    changed_.notify_all();
  }
  void cached(int64_t /*version*/, const std::string& /*node*/, double /*scale*/, Runs frames) override {
    const std::lock_guard lock(mutex_);
    cached_ = std::move(frames);
  }
  void memory(uint64_t /*held*/, uint64_t /*budget*/) override {}
  void notice(const std::string& /*text*/) override {}
  void device_lost(bool lost, const std::string& /*message*/) override {
    const std::lock_guard lock(mutex_);
    losses_ += lost ? "lost " : "back ";
  }

  // Waits for an answer; one that never comes fails the test by its time limit.
  Drawn wait(const std::string& client, uint64_t id) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return drawn_.count({client, id}) > 0; });
    return drawn_.at({client, id});
  }

  std::vector<std::pair<std::string, uint64_t>> order() {
    const std::lock_guard lock(mutex_);
    return order_;
  }
  std::map<std::pair<std::string, uint64_t>, Drawn> all() {
    const std::lock_guard lock(mutex_);
    return drawn_;
  }
  Runs cached_frames() {
    const std::lock_guard lock(mutex_);
    return cached_;
  }
  std::string losses() {
    const std::lock_guard lock(mutex_);
    return losses_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::pair<std::string, uint64_t>> order_;
  std::map<std::pair<std::string, uint64_t>, Drawn> drawn_;
  Runs cached_;
  std::string losses_;
};

void wait_idle(const Session& session) {
  while (!session.idle()) std::this_thread::yield();
}

std::string grade(const std::string& name, const std::string& input, const std::string& knobs) {
  return R"({"name": ")" + name + R"(", "type": "grade", "inputs": ")" + input + R"(", "knobs": {)" + knobs +
         "}}";
}

// A moving picture, a branch beside it, a file that is missing at every third frame, and all together.
std::string storm_nodes(int edit) {
  const std::string value = std::to_string(edit % 7);
  return R"({"name": "card", "type": "checkerboard"}, )" +
         grade("moving", "card", R"("offset": {"keys": [[1, 0], [40, )" + value + "]]}") + ", " +
         grade("still", "card", "\"gain\": " + std::to_string(edit % 3)) +
         R"(, {"name": "soft", "type": "blur", "inputs": "moving", "knobs": {"size": 2}},
             {"name": "both", "type": "merge", "inputs": {"a": "still", "b": "soft"}},
             {"name": "out", "type": "merge", "inputs": {"a": "both", "b": "card"}},
             {"name": "gone", "type": "read", "knobs": {"file": "gone.%04d.exr"}})";
}

// What a client did, so that what it was told can be judged.
struct Client {
  std::string name;
  std::map<uint64_t, int> first_list, last_list;  // that named an id
  std::map<uint64_t, int64_t> newest;             // version when the id was first listed
  std::vector<Wish> last;
  int lists = 0;
};

class Storm {
 public:
  Storm() {
    edit();
  }

  void edit() {
    const std::lock_guard lock(mutex_);
    const auto made = composition(storm_nodes(static_cast<int>(versions_.size())));
    const auto version = static_cast<int64_t>(versions_.size()) + 1;
    versions_[version] = made;
    session.set_composition(version, made);
  }

  int64_t newest() {
    const std::lock_guard lock(mutex_);
    return static_cast<int64_t>(versions_.size());
  }

  void run(Client& client, uint32_t seed) {
    std::mt19937 random(seed);
    const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random()) % limit; };
    uint64_t id = 0;
    for (int step = 0; step < 120; ++step) {
      const uint32_t what = below(20);
      if (what < 5) edit();
      if (what == 5) session.pause(true);
      if (what == 6) {
        session.leave(client.name);
        client.last.clear();
      }
      if (what == 7) floats(below(40) + 1);
      if (what == 8) wait_idle(session);
      session.pause(false);
      std::vector<Wish> list;
      // Some of those wished before go on being wished.
      for (const Wish& each : client.last) {
        if (below(4) == 0) list.push_back(each);
      }
      for (uint32_t more = below(3) + 1; more > 0; --more) list.push_back(some_wish(++id, random));
      send(client, list, Ahead{"soft", 0.5, 1, 12, static_cast<int64_t>(below(12)), below(2) == 0 ? 1 : -1});
      if (below(3) == 0) told.wait(client.name, list[0].id);
    }
    for (const Wish& each : client.last) told.wait(client.name, each.id);
  }

  // What a renderer says that nobody else asks.
  std::optional<host::draw::FrameImage> expected(const Drawn& drawn, std::string& error) {
    const auto& shot = versions_.at(drawn.version);
    host::draw::ImageRequest request;
    request.node = shot->find(drawn.node);
    request.area = drawn.wish.area;
    request.scale = drawn.wish.scale;
    try {
      return reference_.read(shot, request, drawn.wish.frame, {});
    } catch (const host::frame::FrameError& fault) {
      error = fault.what();
      return std::nullopt;
    }
  }

 private:
  static Wish some_wish(uint64_t id, std::mt19937& generator) {
    const auto random = [&generator] { return static_cast<uint32_t>(generator()); };
    static const std::vector<std::string> nodes{"", "soft", "both", "moving", "gone", "nobody"};
    Wish made = wish(id, 1 + random() % 12, nodes[std::min<size_t>(random() % 9, 5)]);
    if (made.node == "nobody" && random() % 4 != 0) made.node = "out";
    made.slot = random() % 4 == 0 ? 'b' : 'a';
    made.scale = random() % 2 == 0 ? 1 : 0.5;
    made.area = random() % 5 == 0 ? host::draw::Area::window : host::draw::Area::format;
    return made;
  }

  void send(Client& client, const std::vector<Wish>& list, const Ahead& ahead) {
    ++client.lists;
    const int64_t version = newest();
    for (const Wish& each : list) {
      client.first_list.try_emplace(each.id, client.lists);
      client.last_list[each.id] = client.lists;
      client.newest.try_emplace(each.id, version);
    }
    client.last = list;
    session.wish(client.name, list, ahead);
  }

  void floats(int64_t frame) {
    const int64_t version = newest();
    const auto image = session.floats(version, "both", frame, {});
    const auto& shot = versions_copy().at(version);
    host::draw::ImageRequest request;
    request.node = shot->find("both");
    const auto wanted = reference_.read(shot, request, frame, {});
    EXPECT_EQ(0, std::memcmp(image.pixels.get(), wanted.pixels.get(), size_t{16} * 16 * 16));
  }

  std::map<int64_t, Session::CompositionPtr> versions_copy() {
    const std::lock_guard lock(mutex_);
    return versions_;
  }

  std::mutex mutex_;
  std::map<int64_t, Session::CompositionPtr> versions_;

 public:
  Told told;
  Session session{{}, software, told};

 private:
  host::service::SharedRenderer reference_{{}, software};
};

void judge(Storm& storm, const Client& client, const std::string& what) {
  int newest_list = 0;
  std::set<uint64_t> answered;
  for (const auto& [name, id] : storm.told.order()) {
    if (name != client.name) continue;
    EXPECT_TRUE(answered.insert(id).second) << what << " " << id << " was answered twice";
    EXPECT_GE(client.last_list.at(id), newest_list) << what << " " << id << " is older than one before";
    newest_list = std::max(newest_list, client.first_list.at(id));
  }
  for (const Wish& each : client.last) EXPECT_EQ(answered.count(each.id), 1U) << what << " " << each.id;
}

TEST(Session, StormOfTwoClientsShowsWhatTheRendererDraws) {
  Storm storm;
  Client one{"one", {}, {}, {}, {}, 0};
  Client two{"two", {}, {}, {}, {}, 0};
  std::thread other([&] { storm.run(two, 20261122); });
  storm.run(one, 7);
  other.join();
  wait_idle(storm.session);
  const int64_t draws = storm.session.stats().draws;
  judge(storm, one, "one");
  judge(storm, two, "two");
  int images = 0;
  for (const auto& [key, drawn] : storm.told.all()) {
    const Client& client = key.first == "one" ? one : two;
    const std::string what = key.first + " " + std::to_string(key.second);
    EXPECT_GE(drawn.version, client.newest.at(key.second)) << what;
    if (drawn.wish.node == "nobody") {
      EXPECT_EQ(drawn.error, "there is no node \"nobody\"") << what;
      continue;
    }
    std::string error;
    const auto wanted = storm.expected(drawn, error);
    ASSERT_EQ(drawn.error.empty(), wanted.has_value()) << what << " " << drawn.error << error;
    if (!wanted) {
      EXPECT_TRUE(error.ends_with(drawn.error) && error.size() > drawn.error.size()) << error;
      EXPECT_EQ(drawn.error_node, "gone");
      continue;
    }
    ++images;
    ASSERT_EQ(drawn.image.area, wanted->area) << what;
    const auto bytes =
        static_cast<size_t>(16 * host::box_width(wanted->area) * host::box_height(wanted->area));
    ASSERT_TRUE(bytes == 0 || std::memcmp(drawn.image.pixels.get(), wanted->pixels.get(), bytes) == 0)
        << what << ": node " << drawn.node << " frame " << drawn.wish.frame;
  }
  EXPECT_GT(images, 60);
  EXPECT_EQ(storm.session.stats().draws, draws) << "idle, it draws nothing";
}

// What becomes of an image in hand when the list changes.
TEST(Session, WhatIsInHandEndsUnlessItIsScrubbed) {
  const auto start = Wishes::Clock::now();
  const auto at = [&start](int ms) { return start + std::chrono::milliseconds(ms); };
  const struct {
    const char* name;
    std::vector<Wish> then;
    int given_ms;  // before the list changes
    bool ends, told;
  } rows[] = {
      {"still listed, behind another", {wish(9, 3), wish(1, 1)}, 10, false, true},
      {"another frame, given long ago", {wish(9, 3)}, 200, false, true},
      {"another frame, given just now", {wish(9, 3)}, 100, true, false},
      {"an older version", {wish(9, 1, "", 4)}, 200, true, false},
      {"the same version by its number", {wish(9, 2, "", 5)}, 200, false, true},
      {"another node", {wish(9, 1, "other")}, 200, true, false},
      {"nothing", {}, 200, true, false},
  };
  for (const auto& row : rows) {
    for (const bool sent : {false, true}) {
      Wishes wishes;
      wishes.set("c", {wish(0, 0)}, 5, at(0));
      wishes.take(5);
      wishes.drawn();
      wishes.arrived("c", 0, at(1000 - row.given_ms));
      wishes.set("c", {wish(1, 1)}, 5, at(1000 - row.given_ms));
      ASSERT_EQ(wishes.take(5)->wish.id, 1U);
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
  while (const auto job = wishes.take(1)) {
    order += std::to_string(job->wish.id) + " ";
    wishes.drawn();
  }
  EXPECT_EQ(order, "1 11 2 12 3 ");
}

TEST(Session, FramesAheadComeNearestFirstAndTheFarthestGoFirst) {
  using Frames = std::vector<int64_t>;
  EXPECT_EQ(host::live::nearest_first(1, 9, 4, 1), (Frames{4, 5, 3, 6, 2, 7, 1, 8, 9}));
  EXPECT_EQ(host::live::nearest_first(1, 5, 9, -1), (Frames{5, 4, 3, 2, 1}));
  EXPECT_EQ(host::live::nearest_first(INT64_MIN, INT64_MAX, INT64_MAX, 1).size(),
            host::live::most_frames_ahead);

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
    Frames nearest = host::live::nearest_first(1, 40, frame, direction);
    ASSERT_GE(cached.size(), 4U);
    ASSERT_LE(cached.size(), 13U);
    // The next one's place may have been made before there turned out to be too little.
    nearest.resize(cached.size());
    std::sort(nearest.begin(), nearest.end());
    EXPECT_EQ(cached, nearest) << "around " << frame;
  }
}

// Nodes that take long, one upon another.
std::string slow_nodes(const std::string& name, int count) {
  std::string nodes = R"({"name": "card", "type": "checkerboard"})";
  for (int i = 0; i < count; ++i) {
    nodes += R"(, {"name": ")" + name + std::to_string(i) + R"(", "type": "blur", "inputs": ")" +
             (i == 0 ? "card" : name + std::to_string(i - 1)) + R"(", "knobs": {"size": )" +
             std::to_string(8 + i) + "}}";
  }
  return nodes;
}

TEST(Session, AnEditEndsWhatIsDrawnWithinOneDraw) {
  Told told;
  Session session({}, software, told);
  session.set_composition(1, composition(slow_nodes("old", 12), 192));
  session.set_composition(2, composition(slow_nodes("new", 2), 192));
  session.wish("c", {wish(1, 1, "", 1)}, {});
  // Once something of it is drawn.
  const auto spans_of = [&session](const std::string& name) {
    std::vector<host::Spans::Span> found = session.spans().since({});
    std::erase_if(found, [&name](const auto& span) { return !span.name.starts_with(name); });
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
  const auto found = session.find(host::live::Kind::negative, 0, "out", 1, {});
  EXPECT_TRUE(found.found);
  EXPECT_EQ(std::pair(found.x, found.y), std::pair(int64_t{5}, int64_t{6}));
  EXPECT_EQ(found.made_by, "dark");
  EXPECT_FALSE(session.find(host::live::Kind::negative, 0, "clean", 1, {}).found);
  EXPECT_FALSE(session.find(host::live::Kind::nan, 0, "out", 1, {}).found);
  EXPECT_THROW(session.find(host::live::Kind::nan, 0, "nobody", 1, {}), host::live::Unknown);
  EXPECT_THROW(session.floats(7, "", 1, {}), host::live::Unknown);
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
  for (const bool for_good : {false, true}) {
    resets = 1;
    host::gpu::gl.GetGraphicsResetStatus = reset_status;
    const uint64_t id = for_good ? 3 : 2;
    session.wish("c", {wish(id, 5)}, {});
    EXPECT_EQ(told.wait("c", id).error, "");
    wait_idle(session);
    EXPECT_EQ(told.losses(), for_good ? "lost back lost back " : "lost back ");
  }
}

}  // namespace
