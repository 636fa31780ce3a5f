// What a session does on the thread for drawing, one unit of work at a time.

#include "host/live/session/state.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace host::live::session {
namespace {

// While frames are drawn ahead, how often the listener is told what is cached.
constexpr std::chrono::milliseconds telling{100};

draw::ImageRequest request_of(const Wish& wish, int node, const std::atomic<bool>& stop) {
  draw::ImageRequest request;
  request.node = node;
  request.area = wish.area;
  request.scale = wish.scale;
  request.stop = &stop;
  return request;
}

// What is wrong with a wish before anything is drawn.
std::string fault_of(const Wish& wish, const shot::Composition* composition, int64_t version) {
  if (!composition) return "there is no version " + std::to_string(version) + " any more";
  if (!(wish.scale > 0 && wish.scale <= 1)) return "the scale must be above 0 and at most 1";
  if (!wish.node.empty() && composition->find(wish.node) < 0) return "there is no node \"" + wish.node + "\"";
  return {};
}

int node_of(const shot::Composition& composition, const std::string& name) {
  return name.empty() ? composition.outputs.at(0) : composition.find(name);
}

}  // namespace

void Session::State::work() {
  std::optional<Task> task = next();
  if (task) {
    perform(*task);
    report(false);
  } else {
    report(true);
  }
  if (task) {
    const std::lock_guard lock(mutex);
    hand = Hand::nothing;
    in_hand = nullptr;
    if (closing) {
      posted = false;
    } else {
      post();
    }
  }
  outbox.send();
  const std::lock_guard lock(mutex);
  working = false;
}

// Clients' wishes come first, then what somebody waits for, then what may be asked for next.
std::optional<Session::State::Task> Session::State::next() {
  std::vector<std::string> left;
  Task task;
  const std::lock_guard lock(mutex);
  posted = false;
  working = true;
  if (closing) return std::nullopt;
  for (const std::string& place : std::exchange(places_left, {})) {
    if (device.viewing()) device.viewing()->leave(place);
  }
  if (std::exchange(look_anew, false)) {
    kept.clear();
    ahead_work = AheadWork();
    if (device.viewing()) device.viewing()->look_again();
  }
  stop = false;
  task.paused = paused;
  task.looks = looks;
  if ((task.job = wishes.take(newest, Wishes::Clock::now()))) {
    hand = Hand::wish;
    task.version = task.job->wish.version == 0 ? newest : task.job->wish.version;
    task.composition = composition(task.version);
  } else if (!questions.empty()) {
    hand = Hand::question;
    task.question = in_hand = questions.front();
    questions.pop_front();
  } else {
    if (aheads.count(ahead_of) == 0) ahead_of = aheads.empty() ? "" : aheads.begin()->first;
    if (paused || ahead_over || aheads.empty() || versions.empty()) return std::nullopt;
    hand = Hand::ahead;
    task.ahead = AheadTask{aheads[ahead_of], newest, composition(newest), changes};
  }
  posted = true;
  return task;
}

void Session::State::perform(Task& task) {
  if (task.job) {
    draw(task);
  } else if (task.question) {
    ask(task.question);
  } else {
    draw_ahead(*task.ahead);
  }
  if (lost.empty() && device.lost()) recover("the device was reset");
}

void Session::State::draw(const Task& task) {
  const Wishes::Job& job = *task.job;
  Drawn failed;
  failed.wish = job.wish;
  failed.version = task.version;
  failed.node = failed.error_node = job.wish.node;
  failed.error = lost.empty() ? fault_of(job.wish, task.composition.get(), task.version) : lost;
  if (!failed.error.empty()) return tell_failed(job, std::move(failed));
  const int node = node_of(*task.composition, job.wish.node);
  failed.node = failed.error_node = task.composition->nodes[static_cast<size_t>(node)].name;
  try {
    show(task, node);
    const std::lock_guard lock(mutex);
    wishes.drawn();
    return;
  } catch (const frame::Interrupted&) {
    const std::lock_guard lock(mutex);
    return wishes.stopped();
  } catch (const frame::FrameError& error) {
    failed.error = error.reason();
    if (!error.node().empty()) failed.error_node = error.node();
  } catch (const std::exception& error) {
    failed.error = error.what();
  }
  if (device.lost()) return;  // it is drawn again
  tell_failed(job, std::move(failed));
}

// Out of hand at once: another thread may be about the outbox, and the next wish be in hand before this is
// told.
void Session::State::tell_failed(const Wishes::Job& job, Drawn failed) {
  {
    const std::lock_guard lock(mutex);
    wishes.drawn();
  }
  tell(job, std::move(failed));
}

