#pragma once

#include "host/gpu/gpu_thread.h"
#include "host/live/session/ahead_work.h"
#include "host/live/session/device.h"
#include "host/live/session/outbox.h"
#include "host/live/session/session.h"
#include "host/live/session/wishes.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host::live::session {

// Something that a thread waits for. The steps are made on the thread for drawing, one at a time.
struct Question {
  std::function<bool(Device&)> step;  // false: that was the last
  bool over = false;
  std::exception_ptr error;
};
using QuestionPtr = std::shared_ptr<Question>;

// The last few images at full size, by what they are of. Externally synchronised.
class KeptImages {
 public:
  struct Key {
    int64_t version = 0;
    int node = 0;
    int64_t frame = 0;
    draw::Area area = draw::Area::format;
    bool operator==(const Key&) const = default;
  };

  explicit KeptImages(uint64_t most_bytes) : most_bytes_(most_bytes) {}

  std::optional<draw::FrameImage> find(const Key& key);
  void add(const Key& key, draw::FrameImage image);
  void clear() {
    images_.clear();
  }

 private:
  const uint64_t most_bytes_;
  std::list<std::pair<Key, draw::FrameImage>> images_;  // the last used first
};

// What the session's callers and the thread for drawing share.
struct Session::State : std::enable_shared_from_this<Session::State> {
  State(const render::RendererOptions& options, std::shared_ptr<gpu::GpuThread> drawing, Listener& told);

  const std::shared_ptr<Spans> spans;
  const render::RendererOptions options;
  const std::shared_ptr<gpu::GpuThread> thread;
  Listener& listener;
  Outbox outbox;

  mutable std::mutex mutex;  // guards what follows, up to the next such line
  std::condition_variable changed;
  std::map<int64_t, CompositionPtr> versions;
  int64_t newest = 0;
  Wishes wishes;
  std::map<std::string, Ahead> aheads;  // by client
  std::string ahead_of;                 // the client whose it is
  bool ahead_over = true;               // nothing is to be done until something changes
  uint64_t changes = 0;
  std::deque<QuestionPtr> questions;
  std::vector<std::string> places_left;
  KeptImages kept;
  uint64_t looks = 0;      // how often files have changed
  bool look_anew = false;  // which has not been heeded yet
  bool paused = false;
  bool posted = false;   // a unit of work is queued, or under way and not the last
  bool working = false;  // one is under way, or tells what came of it
  bool closing = false;
  enum class Hand : uint8_t { nothing, wish, question, ahead } hand = Hand::nothing;
  QuestionPtr in_hand;
  bool drew = true;  // an image since the device was opened

  // Raised with the mutex held; ends what is in hand.
  std::atomic<bool> stop = false;

  // With the mutex held.
  void change_ahead() {
    ahead_over = false;
    ++changes;
  }
  void wake();
  void nudge();  // something that waits less long than what is in hand has come
  CompositionPtr composition(int64_t version) const;  // null: unknown

  // Has a question answered, waits, and throws what its steps throw, or Interrupted.
  void answer(const std::function<bool(Device&)>& step, const GiveUp& give_up);

  // What follows is of the thread for drawing alone.

  struct AheadTask {
    Ahead ahead;
    int64_t version = 0;
    CompositionPtr composition;
    uint64_t change = 0;
  };
  struct Task {
    std::optional<Wishes::Job> job;
    CompositionPtr composition;
    int64_t version = 0;
    uint64_t looks = 0;
    bool paused = false;
    QuestionPtr question;
    std::optional<AheadTask> ahead;
  };

  void post();
  void work();  // one unit
  std::optional<Task> next();
  void perform(Task& task);
  void draw(const Task& task);
  void show(const Task& task, int node);
  void ask(const QuestionPtr& question);
  void draw_ahead(const AheadTask& task);
  void tell(const Wishes::Job& job, Drawn drawn);
  void tell_failed(const Wishes::Job& job, Drawn failed);
  void report(bool resting);
  void recover(const std::string& why);
  void end();

  Device device;
  AheadWork ahead_work;
  Wishes::Clock::time_point reported{};
  uint64_t held_told = 0;
  std::string lost;  // why there is no device any more
};

}  // namespace host::live::session
