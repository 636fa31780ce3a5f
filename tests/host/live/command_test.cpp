#include "host/live/keepsake.h"
#include "tests/support/files.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// One draw of it takes minutes on a software driver.
constexpr const char* long_draw = R"({"format": {"width": 4096, "height": 2160}, "frames": "1-2", "nodes": [
  {"name": "c", "type": "constant", "knobs": {"color": [0.5, 0.2, 0.1, 1]}},
  {"name": "soft", "type": "disc_blur", "inputs": "c", "knobs": {"radius": 900, "edges": "repeat"}},
  {"name": "out", "type": "write", "inputs": "soft", "knobs": {"file": "out/f.####.exr"}}]})";

constexpr const char* short_draw = R"({"format": {"width": 16, "height": 9}, "frames": "1-2", "nodes": [
  {"name": "soft", "type": "constant", "knobs": {"color": [0.5, 0.2, 0.1, 1]}},
  {"name": "out", "type": "write", "inputs": "soft", "knobs": {"file": "out/f.####.exr"}}]})";

constexpr const char* wish = R"({"client": "c", "ahead": null, "wishes": [{"id": 1, "slot": "a", "version": 0,
  "node": "soft", "frame": 1, "scale": 1, "area": "format", "pixels": "rgba8"}]})";

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// The command on a text, in a folder of its own.
struct Running {
  fs::path folder = support::new_folder();
  FILE* pipe = nullptr;
  pid_t process = 0;
  int port = 0;
  httplib::Headers headers;

  explicit Running(const char* text) {
    support::write_bytes(folder / "shot.json", text);
    const std::string line = "cd " + folder.string() +
                             "; echo $$; exec env -u DISPLAY " QUORVEL_PROGRAM
                             " live shot.json --gpu software 2>&1";
    pipe = popen(line.c_str(), "r");
    std::array<char, 64> token{};
    EXPECT_EQ(std::fscanf(pipe, "%d http://127.0.0.1:%d/#%63s", &process, &port, token.data()), 3);
    headers = {{"Authorization", std::string("Bearer ") + token.data()}};
  }

  // What serves behind the process that was started.
  pid_t serving() const {
    const std::string name = std::to_string(process);
    pid_t found = 0;
    std::ifstream("/proc/" + name + "/task/" + name + "/children") >> found;
    EXPECT_GT(found, 0);
    return found > 0 ? found : process;
  }

  // Returns once the process in front has taken note of it: until then the one that crashes may still answer.
  void crash() const {
    const pid_t crashed = serving();
    kill(crashed, SIGABRT);
    while (kill(crashed, 0) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  // The answer, waited for where nobody listens meanwhile.
  std::string get(const std::string& path) const {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < until) {
      if (const auto came = httplib::Client("127.0.0.1", port).Get(path, headers)) return came->body;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return "nothing";
  }

  // Of an answer that does not end, what has come once this is in it.
  std::string listen(const std::string& path, const std::string& wanted) const {
    std::string came;
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(60);
    client.Get(path, headers, [&](const char* bytes, size_t n) {
      came.append(bytes, n);
      return came.find(wanted) == std::string::npos;
    });
    return came;
  }

  void draw() const {
    httplib::Client("127.0.0.1", port).Post("/view", headers, wish, "application/json");
    EXPECT_TRUE(has(listen("/frames?client=c", "QVF1"), "QVF1"));
  }

  bool change(int base, const std::string& text) const {
    const nlohmann::json body = {{"base", base}, {"text", text}};
    const auto changed =
        httplib::Client("127.0.0.1", port).Put("/composition", headers, body.dump(), "application/json");
    EXPECT_TRUE(changed && changed->status == 200) << (changed ? changed->body : "no answer");
    return changed && changed->status == 200;
  }

  // Waits for the end: the status, and what was said.
  std::pair<int, std::string> end() {
    std::string said;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) said += static_cast<char>(c);
    return {pclose(pipe), said};
  }
};

TEST(LiveCommand, EndsSoonWhateverIsUnderWay) {
  for (const auto& [sent, code] : {std::pair(SIGINT, 130), {SIGTERM, 75}}) {
    const int signal = sent;
    Running running(long_draw);
    httplib::Client client("127.0.0.1", running.port);
    const auto viewed = client.Post("/view", running.headers, wish, "application/json");
    ASSERT_TRUE(viewed && viewed->status == 204) << (viewed ? viewed->body : "");
    const auto rendered = client.Post("/render", running.headers, R"({"frames": "1"})", "application/json");
    ASSERT_TRUE(rendered && rendered->status == 204) << (rendered ? rendered->body : "");
    const auto begin = std::chrono::steady_clock::now();
    // Until it ends, a stream with nothing on it; then the signal.
    std::string came;
    const auto events = client.Get("/events?client=c", running.headers, [&](const char* bytes, size_t n) {
      if (came.empty()) kill(running.process, signal);
      came.append(bytes, n);
      return true;
    });
    const auto [status, said] = running.end();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == code) << status << said;
    // A second, and what a machine that has other things to do takes.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_NE(came.find("event: "), std::string::npos) << came;
    EXPECT_EQ(said.find_first_not_of('\n'), std::string::npos) << said;
  }
}

