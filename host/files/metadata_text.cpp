#include "host/files/metadata.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <system_error>
#include <utility>

namespace host::files {
namespace {

// Where the decimal digits of a time code lie in its first word: hours, minutes, seconds, frames; how many
// bits the tens have.
struct Digits {
  unsigned shift, tens;
};
constexpr std::array<Digits, 4> time_digits = {{{24, 2}, {16, 3}, {8, 3}, {0, 2}}};
constexpr uint32_t drop_frame = 1U << 6U;

std::string time_text(uint32_t word) {
  std::string text;
  for (size_t i = 0; i < time_digits.size(); ++i) {
    const uint32_t digits = word >> time_digits[i].shift;
    const uint32_t tens = digits >> 4U & ((1U << time_digits[i].tens) - 1);
    if (i > 0) text += i == 3 && (word & drop_frame) != 0 ? ';' : ':';
    text += static_cast<char>('0' + tens);
    text += static_cast<char>('0' + (digits & 15U));
  }
  return text;
}

std::optional<uint32_t> time_word(std::string_view text) {
  if (text.size() != 11) return std::nullopt;
  constexpr std::array<int, 4> most = {23, 59, 59, 29};
  uint32_t word = text[8] == ';' ? drop_frame : 0;
  for (size_t i = 0; i < time_digits.size(); ++i) {
    const char tens = text[i * 3], units = text[i * 3 + 1];
    const char behind = i < 3 ? text[i * 3 + 2] : ':';
    if (tens < '0' || tens > '9' || units < '0' || units > '9') return std::nullopt;
    if (behind != ':' && !(i == 2 && behind == ';')) return std::nullopt;
    if ((tens - '0') * 10 + units - '0' > most[i]) return std::nullopt;
    const auto digits = static_cast<uint32_t>((tens - '0') * 16 + units - '0');
    word |= digits << time_digits[i].shift;
  }
  return word;
}

std::string number_text(double value, char kind) {
  std::array<char, 400> digits{};
  char* const begin = digits.data();
  char* const end = begin + digits.size();
  const auto done = kind == 'd'   ? std::to_chars(begin, end, value)
                    : kind == 'f' ? std::to_chars(begin, end, static_cast<float>(value))
                                  : std::to_chars(begin, end, static_cast<int64_t>(value));
  return {begin, done.ptr};
}

std::optional<std::vector<double>> numbers_in(std::string_view text, char separator) {
  std::vector<double> numbers;
  while (true) {
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) return std::nullopt;
    numbers.push_back(value);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    if (text.empty()) return numbers;
    if (text.front() != separator) return std::nullopt;
    text.remove_prefix(1);
  }
}

}  // namespace

std::string text_of(const Metadatum& entry) {
  const auto kinds = numbers_of_type(entry.type);
  if (!kinds && entry.type != "string" && entry.type != "stringvector") {
    return "(" + entry.type + ", " + std::to_string(entry.texts.empty() ? 0 : entry.texts[0].size()) +
           " bytes)";
  }
  std::string text;
  for (const std::string& each : entry.texts) text += (text.empty() ? "" : ", ") + each;
  if (!kinds || !is_sound(entry)) return text;
  if (entry.type == "timecode") return time_text(static_cast<uint32_t>(entry.numbers[0]));
  for (size_t i = 0; i < entry.numbers.size(); ++i) {
    if (i > 0) text += entry.type == "rational" ? "/" : ", ";
    text += number_text(entry.numbers[i], (*kinds)[kinds->front() == '*' ? 1 : i]);
  }
  return text;
}

std::optional<Metadatum> from_text(std::string name, std::string_view type, std::string_view text) {
  Metadatum entry{std::move(name), std::string(type), {}, {}};
  if (type == "string" || type == "stringvector") {
    entry.texts.emplace_back(text);
    return entry;
  }
  if (type == "timecode") {
    const auto word = time_word(text);
    if (!word) return std::nullopt;
    entry.numbers = {static_cast<double>(*word), 0};
    return entry;
  }
  auto numbers = numbers_in(text, type == "rational" ? '/' : ',');
  if (!numbers || !numbers_of_type(type)) return std::nullopt;
  if (type == "rational" && numbers->size() == 1) numbers->push_back(1);
  entry.numbers = std::move(*numbers);
  return is_sound(entry) ? std::optional(std::move(entry)) : std::nullopt;
}

Metadatum from_text(std::string name, std::string text) {
  if (const std::string_view type = type_of_name(name); !type.empty()) {
    if (auto entry = from_text(name, type, text)) return std::move(*entry);
  }
  return {std::move(name), "string", {}, {std::move(text)}};
}

}  // namespace host::files
