#include <qv/io/claim.h>
#include <qv/io/pixel_memory.h>

#include <algorithm>
#include <fstream>
#include <limits>

namespace qv::io {

namespace {

constexpr uint64_t believed = uint64_t{1} << 30;

// The number behind `name` in a file of names and numbers.
std::optional<uint64_t> number_in(const std::string& path, const std::string& name) {
  std::ifstream file(path);
  std::string word;
  uint64_t number = 0;
  while (file >> word)
    if (word == name && file >> number) return number;
  return std::nullopt;
}

// What the tightest control group above the process leaves.
std::optional<uint64_t> left_in_groups() {
  std::ifstream file("/proc/self/cgroup");
  std::optional<uint64_t> left;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with("0::/")) continue;
    for (std::string group = line.substr(3); !group.empty(); group.resize(group.rfind('/'))) {
      const std::string folder = "/sys/fs/cgroup" + group + "/";
      uint64_t limit = 0;
      if (!(std::ifstream(folder + "memory.max") >> limit)) continue;
      const uint64_t held = number_in(folder + "memory.stat", "anon").value_or(0);
      left = std::min(left.value_or(limit), limit - std::min(limit, held));
    }
  }
  return left;
}

}  // namespace

std::optional<uint64_t> available_memory() {
  constexpr uint64_t kilobyte = 1024;
  const auto free = number_in("/proc/meminfo", "MemAvailable:");
  if (!free) return std::nullopt;
  const uint64_t system = (*free + number_in("/proc/meminfo", "SwapFree:").value_or(0)) * kilobyte;
  return std::min(system, left_in_groups().value_or(system));
}

bool fits_memory(uint64_t bytes) {
  return bytes <= believed || bytes <= available_memory().value_or(bytes);
}

// The others have no bound worth the name; black pixels in dwab reach 42,600.
std::optional<uint64_t> exr_ratio(std::string_view compression) {
  if (compression == "none") return 1;
  if (compression == "rle") return 64;                             // a run of 128 in two bytes
  if (compression == "zip" || compression == "zips") return 1032;  // deflate: 258 bytes in two bits
  if (compression == "pxr24") return 1376;                         // that of three bytes out of four
  return std::nullopt;
}

std::string refusal(const Claim& claim, const FileAttributes& file) {
  const auto floats = float_count(claim.width, claim.height, claim.channels);
  if (!floats) return "out of memory";
  const uint64_t bytes = uint64_t{*floats} * sizeof(float);
  // OpenImageIO reads through a buffer of up to 256 rows, whatever the height.
  if (std::max(bytes, 256 * claim.row_bytes) <= believed) return {};
  const std::string image =
      "an image of " + std::to_string(claim.width) + " x " + std::to_string(claim.height) + " pixels";
  const uint64_t stored = claim.row_bytes * static_cast<uint64_t>(claim.height);
  if (file.found && claim.ratio && stored / *claim.ratio > file.bytes)
    return image + " cannot lie in " + std::to_string(file.bytes) + " bytes of this compression";
  if (!fits_memory(bytes)) return image + " is larger than the memory that is free";
  return {};
}

}  // namespace qv::io
