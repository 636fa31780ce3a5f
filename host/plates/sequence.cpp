#include "host/plates/sequence.h"

#include "host/files/pattern.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace host::plates {

namespace fs = std::filesystem;

std::string folder_of(const std::string& pattern) {
  const fs::path path(pattern);
  return path.has_parent_path() ? path.parent_path().string() : ".";
}

std::vector<int64_t> frames_on_disk(const std::string& pattern) {
  const std::string name = fs::path(pattern).filename().string();
  std::vector<int64_t> frames;
  std::error_code error;
  for (fs::directory_iterator at(folder_of(pattern), error), end; !error && at != end; at.increment(error)) {
    if (const auto frame = files::frame_of(name, at->path().filename().string())) frames.push_back(*frame);
  }
  std::sort(frames.begin(), frames.end());
  return frames;
}

std::optional<int64_t> nearest(const std::vector<int64_t>& frames, int64_t frame) {
  if (frames.empty()) return std::nullopt;
  const auto next = std::lower_bound(frames.begin(), frames.end(), frame);
  if (next == frames.begin()) return *next;
  if (next == frames.end()) return frames.back();
  // Frame numbers may lie as far apart as 64 bits reach.
  const auto away = [frame](int64_t other) {
    return frame < other ? static_cast<uint64_t>(other) - static_cast<uint64_t>(frame)
                         : static_cast<uint64_t>(frame) - static_cast<uint64_t>(other);
  };
  return away(*(next - 1)) <= away(*next) ? *(next - 1) : *next;
}

}  // namespace host::plates
