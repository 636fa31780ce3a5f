#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host::live::http {

// What a handler throws to answer with {"message": ...} and this status.
class Error : public std::runtime_error {
 public:
  Error(int code, const std::string& message) : std::runtime_error(message), status(code) {}
  int status;
};

struct Request {
  std::map<std::string, std::string> query;
  std::string body;

  const std::string& text(const std::string& name) const;  // throws Error where it is not given
};

struct Reply {
  int status = 200;
  std::string body = {};
  std::string type = "application/json; charset=utf-8";
  std::vector<std::pair<std::string, std::string>> headers = {};
};

// An answer that goes on for long.
class Stream {
 public:
  Stream() = default;
  virtual ~Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  // Waits until the bytes are on their way. False: the client has gone, or the server ends.
  virtual bool write(std::string_view bytes) = 0;
  virtual bool open() = 0;
};

struct Options {
  std::string address = "127.0.0.1";
  int port = 0;                    // 0: one that is free
  std::vector<std::string> names;  // that requests may call this machine by
  std::string certificate, key;    // files in PEM; "" for no encryption
  std::string token;
  std::function<void(const std::string&)> refused;  // told a line for each request that was refused
};

// Requests and answers, each connection on a thread of its own, of which there are 48; half of them may be
// streams at a time. What comes in is bounded: 16 MiB of body, 5 seconds of silence. Every request but those
// for pages needs the token, and all must come from a page of this server, see Rules. Handlers are called
// side by side; what they throw becomes an answer.
class Server {
 public:
  static constexpr size_t most_body = size_t{16} << 20;

  using Handler = std::function<Reply(const Request&)>;
  // Looks at the request, which it may refuse, and gives what then writes.
  using Streaming = std::function<std::function<void(Stream&)>(const Request&)>;

  // Throws std::runtime_error where certificate and key cannot be used.
  explicit Server(Options options);
  ~Server();  // stops it
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Before `start`.
  void page(const std::string& path, Handler handler);  // needs no token
  void get(const std::string& path, Handler handler);
  void post(const std::string& path, Handler handler);
  void put(const std::string& path, Handler handler);
  void stream(const std::string& path, const std::string& type, Streaming streaming);

  // Begins to answer, and returns the port. Throws std::runtime_error where that cannot be had.
  int start();

  // Ends every connection, and returns when no handler is left. `Stream::open` is false from the
  // beginning.
  void stop() noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace host::live::http
