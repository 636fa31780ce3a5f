// The render side of a live page, asked by two clients at once, against a renderer that nobody else asks.

#include "host/frame/frame_error.h"
#include "host/service/shared_renderer.h"
#include "tests/host/live/told.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace live_test;

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
    const auto shot = of_version(version);
    host::draw::ImageRequest request;
    request.node = shot->find("both");
    const auto wanted = reference_.read(shot, request, frame, {});
    EXPECT_TRUE(
        std::equal(image.pixels.get(), image.pixels.get() + ptrdiff_t{4} * 16 * 16, wanted.pixels.get()));
  }

  Session::CompositionPtr of_version(int64_t version) {
    const std::lock_guard lock(mutex_);
    return versions_.at(version);
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

}  // namespace