void Session::State::show(const Task& task, int node) {
  const Wishes::Job& job = *task.job;
  render::Viewing& viewing = device.of(task.composition);
  const draw::ImageRequest request = request_of(job.wish, node, stop);
  if (task.paused && !viewing.cached(viewing.key(request, job.wish.frame))) {
    const std::lock_guard lock(mutex);
    return wishes.put_off();
  }
  // Kept images are the first to go where others have taken all room.
  if (viewing.crowded(request)) {
    const std::lock_guard lock(mutex);
    kept.clear();
  }
  const auto done = [self = shared_from_this(), job, node, version = task.version, looks = task.looks](
                        draw::FrameImage image, render::Taken taken, const std::string& error) {
    Drawn drawn;
    drawn.wish = job.wish;
    drawn.version = version;
    drawn.node = image.node;
    drawn.cached = taken.draws == 0 && std::all_of(taken.uses.begin(), taken.uses.end(),
                                                   [](const NodeUse& use) { return use.cached; });
    drawn.error = error;
    if (!error.empty()) drawn.error_node = image.node;
    drawn.uses = std::move(taken.uses);
    drawn.image = std::move(image);
    if (error.empty()) {
      const std::lock_guard lock(self->mutex);
      self->drew = true;
      if (job.wish.scale == 1 && looks == self->looks)
        self->kept.add({version, node, job.wish.frame, job.wish.area}, drawn.image);
    }
    self->tell(job, std::move(drawn));
    self->outbox.send();
  };
  viewing.show(job.client + job.wish.slot, request, job.wish.frame, job.later, done);
}

void Session::State::tell(const Wishes::Job& job, Drawn drawn) {
  drawn.ms = std::chrono::duration<double, std::milli>(Wishes::Clock::now() - job.asked).count();
  const auto shared = std::make_shared<Drawn>(std::move(drawn));
  outbox.put([self = shared_from_this(), client = job.client, shared] {
    {
      const std::lock_guard lock(self->mutex);
      if (!self->wishes.arrived(client, shared->wish.id, Wishes::Clock::now()) || self->closing) return;
    }
    self->listener.drawn(client, std::move(*shared));
  });
}

void Session::State::ask(const QuestionPtr& question) {
  bool more = false;
  std::exception_ptr error;
  try {
    if (!lost.empty()) throw std::runtime_error(lost);
    more = question->step(device);
  } catch (const frame::Interrupted&) {
    more = true;
  } catch (...) {
    error = std::current_exception();
    more = lost.empty() && device.lost();  // it is asked again
  }
  const std::lock_guard lock(mutex);
  if (question->over) return;
  if (more && !closing) {
    questions.push_front(question);
    return;
  }
  question->error = more ? std::make_exception_ptr(frame::Interrupted()) : error;
  question->over = true;
  changed.notify_all();
}

void Session::State::draw_ahead(const AheadTask& task) {
  const Ahead& ahead = task.ahead;
  Wish wish;
  wish.node = ahead.node;
  wish.scale = ahead.scale;
  bool over = !lost.empty() || !fault_of(wish, task.composition.get(), task.version).empty();
  try {
    if (!over) {
      const int node = node_of(*task.composition, ahead.node);
      AheadWork::Subject subject{task.version, ahead};
      subject.ahead.node = task.composition->nodes[static_cast<size_t>(node)].name;
      over = !ahead_work.step(device.of(task.composition), request_of(wish, node, stop), subject);
    }
  } catch (const frame::Interrupted&) {
    return;  // for something that comes first
  } catch (const std::exception&) {
    over = true;  // whoever wishes such a frame is told
  }
  if (over) ahead_work.retry();
  const std::lock_guard lock(mutex);
  if (task.change == changes) ahead_over = over;
}

void Session::State::report(bool resting) {
  render::Viewing* const viewing = device.viewing();
  if (!viewing) return;
  if (resting) viewing->rest();
  const auto now = Wishes::Clock::now();
  if (!resting && now - reported < telling) return;
  reported = now;
  const auto self = shared_from_this();
  if (auto frames = ahead_work.news(*viewing)) {
    outbox.put([self, subject = ahead_work.subject(), frames = std::move(*frames)] {
      self->listener.cached(subject.version, subject.ahead.node, subject.ahead.scale, frames);
    });
  }
  if (const uint64_t held = viewing->held(); held != held_told) {
    held_told = held;
    outbox.put([self, held] { self->listener.memory(held, self->options.memory); });
  }
  for (const std::string& text : device.renderer()->take_notices())
    outbox.put([self, text] { self->listener.notice(text); });
}

// Opens the device anew, unless it went before it gave an image.
void Session::State::recover(const std::string& why) {
  const auto told = [this](bool gone, const std::string& message) {
    outbox.put([self = shared_from_this(), gone, message] { self->listener.device_lost(gone, message); });
  };
  bool again = false;
  {
    const std::lock_guard lock(mutex);
    again = drew;
    wishes.again();
    change_ahead();
  }
  device.drop();
  {
    const std::lock_guard lock(mutex);
    drew = false;
    kept.clear();
  }
  ahead_work = AheadWork();
  if (!again) {
    lost = why + ", and again when it was opened anew";
    told(true, lost + "; start quorvel live again");
    return;
  }
  told(true, why + "; it is being opened anew");
  try {
    thread->context();
    told(false, "");
  } catch (const std::exception& error) {
    lost = why + ": " + error.what();
    told(true, lost + "; start quorvel live again");
  }
}

void Session::State::end() {
  device.close();
  outbox.close();
  const std::lock_guard lock(mutex);
  kept.clear();
}

}  // namespace host::live::session
