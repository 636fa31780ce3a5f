#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace qv::gpu {

// In the caller's own code and eight bytes at a time, the last of which may overlap: names are short,
// and a filter looks up dozens of them a frame.
struct NameHash {
  using is_transparent = void;
  size_t operator()(std::string_view name) const {
    const char* const text = name.data();
    const size_t n = name.size();
    if (n >= 8) {
      uint64_t hash = n;
      for (size_t i = 0; i + 8 < n; i += 8) hash = mixed(hash ^ word<uint64_t>(text + i));
      return mixed(hash ^ word<uint64_t>(text + n - 8));
    }
    if (n >= 4) return mixed(n ^ word<uint32_t>(text) ^ uint64_t{word<uint32_t>(text + n - 4)} << 29);
    if (n == 0) return 0;
    const uint64_t middle = word<uint8_t>(text + n / 2), end = word<uint8_t>(text + n - 1);
    return mixed(n ^ uint64_t{word<uint8_t>(text)} << 8 ^ middle << 16 ^ end << 24);
  }

 private:
  template <class Word>
  static Word word(const char* text) {
    Word result = 0;
    std::memcpy(&result, text, sizeof result);
    return result;
  }
  static uint64_t mixed(uint64_t hash) {
    hash *= 0xff51afd7ed558ccd;
    return hash ^ (hash >> 32);
  }
};

// A map from names, compared by bytes, that is searched with a string_view and without a copy of
// it. Values never move: a pointer to one is good until that name is erased.
template <class T>
using NameMap = std::unordered_map<std::string, T, NameHash, std::equal_to<>>;

// The value under `name`, null when there is none.
template <class T>
const T* find(const NameMap<T>& map, std::string_view name) {
  const auto at = map.find(name);
  return at == map.end() ? nullptr : &at->second;
}

// Puts `value` under `name`, over an earlier one if there is one. std::bad_alloc leaves the map as it was.
template <class T>
void assign(NameMap<T>& map, std::string_view name, T value) {
  const auto at = map.find(name);
  if (at == map.end()) {
    map.emplace(name, std::move(value));
  } else {
    at->second = std::move(value);
  }
}

}  // namespace qv::gpu
