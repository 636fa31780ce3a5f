#include "host/live/http/rules.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>

#include <sys/random.h>

namespace host::live::http {
namespace {

std::string lower(std::string_view text) {
  std::string result(text);
  const auto to_lower = [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); };
  std::transform(result.begin(), result.end(), result.begin(), to_lower);
  return result;
}

}  // namespace

std::string random_token() {
  std::array<unsigned char, 16> bytes{};
  // So few come at once, or not at all.
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
    throw std::system_error(errno, std::generic_category(), "random numbers");
  constexpr std::string_view digits = "0123456789abcdef";
  std::string token;
  for (const unsigned char byte : bytes) {
    token += digits[byte >> 4U];
    token += digits[byte & 15U];
  }
  return token;
}

bool equal_in_constant_time(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned char difference = 0;
  for (size_t i = 0; i < a.size(); ++i) difference = static_cast<unsigned char>(difference | (a[i] ^ b[i]));
  return difference == 0;
}

Rules::Rules(std::vector<std::string> names, bool secure, std::string token)
    : names_(std::move(names)),
      scheme_(secure ? "https://" : "http://"),
      expected_("Bearer " + std::move(token)) {
  for (std::string& name : names_) name = lower(name);
}

std::string Rules::refusal(std::string_view host, std::string_view origin) const {
  if (!is_ours(host)) return "Host \"" + std::string(host) + "\"";
  if (origin.empty()) return "";
  if (origin.starts_with(scheme_) && is_ours(origin.substr(scheme_.size()))) return "";
  return "Origin \"" + std::string(origin) + "\"";
}

bool Rules::is_ours(std::string_view host) const {
  const std::string port = ":" + std::to_string(port_);
  const std::string given = lower(host);
  return std::any_of(names_.begin(), names_.end(),
                     [&](const std::string& name) { return given == name + port; });
}

bool Rules::authorized(std::string_view authorization) const {
  return equal_in_constant_time(authorization, expected_);
}

}  // namespace host::live::http
