#include "host/live/http/server.h"

#include "host/live/http/rules.h"

#include <atomic>
#include <charconv>
#include <chrono>
#include <exception>
#include <filesystem>
#include <optional>
#include <system_error>
#include <thread>

#include <httplib.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

namespace host::live::http {
namespace {

constexpr size_t threads = 48;
constexpr int most_streams = 24;
constexpr size_t most_drained = 16 * Server::most_body;  // of a body that is too long
constexpr int silence_seconds = 5, stalled_seconds = 30;

const httplib::Headers headers_of_all = {
    {"Cache-Control", "no-store"},
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self' data: "
     "blob:; "
     "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"Cross-Origin-Embedder-Policy", "require-corp"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "no-referrer"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
};

int port_of(const sockaddr_storage& address) {
  sockaddr_in in{};
  sockaddr_in6 in6{};
  if (address.ss_family == AF_INET) {
    std::memcpy(&in, &address, sizeof in);
    return ntohs(in.sin_port);
  }
  if (address.ss_family != AF_INET6) return 0;
  std::memcpy(&in6, &address, sizeof in6);
  return ntohs(in6.sin6_port);
}

// The library keeps its connections to itself and waits for those that are idle, so they are found by the
// port.
void end_connections(int port) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const std::string name = entry.path().filename().string();
    int descriptor = -1;
    std::from_chars(name.data(), name.data() + name.size(), descriptor);
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
        port_of(address) == port)
      ::shutdown(descriptor, SHUT_RDWR);
  }
}

class Connections final : public httplib::TaskQueue {
 public:
  explicit Connections(const std::atomic<int>& port) : pool_(threads), port_(port) {}

  // Nothing with some versions of the library, whether there is room with others.
  using Queued = decltype(std::declval<httplib::ThreadPool&>().enqueue(std::function<void()>()));
  Queued enqueue(std::function<void()> work) override {
    return pool_.enqueue(std::move(work));
  }

  // Called once no new ones come.
  void shutdown() override {
    end_connections(port_);
    pool_.shutdown();
  }

 private:
  httplib::ThreadPool pool_;
  const std::atomic<int>& port_;
};

