#include "host/live/client.h"
#include "host/live/http/server.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <httplib.h>

// What threads share between the session and the pages, without either: so that the thread sanitizer sees all
// of it.

namespace {

using namespace host::live;
using std::chrono::milliseconds;

// Frames and events are told while pages read them, come anew and change their wishes.
TEST(Threads, StreamsComeAndGoWhileTheyAreTold) {
  constexpr int rounds = 300;
  Clients clients;
  std::atomic<int> frames = 0, events = 0;
  std::vector<std::thread> threads;
  const auto reading = [&](Client::Stream stream, auto next, std::atomic<int>& taken) {
    for (int round = 0; round < rounds; ++round) {
      const auto client = clients.get("page");
      const uint64_t number = client->open(stream);
      for (int i = 0; i < 5; ++i) taken += next(*client, number) ? 1 : 0;
      client->close(stream, number);
    }
  };
  threads.emplace_back([&] {
    reading(
        Client::Stream::frames,
        [](Client& client, uint64_t number) {
          return client.next_frame(number, milliseconds(1)).what.has_value();
        },
        frames);
  });
  threads.emplace_back([&] {
    reading(
        Client::Stream::events,
        [](Client& client, uint64_t number) {
          return client.next_event(number, milliseconds(1)).what.has_value();
        },
        events);
  });
  for (const char slot : {'a', 'b'}) {
    threads.emplace_back([&clients, slot] {
      for (int i = 0; i < rounds; ++i) {
        session::Drawn drawn;
        drawn.wish.id = static_cast<uint64_t>(i);
        drawn.wish.slot = slot;
        clients.get("page")->set_wished({static_cast<uint64_t>(i)});
        clients.get("page")->push(std::move(drawn));
        clients.tell_all("memory", "", std::to_string(i));
      }
    });
  }
  for (std::thread& each : threads) each.join();
  EXPECT_GT(frames, 0);

  // Nothing but the last two of a slot is kept of what nobody wishes any more.
  const auto client = clients.get("page");
  for (uint64_t id = 0; id < 9; ++id) {
    session::Drawn drawn;
    drawn.wish.id = id;
    drawn.wish.slot = 'a';
    client->set_wished({3, id});
    client->push(std::move(drawn));
  }
  client->set_wished({3});
  const uint64_t number = client->open(Client::Stream::frames);
  std::set<uint64_t> left;
  for (auto next = client->next_frame(number, milliseconds(0)); next.what;
       next = client->next_frame(number, milliseconds(0)))
    if (next.what->wish.slot == 'a') left.insert(next.what->wish.id);
  EXPECT_EQ(left, (std::set<uint64_t>{3, 7, 8}));
}

// A server that ends waits neither for its streams nor for connections that might say more.
TEST(Threads, AServerEndsWithItsConnectionsOpen) {
  Clients clients;
  http::Options options;
  options.names = {"127.0.0.1"};
  options.token = "t";
  options.refused = [](const std::string& line) { ADD_FAILURE() << line; };
  http::Server server(options);
  std::atomic<int> open = 0;
  server.get("/idle", [](const http::Request&) { return http::Reply{200, "{}"}; });
  server.stream("/events", "text/event-stream", [&](const http::Request& request) {
    return [&, client = clients.get(request.text("client"))](http::Stream& stream) {
      const uint64_t number = client->open(Client::Stream::events);
      ++open;
      while (!client->next_event(number, milliseconds(60000)).ended && stream.open()) stream.write("x");
      --open;
    };
  });
  const int port = server.start();
  const httplib::Headers headers = {{"Authorization", "Bearer t"}};
  std::vector<std::unique_ptr<httplib::Client>> idle;
  std::vector<std::thread> streams;
  for (int i = 0; i < 4; ++i) {
    idle.push_back(std::make_unique<httplib::Client>("127.0.0.1", port));
    idle.back()->set_keep_alive(true);
    const auto result = idle.back()->Get("/idle", headers);
    ASSERT_TRUE(result && result->status == 200);
    streams.emplace_back([&, i] {
      httplib::Client client("127.0.0.1", port);
      client.set_read_timeout(60);
      client.Get("/events?client=" + std::to_string(i), headers, [](const char*, size_t) { return true; });
    });
  }
  while (open < 4) std::this_thread::yield();
  const auto begin = std::chrono::steady_clock::now();
  clients.end_all();
  server.stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  EXPECT_EQ(open, 0);
  for (std::thread& each : streams) each.join();
}

}  // namespace