TEST(LiveCommand, ACrashBeforeAnyImageEndsIt) {
  Running running(short_draw);
  running.crash();
  const auto [status, said] = running.end();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status << said;
  EXPECT_TRUE(has(said, "quorvel: ") && has(said, "before it had given an image") && has(said, "signal 6"))
      << said;
  EXPECT_FALSE(fs::exists(running.folder / "shot.rescued.json"));
}

TEST(LiveCommand, ACrashAfterAnImageIsSurvivedOnce) {
  Running running(short_draw);
  const std::string first = std::string(short_draw) + "\n// first",
                    second = std::string(short_draw) + "\n// second";
  running.draw();
  ASSERT_TRUE(running.change(1, first));
  running.crash();
  const auto went_on = nlohmann::json::parse(running.get("/composition"), nullptr, false);
  EXPECT_EQ(went_on.value("version", 0), 2) << went_on;
  EXPECT_EQ(went_on.value("text", ""), first);
  EXPECT_FALSE(went_on.value("saved", true));
  EXPECT_TRUE(has(running.listen("/events?client=c", "signal 6"), "event: notice\n"));
  // An edit that is the next one's end before it has drawn: the text is not.
  ASSERT_TRUE(running.change(2, second));
  running.crash();
  const auto [status, said] = running.end();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status << said;
  EXPECT_TRUE(has(said, "started again") && has(said, "shot.rescued.json")) << said;
  EXPECT_EQ(support::bytes_of(running.folder / "shot.rescued.json"), second);
  EXPECT_EQ(support::bytes_of(running.folder / "shot.json"), short_draw);
}

// Whoever comes after a crash finds the port taken.
TEST(LiveCommand, WhatWasNotSavedIsInAFileHoweverItEnds) {
  Running running(short_draw);
  running.draw();
  const std::string text = std::string(short_draw) + "\n// unsaved";
  ASSERT_TRUE(running.change(1, text));
  const pid_t serving = running.serving();
  kill(running.process, SIGSTOP);
  kill(serving, SIGABRT);
  // Newer releases of the library try no second time with one that could not be bound.
  std::optional<httplib::Server> other;
  const auto taken = [&] {
    other.emplace();
    other->set_socket_options([](socket_t socket) {
      const int yes = 1;
      setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    return other->bind_to_port("127.0.0.1", running.port);
  };
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!taken() && std::chrono::steady_clock::now() < until)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  kill(running.process, SIGCONT);
  const auto [status, said] = running.end();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status << said;
  EXPECT_TRUE(has(said, "cannot listen") && has(said, "shot.rescued.json")) << said;
  EXPECT_EQ(support::bytes_of(running.folder / "shot.rescued.json"), text);
}

// Killed at any time, also in the middle of writing.
TEST(Keepsake, IsWholeWhateverHasEndedWhoeverWritesIt) {
  using host::live::Document;
  host::live::Keepsake keepsake;
  const auto made = [](int64_t version) {
    const std::string text(static_cast<size_t>(500'000 + version % 7 * 100'000),
                           static_cast<char>('a' + version % 26));
    return Document::Kept{version, text, text.substr(static_cast<size_t>(version % 1000))};
  };
  int64_t last = 0;
  for (int round = 0; round < 40; ++round) {
    const pid_t writer = fork();
    if (writer == 0) {
      for (int64_t version = last + 1;; ++version) keepsake.keep(made(version));
    }
    while (!keepsake.document() || keepsake.document()->version < last + 1 + round % 3) {
    }
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    const Document::Kept kept = *keepsake.document();
    const Document::Kept wanted = made(kept.version);
    ASSERT_TRUE(kept.text == wanted.text && kept.known == wanted.known) << "version " << kept.version;
    last = kept.version;
  }
}

}  // namespace
