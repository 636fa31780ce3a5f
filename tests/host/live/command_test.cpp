#include "tests/support/files.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;

// One draw of it takes minutes on a software driver.
constexpr const char* long_draw = R"({"format": {"width": 4096, "height": 2160}, "frames": "1-2", "nodes": [
  {"name": "c", "type": "constant", "knobs": {"color": [0.5, 0.2, 0.1, 1]}},
  {"name": "soft", "type": "disc_blur", "inputs": "c", "knobs": {"radius": 900, "edges": "repeat"}},
  {"name": "out", "type": "write", "inputs": "soft", "knobs": {"file": "out/f.####.exr"}}]})";

TEST(LiveCommand, EndsSoonWhateverIsUnderWay) {
  for (const auto& [sent, code] : {std::pair(SIGINT, 130), {SIGTERM, 75}}) {
    const int signal = sent;
    const fs::path folder = support::new_folder();
    support::write_bytes(folder / "shot.json", long_draw);
    const std::string line = "cd " + folder.string() +
                             "; echo $$; exec env -u DISPLAY " QUORVEL_PROGRAM
                             " live shot.json --gpu software 2>&1";
    FILE* const pipe = popen(line.c_str(), "r");
    pid_t process = 0;
    int port = 0;
    std::array<char, 64> token{};
    ASSERT_EQ(std::fscanf(pipe, "%d http://127.0.0.1:%d/#%63s", &process, &port, token.data()), 3);
    httplib::Client client("127.0.0.1", port);
    const httplib::Headers headers = {{"Authorization", std::string("Bearer ") + token.data()}};
    const auto viewed = client.Post("/view", headers, R"({"client": "c", "ahead": null, "wishes": [{"id": 1,
      "slot": "a", "version": 0, "node": "soft", "frame": 1, "scale": 1, "area": "format", "pixels": "rgba8"}]})",
                                    "application/json");
    ASSERT_TRUE(viewed && viewed->status == 204) << (viewed ? viewed->body : "");
    const auto rendered = client.Post("/render", headers, R"({"frames": "1"})", "application/json");
    ASSERT_TRUE(rendered && rendered->status == 204) << (rendered ? rendered->body : "");
    const auto begin = std::chrono::steady_clock::now();
    // Until it ends, a stream with nothing on it; then the signal.
    std::string came;
    const auto events = client.Get("/events?client=c", headers, [&](const char* bytes, size_t n) {
      if (came.empty()) kill(process, signal);
      came.append(bytes, n);
      return true;
    });
    std::string said;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) said += static_cast<char>(c);
    const int status = pclose(pipe);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == code) << status << said;
    // A second, and what a machine that has other things to do takes.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_NE(came.find("event: "), std::string::npos) << came;
    EXPECT_EQ(said.find_first_not_of('\n'), std::string::npos) << said;
  }
}

}  // namespace
