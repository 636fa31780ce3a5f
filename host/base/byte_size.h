#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace host {

// "4G", "512M", "1.5GiB", "1000000": bytes, the letters standing for powers of 1024. Nothing for what is no
// such text, and beyond 10^18 bytes.
std::optional<uint64_t> parse_byte_size(const std::string& text);

}  // namespace host
