#pragma once

#include "host/live/session/session.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace host::live {

// A page, as the server sees it: what is on its way to it. Images wait for its stream of frames, events for
// its stream of events; a stream that is opened anew ends the one before. Bounded, however slow the page
// reads: of the images that it does not wish any more two of a slot are kept, of events that replace one
// another the last. Thread-safe.
class Client {
 public:
  using Wait = std::chrono::milliseconds;
  enum class Stream : uint8_t { frames, events };

  struct Event {
    std::string name;
    std::string data;  // JSON
  };

  // What a stream has to send next: nothing after the wait, or because it has ended.
  template <class What>
  struct Next {
    bool ended = false;
    std::optional<What> what;
  };

  // The number by which a stream asks. Nothing waits for it but what comes from now on, and images.
  uint64_t open(Stream stream);
  // Whether there is none of either kind any more.
  bool close(Stream stream, uint64_t number);
  void end();  // both, and those to come

  bool is_open(Stream stream) const;

  void set_wished(std::set<uint64_t> ids);
  void push(session::Drawn drawn);
  // Takes the place of an event of the same name and key that was not sent yet.
  void tell(const std::string& name, const std::string& key, std::string data);

  Next<session::Drawn> next_frame(uint64_t number, Wait wait);
  Next<Event> next_event(uint64_t number, Wait wait);

 private:
  void drop_unwished(char slot);
  bool goes_on(Stream stream, uint64_t number) const;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  uint64_t last_number_ = 0;
  std::map<Stream, uint64_t> open_;
  bool ended_ = false;
  std::set<uint64_t> wished_;
  std::deque<session::Drawn> frames_;
  struct Told {
    std::string name, key, data;
  };
  std::deque<Told> events_;
};

// The pages that there are, by the names that they gave themselves. Thread-safe.
class Clients {
 public:
  // Made where it is new. Throws http::Error where there are too many.
  std::shared_ptr<Client> get(const std::string& name);
  std::shared_ptr<Client> find(const std::string& name) const;  // null where there is none
  void remove(const std::string& name);

  void tell_all(const std::string& name, const std::string& key, const std::string& data) const;
  void end_all();

 private:
  static constexpr size_t most = 64;
  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<Client>> clients_;
  bool ended_ = false;
};

}  // namespace host::live