// Two servers on one port would each get some of the requests.
void share_no_port(socket_t socket) {
  const int yes = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

std::unique_ptr<httplib::Server> make_server(const Options& options) {
  if (options.certificate.empty()) return std::make_unique<httplib::Server>();
  auto secure = std::make_unique<httplib::SSLServer>(options.certificate.c_str(), options.key.c_str());
  if (!secure->is_valid())
    throw std::runtime_error("cannot be used as certificate and key: " + options.certificate + ", " +
                             options.key);
  return secure;
}

std::string message_json(const std::string& message) {
  return nlohmann::json{{"message", message}}.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// As content that is provided, or the library would pack it, and what is packed already once more.
void send(Reply reply, httplib::Response& response) {
  response.status = reply.status;
  for (const auto& [name, value] : reply.headers) {
    response.headers.erase(name);
    response.set_header(name, value);
  }
  if (reply.body.empty()) return;
  const auto body = std::make_shared<const std::string>(std::move(reply.body));
  response.set_content_provider(
      body->size(), reply.type, [body](size_t offset, size_t length, httplib::DataSink& sink) {
        return sink.write(body->data() + offset, std::min(length, body->size() - offset));
      });
}

Reply answer(const Server::Handler& handler, const Request& request) {
  try {
    return handler(request);
  } catch (const Error& error) {
    return {error.status, message_json(error.what())};
  } catch (const std::bad_alloc&) {
    return {500, message_json("out of memory")};
  } catch (const std::exception& error) {
    return {500, message_json(error.what())};
  }
}

class SinkStream final : public Stream {
 public:
  SinkStream(httplib::DataSink& sink, const std::atomic<bool>& stopping) : sink_(sink), stopping_(stopping) {}

  bool write(std::string_view bytes) override {
    return !stopping_ && sink_.write(bytes.data(), bytes.size());
  }
  bool open() override {
    return !stopping_ && sink_.is_writable();
  }

 private:
  httplib::DataSink& sink_;
  const std::atomic<bool>& stopping_;
};

// The whole of a body, or nothing where it is longer than may be; what is too long is read to its end all the
// same, or the client would not come to reading the answer.
std::optional<std::string> read_body(const httplib::ContentReader& reader,
                                     const httplib::Response& response) {
  std::string body;
  size_t read = 0;
  const bool whole = reader([&](const char* bytes, size_t n) {
    read += n;
    if (read <= Server::most_body) body.append(bytes, n);
    return read <= most_drained;
  });
  // The library has looked at the length that was announced.
  if (read > Server::most_body || response.status == 413) return std::nullopt;
  if (!whole) throw Error(400, "the body is broken off");
  return body;
}

}  // namespace

const std::string& Request::text(const std::string& name) const {
  const auto found = query.find(name);
  if (found == query.end()) throw Error(400, "\"" + name + "\" is not given");
  return found->second;
}

struct Server::State {
  explicit State(Options given)
      : options(std::move(given)),
        rules(options.names, !options.certificate.empty(), options.token),
        server(make_server(options)) {}

  // What is wrong with a request before anybody looks at what it wants; told and nothing where it is fine.
  std::optional<Reply> refusal(const httplib::Request& request, bool needs_token) {
    const std::string why =
        rules.refusal(request.get_header_value("Host"), request.get_header_value("Origin"));
    if (!why.empty()) return refuse(request, 403, why);
    if (request.is_multipart_form_data()) return refuse(request, 415, "a form");
    if (needs_token && !rules.authorized(request.get_header_value("Authorization")))
      return refuse(request, 401, "without the token");
    return std::nullopt;
  }

  Reply refuse(const httplib::Request& request, int status, const std::string& why) const {
    // The target as it came: what it stands for may hold line breaks.
    const std::string target = request.target.substr(0, request.target.find('?'));
    options.refused("refused " + request.method + " " + target + " from " + request.remote_addr + ": " + why);
    return {status, message_json("refused: " + why)};
  }

  static Request taken(const httplib::Request& request) {
    return {{request.params.begin(), request.params.end()}, {}};
  }

  httplib::Server::HandlerWithContentReader with_body(Handler handler) {
    return [this, handler = std::move(handler)](const httplib::Request& request, httplib::Response& response,
                                                const httplib::ContentReader& reader) {
      std::optional<Reply> refused = refusal(request, true);
      if (!refused) {
        refused = answer(
            [&](const Request&) -> Reply {
              Request whole = taken(request);
              auto body = read_body(reader, response);
              if (!body) return refuse(request, 413, "a body of more than 16 MiB");
              whole.body = std::move(*body);
              return answer(handler, whole);
            },
            {});
      }
      send(std::move(*refused), response);
    };
  }

  httplib::Server::Handler without_body(Handler handler, bool needs_token) {
    return [this, handler = std::move(handler), needs_token](const httplib::Request& request,
                                                             httplib::Response& response) {
      if (auto refused = refusal(request, needs_token)) return send(std::move(*refused), response);
      send(answer(handler, taken(request)), response);
    };
  }

  void begin_stream(const httplib::Request& request, const std::string& type, const Streaming& streaming,
                    httplib::Response& response) {
    if (auto refused = refusal(request, true)) return send(std::move(*refused), response);
    std::function<void(Stream&)> writing;
    const Reply looked = answer(
        [&](const Request& asked) {
          writing = streaming(asked);
          return Reply{};
        },
        taken(request));
    if (!writing) return send(looked, response);
    if (++streams > most_streams) {
      --streams;
      return send({503, message_json("too many pages are open")}, response);
    }
    response.set_chunked_content_provider(
        type,
        [this, writing = std::move(writing)](size_t /*offset*/, httplib::DataSink& sink) {
          SinkStream stream(sink, stopping);
          try {
            writing(stream);
          } catch (const std::exception& error) {
            options.refused(std::string("a stream ended: ") + error.what());
          }
          sink.done();
          return false;
        },
        [this](bool /*success*/) { --streams; });
  }

  // What the library answers by itself.
  void complete(const httplib::Request& request, httplib::Response& response) const {
    if (response.content_provider_ || !response.body.empty()) return;
    if (response.status == 404) return send({404, message_json("there is nothing here")}, response);
    send(refuse(request, response.status, response.status == 413 ? "a body of more than 16 MiB" : "broken"),
         response);
  }

  Options options;
  Rules rules;
  std::unique_ptr<httplib::Server> server;
  std::atomic<int> port = 0;
  std::atomic<int> streams = 0;
  std::atomic<bool> stopping = false;
  std::thread thread;
};

Server::Server(Options options) : state_(std::make_unique<State>(std::move(options))) {
  httplib::Server& server = *state_->server;
  State* const state = state_.get();
  server.new_task_queue = [state] { return new Connections(state->port); };
  server.set_socket_options(share_no_port);
  server.set_tcp_nodelay(true);
  server.set_default_headers(headers_of_all);
  server.set_payload_max_length(most_body);
  server.set_keep_alive_max_count(1'000'000);
  server.set_keep_alive_timeout(silence_seconds);
  server.set_read_timeout(silence_seconds);
  server.set_write_timeout(stalled_seconds);
  server.set_error_handler([state](const httplib::Request& request, httplib::Response& response) {
    state->complete(request, response);
  });
}

Server::~Server() {
  stop();
}

void Server::page(const std::string& path, Handler handler) {
  state_->server->Get(path, state_->without_body(std::move(handler), false));
}

void Server::get(const std::string& path, Handler handler) {
  state_->server->Get(path, state_->without_body(std::move(handler), true));
}

void Server::post(const std::string& path, Handler handler) {
  state_->server->Post(path, state_->with_body(std::move(handler)));
}

void Server::put(const std::string& path, Handler handler) {
  state_->server->Put(path, state_->with_body(std::move(handler)));
}

void Server::stream(const std::string& path, const std::string& type, Streaming streaming) {
  state_->server->Get(path, [state = state_.get(), type, streaming = std::move(streaming)](
                                const httplib::Request& request, httplib::Response& response) {
    state->begin_stream(request, type, streaming, response);
  });
}

int Server::start() {
  State& state = *state_;
  const std::string& address = state.options.address;
  int port = state.options.port;
  if (port == 0) {
    port = state.server->bind_to_any_port(address);
  } else if (!state.server->bind_to_port(address, port)) {
    port = -1;
  }
  if (port <= 0) {
    const std::string wanted = state.options.port == 0 ? "" : ":" + std::to_string(state.options.port);
    throw std::runtime_error("cannot listen at " + address + wanted + ": is it in use?");
  }
  state.port = port;
  state.rules.set_port(port);
  state.thread = std::thread([&state] { state.server->listen_after_bind(); });
  // Until then it could not be stopped.
  while (!state.server->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return port;
}

void Server::stop() noexcept {
  state_->stopping = true;
  state_->server->stop();
  if (state_->thread.joinable()) state_->thread.join();
}

}  // namespace host::live::http
