#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace qv::gpu {

struct NameHash {
  using is_transparent = void;
  size_t operator()(std::string_view name) const {
    return std::hash<std::string_view>{}(name);
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

// Puts a copy of `value` under `name`, over an earlier one if there is one.
template <class T>
void assign(NameMap<T>& map, std::string_view name, const T& value) {
  const auto at = map.find(name);
  if (at == map.end()) {
    map.emplace(name, value);
  } else {
    at->second = value;
  }
}

}  // namespace qv::gpu
