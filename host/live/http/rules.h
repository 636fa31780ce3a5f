#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host::live::http {

// Who may ask the server anything. A page of somebody else's must not reach it through the browser of who
// runs it: neither by its own requests (Origin), nor by a name that it has made to mean this machine (Host).

// 128 bits from the system's generator, as 32 digits. Throws std::system_error.
std::string random_token();

// Whether two texts are equal, in a time that says nothing of where they differ.
bool equal_in_constant_time(std::string_view a, std::string_view b);

class Rules {
 public:
  // names: what this machine may be called by, as in addresses ("127.0.0.1", "[::1]", "render7"), any case.
  Rules(std::vector<std::string> names, bool secure, std::string token);

  // Once the port is known.
  void set_port(int port) {
    port_ = port;
  }

  // Why a request is refused, "" when it is not: by its headers Host and Origin, "" where it has none.
  std::string refusal(std::string_view host, std::string_view origin) const;

  // Whether the header Authorization holds the token.
  bool authorized(std::string_view authorization) const;

 private:
  bool is_ours(std::string_view host) const;

  std::vector<std::string> names_;
  std::string scheme_;
  std::string expected_;
  int port_ = 0;
};

}  // namespace host::live::http
