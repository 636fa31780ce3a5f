#pragma once

#include "host/live/session/session.h"
#include "tests/support/files.h"

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// What tests of the live page's render side share.
namespace live_test {

using host::live::session::Ahead;
using host::live::session::Drawn;
using host::live::session::Session;
using host::live::session::Wish;
using Runs = std::vector<std::pair<int64_t, int64_t>>;

inline const host::gpu::DeviceChoice software{host::gpu::DeviceChoice::Kind::software, 0};

inline Session::CompositionPtr composition(const std::string& nodes, int side = 16) {
  static const auto folder = support::new_folder();
  const std::string size = std::to_string(side);
  return std::make_shared<const host::shot::Composition>(
      host::shot::parse_composition(R"({"format": {"width": )" + size + R"(, "height": )" + size +
                                        R"(}, "frames": "1-40", "nodes": [)" + nodes + "]}",
                                    folder / "shot.json"));
}

inline Wish wish(uint64_t id, int64_t frame, const std::string& node = "", int64_t version = 0) {
  Wish made;
  made.id = id;
  made.frame = frame;
  made.node = node;
  made.version = version;
  return made;
}

// Keeps what it is told, and wakes who waits for that.
class Told : public host::live::session::Listener {
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
  void device_lost(bool lost, const std::string& message) override {
    const std::lock_guard lock(mutex_);
    loss_ = message;
    losses_ += lost ? "lost " : "back ";
    if (!lost && on_back) on_back();
  }

  void (*on_back)() = nullptr;  // called on the thread for drawing

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
  std::string last_loss() {
    const std::lock_guard lock(mutex_);
    return loss_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::pair<std::string, uint64_t>> order_;
  std::map<std::pair<std::string, uint64_t>, Drawn> drawn_;
  Runs cached_;
  std::string losses_;
  std::string loss_;  // what was said last
};

inline void wait_idle(const Session& session) {
  while (!session.idle()) std::this_thread::yield();
}

inline std::string grade(const std::string& name, const std::string& input, const std::string& knobs) {
  return R"({"name": ")" + name + R"(", "type": "grade", "inputs": ")" + input + R"(", "knobs": {)" + knobs +
         "}}";
}

// A moving picture, a branch beside it, a file that is missing at every third frame, and all together.
inline std::string storm_nodes(int edit) {
  const std::string value = std::to_string(edit % 7);
  return R"({"name": "card", "type": "checkerboard"}, )" +
         grade("moving", "card", R"("offset": {"keys": [[1, 0], [40, )" + value + "]]}") + ", " +
         grade("still", "card", "\"gain\": " + std::to_string(edit % 3)) +
         R"(, {"name": "soft", "type": "blur", "inputs": "moving", "knobs": {"size": 2}},
             {"name": "both", "type": "merge", "inputs": {"a": "still", "b": "soft"}},
             {"name": "out", "type": "merge", "inputs": {"a": "both", "b": "card"}},
             {"name": "gone", "type": "read", "knobs": {"file": "gone.%04d.exr"}})";
}

}  // namespace live_test
