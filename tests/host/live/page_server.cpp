#include "tests/host/live/page_server.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <utility>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace live {
namespace {

constexpr auto patience = std::chrono::seconds(30);

httplib::Headers with_token(const std::string& token) {
  return {{"Authorization", "Bearer " + token}};
}

// Whether an answer has all of the body that its head speaks of.
bool is_whole(const std::string& answer) {
  const size_t head = answer.find("\r\n\r\n"), length = answer.find("Content-Length: ");
  return head != std::string::npos && length < head &&
         answer.size() >= head + 4 + std::stoul(answer.substr(length + 16));
}

}  // namespace

std::string shot_of(const std::string& nodes) {
  return R"({"format": {"width": 16, "height": 9}, "frames": "1-4", "nodes": [)" + nodes + "]} // end\n";
}

const std::string keyed = R"({"name": "ground", "type": "constant",
  "knobs": {"color": [{"keys": [[1, 0, "linear"], [3, 1]]}, 0.5, 0.25, 1]}},
  {"name": "off", "type": "blur", "inputs": "ground", "disabled": true},
  {"name": "soft", "type": "blur", "inputs": "off", "knobs": {"size": 2}})";

Listening::Listening(int port, const std::string& path, const httplib::Headers& headers)
    : client_(std::make_unique<httplib::Client>("127.0.0.1", port)) {
  client_->set_read_timeout(60);
  thread_ = std::thread([this, path, headers] {
    client_->Get(path, headers, [this](const char* data, size_t size) {
      const std::lock_guard lock(mutex_);
      bytes_.append(data, size);
      changed_.notify_all();
      return !enough_;
    });
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
  });
}

Listening::~Listening() {
  {
    const std::lock_guard lock(mutex_);
    enough_ = true;
  }
  client_->stop();
  thread_.join();
}

bool Listening::wait(const std::function<bool()>& done) {
  std::unique_lock lock(mutex_);
  const bool in_time = changed_.wait_for(lock, patience, done);
  EXPECT_TRUE(in_time) << "nothing more came behind " << bytes_;
  return in_time;
}

std::string Listening::take(size_t bytes) {
  if (!wait([&] { return bytes_.size() >= bytes; })) throw std::runtime_error("too few bytes");
  const std::lock_guard lock(mutex_);
  std::string taken = bytes_.substr(0, bytes);
  bytes_.erase(0, bytes);
  return taken;
}

std::string Listening::take_line() {
  if (!wait([&] { return bytes_.find('\n') != std::string::npos; })) throw std::runtime_error("no line");
  size_t end = 0;
  {
    const std::lock_guard lock(mutex_);
    end = bytes_.find('\n');
  }
  std::string line = take(end + 1);
  line.pop_back();
  return line;
}

bool Listening::ended() {
  return wait([&] { return ended_; });
}

Json Listening::event(const std::string& name, const std::function<bool(const Json&)>& wanted) {
  for (;;) {
    const std::string line = take_line();
    if (line != "event: " + name) continue;
    Json data = Json::parse(take_line().substr(std::string("data: ").size()));
    if (!wanted || wanted(data)) return data;
  }
}

PageServer::PageServer(const std::string& text, host::live::ServerOptions options) {
  support::write_bytes(file, text);
  options.file = file;
  options.device.kind = host::gpu::DeviceChoice::Kind::software;
  options.program = QUORVEL_PROGRAM;
  options.render_words = {"--gpu", "software"};
  options.log = [this](const std::string& line) {
    const std::lock_guard lock(mutex_);
    refused_.push_back(line);
  };
  server_ = std::make_unique<host::live::Server>(std::move(options));
  const std::string address = server_->start();
  const std::string front = "http://127.0.0.1:";
  EXPECT_TRUE(address.starts_with(front)) << address;
  port = std::stoi(address.substr(front.size()));
  token = address.substr(address.find('#') + 1);
  EXPECT_EQ(token.size(), 32U);
  client_ = std::make_unique<httplib::Client>("127.0.0.1", port);
  client_->set_read_timeout(60);
  client_->set_keep_alive(true);
  client_->set_tcp_nodelay(true);
}

Answer PageServer::send(const std::string& method, const std::string& path, const Json& body) {
  httplib::Request request;
  request.method = method;
  request.path = path;
  request.headers = with_token(token);
  if (!body.is_null()) request.body = body.dump();
  const httplib::Result result = client_->send(request);
  if (!result) throw std::runtime_error(path + ": " + httplib::to_string(result.error()));
  Answer answer{result->status, Json::parse(result->body, nullptr, false), result->headers};
  if (answer.body.is_discarded()) answer.body = result->body;
  return answer;
}

std::unique_ptr<Listening> PageServer::listen(const std::string& path) {
  return std::make_unique<Listening>(port, path, with_token(token));
}

std::string PageServer::send_raw(const std::string& bytes) const {
  const int connection = ::socket(AF_INET, SOCK_STREAM, 0);
  const timeval most{60, 0};
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &most, sizeof most);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  // Beside the reading: a server may have answered before it has read everything.
  std::thread writing([&] {
    for (size_t sent = 0; sent < bytes.size();) {
      const ssize_t n = ::send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) return;
      sent += static_cast<size_t>(n);
    }
  });
  std::string answer;
  while (!is_whole(answer)) {
    std::array<char, 4096> some{};
    const ssize_t n = ::recv(connection, some.data(), some.size(), 0);
    if (n <= 0) break;
    answer.append(some.data(), static_cast<size_t>(n));
  }
  ::shutdown(connection, SHUT_RDWR);
  writing.join();
  ::close(connection);
  return answer;
}

std::vector<std::string> PageServer::refused() {
  const std::lock_guard lock(mutex_);
  return std::exchange(refused_, {});
}

}  // namespace live
