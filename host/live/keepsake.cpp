#include "host/live/keepsake.h"

#include "host/live/http/server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <new>
#include <string_view>
#include <system_error>

#include <sys/mman.h>
#include <unistd.h>

namespace host::live {
namespace {

bool write_at(int file, std::string_view text, size_t at) {
  while (!text.empty()) {
    const ssize_t written = ::pwrite(file, text.data(), text.size(), static_cast<off_t>(at));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
    at += static_cast<size_t>(written);
  }
  return true;
}

std::optional<std::string> read_at(int file, size_t size, size_t at) {
  std::string text(size, '\0');
  for (size_t got = 0; got < size;) {
    const ssize_t n = ::pread(file, text.data() + got, size - got, static_cast<off_t>(at + got));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::nullopt;
    got += static_cast<size_t>(n);
  }
  return text;
}

[[noreturn]] void fail() {
  throw std::system_error(errno, std::generic_category(), "memory for what outlives a crash");
}

}  // namespace

struct Keepsake::Shared {
  struct Slot {
    int64_t version = 0;
    size_t text = 0, known = 0;  // bytes, one after the other
  };
  std::atomic<bool> image = false;
  std::atomic<int> port = 0;
  std::array<char, 64> token{};
  std::atomic<int> whole = -1;  // the slot that can be read
  std::array<Slot, 2> slots;

  static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
                "processes share them");
};

struct Keepsake::State {
  Shared* shared = nullptr;
  std::array<int, 2> files = {-1, -1};  // the slots' texts

  State() {
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) fail();
    shared = new (memory) Shared;
    for (int& file : files) {
      file = memfd_create("composition", MFD_CLOEXEC);
      if (file >= 0) continue;
      const int error = errno;
      release();
      errno = error;
      fail();
    }
  }
  ~State() {
    release();
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

 private:
  void release() {
    munmap(shared, sizeof(Shared));
    for (const int file : files) {
      if (file >= 0) ::close(file);
    }
  }
};

Keepsake::Keepsake() : state_(std::make_unique<State>()) {}

Keepsake::~Keepsake() = default;

void Keepsake::keep(const Address& address) {
  Shared& shared = *state_->shared;
  const size_t length = std::min(address.token.size(), shared.token.size() - 1);
  std::copy_n(address.token.begin(), length, shared.token.begin());
  shared.port = address.port;  // last: it says that both are there
}

void Keepsake::keep(const Document::Kept& document) {
  Shared& shared = *state_->shared;
  if (std::max(document.text.size(), document.known.size()) > http::Server::most_body) {
    shared.whole = -1;
    return;
  }
  const int next = shared.whole == 0 ? 1 : 0;
  const int file = state_->files.at(static_cast<size_t>(next));
  const size_t size = document.text.size() + document.known.size();
  if (!write_at(file, document.text, 0) || !write_at(file, document.known, document.text.size())) return;
  if (ftruncate(file, static_cast<off_t>(size)) != 0) return;
  shared.slots.at(static_cast<size_t>(next)) = {document.version, document.text.size(),
                                                document.known.size()};
  shared.whole = next;
}

void Keepsake::note_image() {
  state_->shared->image = true;
}

void Keepsake::forget_image() {
  state_->shared->image = false;
}

bool Keepsake::gave_image() const {
  return state_->shared->image;
}

std::optional<Keepsake::Address> Keepsake::address() const {
  const Shared& shared = *state_->shared;
  const int port = shared.port;
  if (port == 0) return std::nullopt;
  return Address{port, shared.token.data()};
}

std::optional<Document::Kept> Keepsake::document() const {
  const Shared& shared = *state_->shared;
  const int whole = shared.whole;
  if (whole < 0) return std::nullopt;
  const Shared::Slot& slot = shared.slots.at(static_cast<size_t>(whole));
  const int file = state_->files.at(static_cast<size_t>(whole));
  auto text = read_at(file, slot.text, 0), known = read_at(file, slot.known, slot.text);
  if (!text || !known) return std::nullopt;
  return Document::Kept{slot.version, std::move(*text), std::move(*known)};
}

}  // namespace host::live
