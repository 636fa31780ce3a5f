#include <qv/io/exr/order.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <span>
#include <string_view>
#include <tuple>

namespace qv::io::exr {

namespace {

// Names without their layer, in order. A layer with the parts of a vector has Y and Z among them.
constexpr std::array<std::string_view, 20> colors = {"R",    "Red",  "G",  "Green", "B",     "Blue", "Y",
                                                     "real", "imag", "A",  "Alpha", "AR",    "RA",   "AG",
                                                     "GA",   "AB",   "BA", "Z",     "Depth", "Zback"};
constexpr std::array<std::string_view, 21> vectors = {"R",  "Red", "G",    "Green", "B",  "Blue",  "X",
                                                      "Y",  "Z",   "real", "imag",  "A",  "Alpha", "AR",
                                                      "RA", "AG",  "GA",   "AB",    "BA", "Depth", "Zback"};

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool same_letters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

struct Name {
  std::string_view layer;  // with its dot
  std::string_view own;
};

Name split(std::string_view name) {
  const size_t dot = name.rfind('.');
  const size_t end = dot == std::string_view::npos ? 0 : dot + 1;
  return {name.substr(0, end), name.substr(end)};
}

// Of those without a place in the list: behind it.
size_t place(std::span<const std::string_view> list, std::string_view own) {
  const auto found =
      std::find_if(list.begin(), list.end(), [&](std::string_view each) { return same_letters(each, own); });
  return static_cast<size_t>(found - list.begin());
}

}  // namespace

std::vector<int> listed_order(const std::vector<Channel>& channels) {
  std::vector<int> order(channels.size());
  std::iota(order.begin(), order.end(), 0);
  const auto name = [&](int index) { return split(channels[static_cast<size_t>(index)].name); };
  std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return name(a).layer < name(b).layer; });
  for (auto begin = order.begin(); begin != order.end();) {
    const auto end =
        std::find_if(begin, order.end(), [&](int index) { return name(index).layer != name(*begin).layer; });
    const auto has = [&](std::string_view own) {
      return std::any_of(begin, end, [&](int index) { return same_letters(name(index).own, own); });
    };
    const bool vector = has("X") && (has("Y") || has("Z"));
    const auto rank = [&](int index) {
      const std::string_view own = name(index).own;
      return std::tuple(vector ? place(vectors, own) : place(colors, own), own);
    };
    std::stable_sort(begin, end, [&](int a, int b) { return rank(a) < rank(b); });
    begin = end;
  }
  return order;
}

}  // namespace qv::io::exr
