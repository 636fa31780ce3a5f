#include "host/live/file_watch.h"

#include "host/files/path.h"
#include "host/files/pattern.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace host::live {
namespace fs = std::filesystem;
namespace {

using Clock = std::chrono::steady_clock;
using Names = std::set<std::string>;  // and patterns

// By folder.
std::map<fs::path, Names> names_of(const std::vector<fs::path>& files) {
  std::map<fs::path, Names> found;
  for (const fs::path& file : files) {
    const fs::path absolute = fs::absolute(file);
    for (const fs::path& each : {absolute, files::followed(absolute)}) {
      if (found.size() < FileWatch::most_folders || found.count(each.parent_path()) > 0)
        found[each.parent_path()].insert(each.filename().string());
    }
  }
  return found;
}

}  // namespace

struct FileWatch::State {
  State(std::function<void()> tell, std::chrono::milliseconds wait) : changed(std::move(tell)), delay(wait) {
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

  void follow(const std::vector<fs::path>& wanted) {
    const std::lock_guard lock(mutex);
    if (wanted == followed) return;
    followed = wanted;
    std::map<int, Names> before = std::exchange(names, {});
    for (const auto& [folder, in_it] : names_of(wanted)) {
      // Not the files: editors put another one under their name.
      const int number = inotify_add_watch(
          watch, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR);
      if (number < 0) continue;
      names[number].insert(in_it.begin(), in_it.end());  // two paths may lead to one folder
      before.erase(number);
    }
    for (const auto& [number, in_it] : before) inotify_rm_watch(watch, number);
  }

  void run() {
    std::optional<Clock::time_point> due;
    for (;;) {
      std::array<pollfd, 2> waited{pollfd{watch, POLLIN, 0}, pollfd{end, POLLIN, 0}};
      if (::poll(waited.data(), waited.size(), due ? until(*due) : -1) < 0 && errno != EINTR) return;
      if (waited[1].revents != 0) return;
      if (waited[0].revents != 0 && concerned() && !due) due = Clock::now() + delay;
      if (!due || Clock::now() < *due) continue;
      due.reset();
      changed();
    }
  }

  static int until(Clock::time_point due) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
    return static_cast<int>(std::max<int64_t>(0, left.count()));
  }

  // Takes all events there are, and says whether one was of the files.
  bool concerned() {
    bool found = false;
    alignas(inotify_event) std::array<char, 4096> bytes{};
    for (ssize_t n = ::read(watch, bytes.data(), bytes.size()); n > 0;
         n = ::read(watch, bytes.data(), bytes.size())) {
      for (size_t at = 0; at < static_cast<size_t>(n);) {
        inotify_event event{};
        std::memcpy(&event, &bytes.at(at), sizeof event);
        // Names are padded by zeros.
        found |= event.len > 0 && is_followed(event.wd, &bytes.at(at + sizeof event));
        found |= (event.mask & IN_Q_OVERFLOW) != 0;
        at += sizeof event + event.len;
      }
    }
    return found;
  }

  bool is_followed(int number, std::string_view name) {
    const std::lock_guard lock(mutex);
    const auto folder = names.find(number);
    if (folder == names.end()) return false;
    return std::any_of(folder->second.begin(), folder->second.end(), [name](const std::string& each) {
      return name == each || (files::has_frame(each) && files::frame_of(each, name));
    });
  }

  const std::function<void()> changed;
  const std::chrono::milliseconds delay;
  std::mutex mutex;  // guards what follows, up to the watch
  std::vector<fs::path> followed;
  std::map<int, Names> names;  // by the watch of their folder
  int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  int end = eventfd(0, EFD_CLOEXEC);
  std::thread thread;
};

FileWatch::FileWatch(std::function<void()> changed, std::chrono::milliseconds delay)
    : state_(std::make_unique<State>(std::move(changed), delay)) {}

FileWatch::~FileWatch() = default;

void FileWatch::follow(const std::vector<fs::path>& files) {
  state_->follow(files);
}

}  // namespace host::live
