#include "host/report/difference_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

namespace host::report {
namespace {

std::string number(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.6g", value);
  return text.data();
}

std::string padded(const std::string& text, size_t width) {
  return text + std::string(width > text.size() ? width - text.size() : 0, ' ');
}

std::string lacking(const std::vector<std::string>& names, const std::string& file) {
  if (names.empty()) return {};
  std::string text = "  only in " + file + ":";
  for (const std::string& name : names) text += " " + name;
  return text + "\n";
}

std::string channel_text(const decode::ChannelDifference& channel, size_t width) {
  if (channel.largest == 0) return "  " + padded(channel.name, width) + "  the same\n";
  return "  " + padded(channel.name, width) + "  largest " + number(channel.largest) + " at " +
         std::to_string(channel.x) + ", " + std::to_string(channel.y) + "; mean " + number(channel.mean) +
         "; " + std::to_string(channel.over) + " of " + std::to_string(channel.pixels) + " pixels over\n";
}

}  // namespace

std::string difference_text(const std::string& first, const std::string& second,
                            const decode::Difference& difference) {
  const auto& channels = difference.channels;
  const bool equal = difference.same() && std::all_of(channels.begin(), channels.end(),
                                                      [](const auto& each) { return each.largest == 0; });
  if (equal) return first + " and " + second + " are the same\n";
  std::string text = first + " and " + second + (difference.same() ? " are near enough\n" : " differ\n");
  if (!difference.formats.empty()) text += "  formats " + difference.formats + "\n";
  text += lacking(difference.only_in_first, first) + lacking(difference.only_in_second, second);
  size_t width = 0;
  for (const auto& channel : channels) width = std::max(width, channel.name.size());
  for (const auto& channel : channels) text += channel_text(channel, width);
  return text;
}

}  // namespace host::report
