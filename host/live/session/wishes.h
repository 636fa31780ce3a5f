#pragma once

#include "host/live/session/session.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace host::live::session {

// What clients wish, whose turn it is, and what becomes of an image under way when the wishes change: of a
// job there is one in hand, others are on their way from the device. Externally synchronised.
class Wishes {
 public:
  using Clock = std::chrono::steady_clock;

  // While a client scrubs it is told of the frame in hand where it was given nothing for so long, or where
  // the last one came this soon.
  static constexpr std::chrono::milliseconds patience{150};
  static constexpr std::chrono::milliseconds quick{200};

  struct Job {
    std::string client;
    Wish wish;
    Clock::time_point asked;
    std::vector<int64_t> later;  // frames that the client wishes next, of the same node and version
  };

  // Replaces a client's list. `newest` is the version that 0 stands for. True when what is in hand is to end.
  bool set(const std::string& client, std::vector<Wish> wishes, int64_t newest, Clock::time_point now);

  // The client is gone. True as set().
  bool leave(const std::string& client);

  bool known(const std::string& client) const {
    return clients_.count(client) > 0;
  }

  // Whether somebody waits for an image that has not been begun.
  bool pending() const;

  // Takes the next wish in hand: clients in turn, each one's best first.
  std::optional<Job> take(int64_t newest, Clock::time_point now);

  // What is in hand ends: drawn, and its answer on its way; stopped, so that it is wished anew if it is still
  // listed; or put off until resume().
  void drawn();
  void stopped();
  void put_off();

  // What was put off is wished again.
  void resume();

  // An answer has arrived, maybe before drawn() said that it is on its way: whether the client is to be told.
  bool arrived(const std::string& client, uint64_t id, Clock::time_point now);

  // What is in hand or on its way is lost, and wished again where it is still listed.
  void again();

  // Answers on their way.
  int on_their_way() const;

 private:
  enum class Stage : uint8_t { wished, in_hand, on_its_way, put_off, answered };

  struct Entry {
    Wish wish;
    Clock::time_point asked;
    Clock::time_point taken{};  // in hand
    Stage stage = Stage::wished;
    bool listed = true;  // in the client's last list; others stay until their answer
    bool told = true;    // when it comes
    int64_t version = 0;
    uint64_t list = 0;  // the client's last one with it
  };

  struct Client {
    std::vector<Entry> entries;  // the listed ones first, in their order
    Clock::time_point given{};   // an image
    Clock::duration took{};      // that one, from when it was taken in hand
    uint64_t lists = 0;
    uint64_t told = 0;  // the latest list of which something was told
    bool gone = false;  // answers are still on their way
  };

  bool outlives(const Entry& entry, const Client& client, int64_t newest, Clock::time_point now) const;
  Entry* in_hand(Client** of = nullptr);
  void tidy();

  std::map<std::string, Client> clients_;
  std::string last_;  // that had its turn
};

}  // namespace host::live::session
