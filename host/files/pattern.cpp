#include "host/files/pattern.h"

#include <charconv>
#include <optional>
#include <system_error>

namespace host::files {
namespace {

struct FrameField {
  size_t begin = 0;
  size_t end = 0;
  size_t digits = 0;
};

// The field "%d" or "%0Nd" that starts at a percent sign.
std::optional<FrameField> percent_field(std::string_view name, size_t begin) {
  size_t at = begin + 1;
  size_t digits = 0;
  while (at < name.size() && name[at] >= '0' && name[at] <= '9' && digits < 100) {
    digits = digits * 10 + static_cast<size_t>(name[at++] - '0');
  }
  if (at >= name.size() || name[at] != 'd') return std::nullopt;
  return FrameField{begin, at + 1, digits};
}

std::optional<FrameField> find_field(std::string_view pattern) {
  const size_t folder_end = pattern.rfind('/');
  const size_t name_begin = folder_end == std::string_view::npos ? 0 : folder_end + 1;
  for (size_t at = pattern.size(); at-- > name_begin;) {
    if (pattern[at] == '#') {
      size_t begin = at;
      while (begin > name_begin && pattern[begin - 1] == '#') --begin;
      return FrameField{begin, at + 1, at + 1 - begin};
    }
    if (pattern[at] == '%') {
      if (const auto field = percent_field(pattern, at)) return field;
    }
  }
  return std::nullopt;
}

}  // namespace

bool has_view(std::string_view pattern) {
  return pattern.find("%V") != std::string_view::npos || pattern.find("%v") != std::string_view::npos;
}

std::string view_path(std::string_view pattern, std::string_view view) {
  size_t letter = 1;  // a letter beyond ASCII has several bytes
  while (letter < view.size() && (static_cast<unsigned char>(view[letter]) & 0xC0U) == 0x80U) ++letter;
  std::string path;
  for (size_t at = 0; at < pattern.size(); ++at) {
    const std::string_view field = pattern.substr(at, 2);
    if (field == "%V" || field == "%v") {
      path += field == "%V" ? view : view.substr(0, letter);
      ++at;
    } else {
      path += pattern[at];
    }
  }
  return path;
}

bool has_frame(std::string_view pattern) {
  return find_field(pattern).has_value();
}

std::string frame_path(std::string_view pattern, int64_t frame) {
  const auto field = find_field(pattern);
  if (!field) return std::string(pattern);
  std::string digits = std::to_string(frame);
  const bool negative = digits[0] == '-';
  if (negative) digits.erase(0, 1);
  if (digits.size() < field->digits) digits.insert(0, field->digits - digits.size(), '0');
  return std::string(pattern.substr(0, field->begin)) + (negative ? "-" : "") + digits +
         std::string(pattern.substr(field->end));
}

std::optional<int64_t> frame_of(std::string_view pattern, std::string_view name) {
  // Every run of digits is a candidate; the one that leads back to the name is the frame.
  for (size_t begin = 0; begin < name.size(); ++begin) {
    const bool digit = name[begin] >= '0' && name[begin] <= '9';
    const bool starts = begin == 0 || name[begin - 1] < '0' || name[begin - 1] > '9';
    if (!(digit && starts) && name[begin] != '-') continue;
    int64_t frame = 0;
    const auto result = std::from_chars(name.data() + begin, name.data() + name.size(), frame);
    if (result.ec == std::errc() && frame_path(pattern, frame) == name) return frame;
  }
  return std::nullopt;
}

}  // namespace host::files
