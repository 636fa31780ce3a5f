#include "host/report/printable.h"

#include <array>
#include <cstdio>
#include <streambuf>

#include <unistd.h>

namespace host::report {
namespace {

void add_escaped(std::string& text, unsigned char byte) {
  std::array<char, 5> escaped{};
  std::snprintf(escaped.data(), escaped.size(), "\\x%02x", byte);
  text += escaped.data();
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
    if ((byte < 0x20 && byte != '\n') || byte == 0x7f) {
      add_escaped(shown, byte);
    } else if (byte == 0xc2 && next >= 0x80 &&
               next < 0xa0) {  // the control characters of UTF-8's second byte
      add_escaped(shown, next);
      ++i;
    } else {
      shown += text[i];
    }
  }
  return shown;
}

class TerminalGuard::Buffer final : public std::streambuf {
 public:
  explicit Buffer(std::streambuf* bare) : bare_(bare) {}

  std::streambuf* bare() const {
    return bare_;
  }

 private:
  std::streamsize xsputn(const char* text, std::streamsize count) override {
    const std::string shown = printable({text, static_cast<size_t>(count)});
    const auto size = static_cast<std::streamsize>(shown.size());
    return bare_->sputn(shown.data(), size) == size ? count : 0;
  }
  int_type overflow(int_type byte) override {
    const char text = traits_type::to_char_type(byte);
    return xsputn(&text, 1) == 1 ? byte : traits_type::eof();
  }
  int sync() override {
    return bare_->pubsync();
  }

  std::streambuf* bare_;
};

TerminalGuard::TerminalGuard(std::ostream& stream, int descriptor) : stream_(stream), bare_(stream.rdbuf()) {
  if (isatty(descriptor) == 0) return;
  guarded_ = std::make_unique<Buffer>(bare_);
  stream_.rdbuf(guarded_.get());
}

TerminalGuard::~TerminalGuard() {
  stream_.rdbuf(bare_);
}

std::streambuf* bare_buffer(const std::ostream& stream) {
  const auto* const guarded = dynamic_cast<const TerminalGuard::Buffer*>(stream.rdbuf());
  return guarded ? guarded->bare() : stream.rdbuf();
}

}  // namespace host::report
