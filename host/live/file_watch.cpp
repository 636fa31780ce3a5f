#include "host/live/file_watch.h"

#include "host/files/path.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace host::live {
namespace fs = std::filesystem;

struct FileWatch::State {
  State(const fs::path& file, std::function<void()> tell) : changed(std::move(tell)) {
    // Not the file: editors put another one under its name.
    const fs::path absolute = fs::absolute(file);
    for (const fs::path& each : {absolute, files::followed(absolute)}) {
      names.insert(each.filename().string());
      inotify_add_watch(watch, each.parent_path().c_str(),
                        IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR);
    }
    thread = std::thread([this] { run(); });
  }

  ~State() {
    const uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(end, &one, sizeof one);
    thread.join();
    ::close(watch);
    ::close(end);
  }

  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void run() {
    for (;;) {
      std::array<pollfd, 2> waited{pollfd{watch, POLLIN, 0}, pollfd{end, POLLIN, 0}};
      if (::poll(waited.data(), waited.size(), -1) < 0 && errno != EINTR) return;
      if (waited[1].revents != 0) return;
      if (waited[0].revents != 0 && concerned()) changed();
    }
  }

  // Takes all events there are, and says whether one was of the file.
  bool concerned() {
    bool found = false;
    alignas(inotify_event) std::array<char, 4096> bytes{};
    for (ssize_t n = ::read(watch, bytes.data(), bytes.size()); n > 0;
         n = ::read(watch, bytes.data(), bytes.size())) {
      for (size_t at = 0; at < static_cast<size_t>(n);) {
        inotify_event event{};
        std::memcpy(&event, &bytes.at(at), sizeof event);
        // Names are padded by zeros.
        found |= event.len > 0 && names.count(&bytes.at(at + sizeof event)) > 0;
        found |= (event.mask & IN_Q_OVERFLOW) != 0;
        at += sizeof event + event.len;
      }
    }
    return found;
  }

  std::function<void()> changed;
  std::set<std::string> names;
  int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  int end = eventfd(0, EFD_CLOEXEC);
  std::thread thread;
};

FileWatch::FileWatch(const fs::path& file, std::function<void()> changed)
    : state_(std::make_unique<State>(file, std::move(changed))) {}

FileWatch::~FileWatch() = default;

}  // namespace host::live
