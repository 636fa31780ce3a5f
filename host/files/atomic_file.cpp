#include "host/files/atomic_file.h"

#include "host/files/path.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <ctime>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace host::files {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view ending = ".part";

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

bool is_stream(const fs::path& path) {
  std::error_code ignored;
  return fs::is_other(fs::status(path, ignored));
}

void write_all(int descriptor, std::span<const unsigned char> content) {
  while (!content.empty()) {
    const ssize_t count = ::write(descriptor, content.data(), content.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("cannot write");
    content = content.subspan(static_cast<size_t>(count));
  }
}

// Keeps this thread's SIGPIPE back, so that a reader who leaves is an error of the write.
class PipeSignalHeld {
 public:
  PipeSignalHeld() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~PipeSignalHeld() {
    constexpr timespec at_once{};
    while (sigtimedwait(&pipe_, nullptr, &at_once) >= 0) continue;
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  PipeSignalHeld(const PipeSignalHeld&) = delete;
  PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;

 private:
  sigset_t pipe_{};
  sigset_t before_{};
};

void write_to_stream(const fs::path& path, std::span<const unsigned char> content) {
  const PipeSignalHeld held;
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (descriptor < 0) fail("cannot be opened");
  try {
    write_all(descriptor, content);
  } catch (...) {
    ::close(descriptor);
    throw;
  }
  if (::close(descriptor) != 0) fail("cannot write");
}

// An open file that disappears again unless it is kept.
class PartFile {
 public:
  explicit PartFile(fs::path path) : path_(std::move(path)) {
    descriptor_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor_ < 0) fail("cannot create a file in " + path_.parent_path().string());
  }
  ~PartFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
    if (!kept_) ::unlink(path_.c_str());
  }
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  void write(std::span<const unsigned char> content) {
    write_all(descriptor_, content);
  }

  // The name must not stand before the content does: a machine that loses power would keep an
  // empty file under it.
  void keep_as(const fs::path& name) {
    if (::fsync(descriptor_) != 0) fail("cannot write");
    const int descriptor = std::exchange(descriptor_, -1);
    if (::close(descriptor) != 0) fail("cannot write");
    if (::rename(path_.c_str(), name.c_str()) != 0) fail("cannot rename");
    kept_ = true;
  }

 private:
  fs::path path_;
  int descriptor_ = -1;
  bool kept_ = false;
};

// The process that a part file's name speaks of, 0 where it is no part file.
pid_t writer_of(const std::string& name) {
  if (name.size() <= ending.size() || name.front() != '.' || !name.ends_with(ending)) return 0;
  const size_t end = name.size() - ending.size();
  const size_t dot = name.rfind('.', end - 1);
  if (dot == std::string::npos || dot == 0) return 0;
  pid_t process = 0;
  const auto [stop, error] = std::from_chars(name.data() + dot + 1, name.data() + end, process);
  return error == std::errc() && stop == name.data() + end && process > 0 ? process : 0;
}

bool is_alive(pid_t process) {
  return ::kill(process, 0) == 0 || errno != ESRCH;
}

}  // namespace

void write_whole(const fs::path& name, std::span<const unsigned char> content) {
  if (is_stream(name)) return write_to_stream(name, content);
  const fs::path path = followed(name);
  const fs::path folder = path.parent_path();
  std::error_code error;
  if (!folder.empty()) fs::create_directories(folder, error);
  if (error) throw std::runtime_error("cannot make the folder " + folder.string() + ": " + error.message());
  PartFile part(folder /
                ("." + path.filename().string() + "." + std::to_string(::getpid()) + std::string(ending)));
  part.write(content);
  part.keep_as(path);
}

bool would_replace(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored) && !is_stream(path);
}

int remove_leftovers(const fs::path& folder) {
  int removed = 0;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder.empty() ? "." : folder, error)) {
    const pid_t process = writer_of(entry.path().filename().string());
    if (process == 0 || is_alive(process)) continue;
    std::error_code ignored;
    removed += fs::remove(entry.path(), ignored) ? 1 : 0;
  }
  return removed;
}

}  // namespace host::files
