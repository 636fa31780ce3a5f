#include "host/files/atomic_file.h"

#include "host/files/path.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
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

// Who writes a part file, as its name tells: on a disk that several machines share, a process number
// alone may be anybody's.
struct Writer {
  std::string host;  // without dots
  std::string boot;  // of the machine's start and its space of process numbers
  pid_t process = 0;
};

std::string first_line(const char* path) {
  std::ifstream stream(path);
  std::string line;
  std::getline(stream, line);
  return line;
}

// Letters, digits and dashes alone, so that dots part the fields of a name.
std::string field(std::string text, size_t most) {
  for (char& c : text) {
    const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (!plain) c = '-';
  }
  return text.empty() ? "-" : text.substr(0, most);
}

Writer this_writer() {
  std::array<char, 256> host{};
  if (::gethostname(host.data(), host.size() - 1) != 0) host = {};
  // Two containers of one machine count their processes apart.
  struct stat space {};
  if (::stat("/proc/self/ns/pid", &space) != 0) space = {};
  const std::string boot = field(first_line("/proc/sys/kernel/random/boot_id"), 8);
  return {field(host.data(), 64), boot + "-" + std::to_string(space.st_ino), ::getpid()};
}

// Nothing where the name is no part file's.
std::optional<Writer> writer_of(std::string name) {
  if (!name.starts_with('.') || !name.ends_with(ending)) return std::nullopt;
  name.resize(name.size() - ending.size());
  std::array<std::string, 3> fields;
  for (auto at = fields.rbegin(); at != fields.rend(); ++at) {
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return std::nullopt;
    *at = name.substr(dot + 1);
    name.resize(dot);
  }
  Writer writer{fields[0], fields[1], 0};
  const char* const end = fields[2].data() + fields[2].size();
  const auto [stop, error] = std::from_chars(fields[2].data(), end, writer.process);
  const bool whole = error == std::errc() && stop == end && writer.process > 0;
  // "12345678-4026531836": what no other program's part files have there.
  const bool ours = writer.boot.size() > 9 && writer.boot[8] == '-';
  return whole && ours ? std::optional(writer) : std::nullopt;
}

bool is_alive(pid_t process) {
  return ::kill(process, 0) == 0 || errno != ESRCH;
}

// Whether the machine has been started anew since.
bool is_of_an_earlier_start(const Writer& writer, const Writer& self) {
  return writer.host == self.host && writer.boot.substr(0, 8) != self.boot.substr(0, 8);
}

bool is_leftover(const Writer& writer, const Writer& self, const fs::path& path) {
  if (writer.host == self.host && writer.boot == self.boot) return !is_alive(writer.process);
  if (is_of_an_earlier_start(writer, self)) return true;
  std::error_code error;
  const auto written = fs::last_write_time(path, error);
  return !error && written < fs::file_time_type::clock::now() - std::chrono::hours(24);
}

// ".NAME.HOST.BOOT.PID.part", with so much of the name as a folder has room for.
std::string part_name(const std::string& name) {
  constexpr size_t longest = 255;
  const Writer self = this_writer();
  const std::string rest =
      "." + self.host + "." + self.boot + "." + std::to_string(self.process) + std::string(ending);
  return "." + name.substr(0, longest - 1 - rest.size()) + rest;
}

}  // namespace

void write_whole(const fs::path& name, std::span<const unsigned char> content) {
  if (is_stream(name)) return write_to_stream(name, content);
  const fs::path path = followed(name);
  const fs::path folder = path.parent_path();
  std::error_code error;
  if (!folder.empty()) fs::create_directories(folder, error);
  if (error) throw std::runtime_error("cannot make the folder " + folder.string() + ": " + error.message());
  PartFile part(folder / part_name(path.filename().string()));
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
  const Writer self = this_writer();
  for (const auto& entry : fs::directory_iterator(folder.empty() ? "." : folder, error)) {
    const auto writer = writer_of(entry.path().filename().string());
    if (!writer || !is_leftover(*writer, self, entry.path())) continue;
    std::error_code ignored;
    removed += fs::remove(entry.path(), ignored) ? 1 : 0;
  }
  return removed;
}

}  // namespace host::files
