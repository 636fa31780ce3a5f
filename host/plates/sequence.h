#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host::plates {

// The folder in which the files of a pattern lie.
std::string folder_of(const std::string& pattern);

// The frames for which a file of this pattern stands, in order. Reads the folder; one that cannot be read
// has none. Thread-safe.
std::vector<int64_t> frames_on_disk(const std::string& pattern);

// That of some frames, which stand in order, which is nearest to this one: the earlier of two.
std::optional<int64_t> nearest(const std::vector<int64_t>& frames, int64_t frame);

}  // namespace host::plates
