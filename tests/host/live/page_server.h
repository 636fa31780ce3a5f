#pragma once

#include "host/live/server.h"
#include "tests/support/files.h"

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>
#include <nlohmann/json.hpp>

namespace live {

using Json = nlohmann::json;

// A composition of 16 x 9 pixels, and nodes for it: ground (with a curve), off (disabled), soft.
std::string shot_of(const std::string& nodes);
extern const std::string keyed;

struct Answer {
  int status = 0;
  Json body;  // the text itself where it is no JSON
  httplib::Headers headers;
};

// An answer that does not end, read on a thread of its own. Waits are bounded.
class Listening {
 public:
  Listening(int port, const std::string& path, const httplib::Headers& headers);
  ~Listening();
  Listening(const Listening&) = delete;
  Listening& operator=(const Listening&) = delete;

  // Takes the next bytes from what has come; fails the test when they do not come.
  std::string take(size_t bytes);
  std::string take_line();
  bool ended();  // waits for it

  // The data of the next event of a name that holds what is asked for.
  Json event(const std::string& name, const std::function<bool(const Json&)>& wanted = {});

 private:
  bool wait(const std::function<bool()>& done);
  std::unique_ptr<httplib::Client> client_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string bytes_;
  bool ended_ = false, enough_ = false;
  std::thread thread_;
};

// A server in this process on a text of its own, and a client that has its token.
class PageServer {
 public:
  explicit PageServer(const std::string& text, host::live::ServerOptions options = {});

  Answer send(const std::string& method, const std::string& path, const Json& body = nullptr);
  std::unique_ptr<Listening> listen(const std::string& path);
  // Bytes as they stand, and the answer to them.
  std::string send_raw(const std::string& bytes) const;
  std::vector<std::string> refused();  // lines since the last call

  std::filesystem::path folder = support::new_folder(), file = folder / "shot.json";
  int port = 0;
  std::string token;

 private:
  std::mutex mutex_;
  std::vector<std::string> refused_;
  std::unique_ptr<host::live::Server> server_;
  std::unique_ptr<httplib::Client> client_;
};

}  // namespace live
