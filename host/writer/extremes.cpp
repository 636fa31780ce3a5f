#include "host/writer/extremes.h"

namespace host::writer {
namespace {

std::string pixels_text(int64_t count, const char* one, const char* many) {
  return count == 0 ? "" : std::to_string(count) + (count == 1 ? one : many);
}

}  // namespace

Extremes& Extremes::operator+=(const Extremes& more) {
  held += more.held;
  infinite += more.infinite;
  not_a_number += more.not_a_number;
  return *this;
}

std::string notice_of(const Extremes& found, bool integers) {
  std::string text;
  const auto add = [&text](const std::string& more) {
    if (!more.empty()) text += (text.empty() ? "" : "; ") + more;
  };
  add(pixels_text(found.held, " pixel lies beyond 65504, the most that a half holds, and is held there",
                  " pixels lie beyond 65504, the most that a half holds, and are held there"));
  if (!integers) add(pixels_text(found.infinite, " pixel is infinite", " pixels are infinite"));
  const std::string nan =
      pixels_text(found.not_a_number, " pixel is not a number", " pixels are not a number");
  add(nan.empty() || !integers ? nan : nan + ", stored as 0");
  return text;
}

}  // namespace host::writer
