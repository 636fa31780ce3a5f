#include "host/base/byte_size.h"

#include <charconv>
#include <cmath>
#include <map>
#include <system_error>

namespace host {

std::optional<uint64_t> parse_byte_size(const std::string& text) {
  double amount = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), amount);
  if (error != std::errc()) return std::nullopt;
  const std::string unit(end, text.data() + text.size());
  static const std::map<std::string, int> powers = {
      {"", 0},    {"B", 0}, {"k", 1},  {"K", 1},   {"KB", 1}, {"KiB", 1}, {"M", 2},  {"MB", 2},
      {"MiB", 2}, {"G", 3}, {"GB", 3}, {"GiB", 3}, {"T", 4},  {"TB", 4},  {"TiB", 4}};
  const auto power = powers.find(unit);
  if (power == powers.end()) return std::nullopt;
  const double bytes = amount * std::pow(1024.0, power->second);
  if (!(bytes >= 1) || bytes > 1e18) return std::nullopt;
  return static_cast<uint64_t>(bytes);
}

}  // namespace host
