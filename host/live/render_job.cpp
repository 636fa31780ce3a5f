#include "host/live/render_job.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <initializer_list>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host::live {
namespace {

constexpr size_t most_said = 4000;  // bytes of standard error, the last ones

[[noreturn]] void fail(const std::string& what, int error) {
  throw std::runtime_error(what + ": " + std::generic_category().message(error));
}

// A descriptor that is closed with it.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() {
    close();
  }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int operator*() const {
    return number_;
  }
  void close() {
    if (number_ >= 0) ::close(std::exchange(number_, -1));
  }

 private:
  int number_;
};

struct Pipe {
  Descriptor from, to;
  Pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("pipe", errno);
    from = Descriptor(ends[0]);
    to = Descriptor(ends[1]);
  }
};

// A text as a file without a name, which no reader can stall.
Descriptor as_file(std::string_view text) {
  Descriptor file(memfd_create("composition", MFD_CLOEXEC));
  if (*file < 0) fail("memory for the composition", errno);
  while (!text.empty()) {
    const ssize_t written = ::write(*file, text.data(), text.size());
    if (written < 0) fail("memory for the composition", errno);
    text.remove_prefix(static_cast<size_t>(written));
  }
  lseek(*file, 0, SEEK_SET);
  return file;
}

// The process as if it had been started from a shell: no signals held back, no descriptors but three,
// and a group of its own, which is ended as a whole.
pid_t spawn(const std::filesystem::path& program, const std::vector<std::string>& words,
            const std::filesystem::path& folder, const std::array<int, 3>& standard) {
  std::vector<char*> arguments;
  std::string name = "quorvel";
  arguments.push_back(name.data());
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (!folder.empty()) posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  for (int i = 0; i < 3; ++i)
    posix_spawn_file_actions_adddup2(&actions, standard.at(static_cast<size_t>(i)), i);
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, ended;
  sigemptyset(&none);
  sigemptyset(&ended);
  for (const int signal : {SIGINT, SIGTERM, SIGPIPE}) sigaddset(&ended, signal);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &ended);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  pid_t process = -1;
  const int error = posix_spawn(&process, program.c_str(), &actions, &attributes, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) fail(program.string() + " cannot be started", error);
  return process;
}

// Who sees the page gave no standard input, from which the process read the text.
std::string for_the_page(std::string text) {
  constexpr std::string_view source = "standard input: ";
  for (size_t at = text.find(source); at != std::string::npos; at = text.find(source, at))
    text.erase(at, source.size());
  const size_t first = text.find_first_not_of(" \n");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \n") + 1 - first);
}

// Takes one line of progress in.
void take_line(const std::string& line, RenderState& state, std::string& failure) {
  const auto event = nlohmann::json::parse(line, nullptr, false);
  if (!event.is_object()) return;
  const std::string name = event.value("event", "");
  if (name == "begin") state.total = event.value("frames", int64_t{0});
  if (name == "notice") state.message = event.value("text", "");
  if (name != "frame") return;
  if (event.contains("error")) {
    failure = event.value("error", "");
  } else {
    ++state.done;
  }
}

}  // namespace

const char* state_name(RenderState::Is is) {
  constexpr std::array names = {"idle", "running", "done", "failed", "stopped"};
  return names.at(static_cast<size_t>(is));
}

struct RenderJob::State {
  std::filesystem::path program;
  std::function<void(const RenderState&)> changed;
  mutable std::mutex mutex;
  std::condition_variable ended;
  RenderState told;
  pid_t process = -1;  // while it runs
  bool stopping = false;
  std::thread thread;

  void tell(const RenderState& state) {
    {
      const std::lock_guard lock(mutex);
      told = state;
    }
    changed(state);
  }

  // What the process says, to the end of both of its streams.
  void follow(Pipe& out, Pipe& err, RenderState& state, std::string& failure) {
    std::string line, said;
    std::array<pollfd, 2> waited{pollfd{*out.from, POLLIN, 0}, pollfd{*err.from, POLLIN, 0}};
    while (waited[0].fd >= 0 || waited[1].fd >= 0) {
      if (::poll(waited.data(), waited.size(), -1) < 0) continue;
      for (pollfd& each : waited) {
        if (each.fd < 0 || each.revents == 0) continue;
        std::array<char, 4096> bytes{};
        const ssize_t n = ::read(each.fd, bytes.data(), bytes.size());
        if (n <= 0) {
          each.fd = -1;
          continue;
        }
        std::string& text = each.fd == *out.from ? line : said;
        text.append(bytes.data(), static_cast<size_t>(n));
      }
      if (said.size() > most_said) said.erase(0, said.size() - most_said);
      for (size_t end = line.find('\n'); end != std::string::npos; end = line.find('\n')) {
        take_line(line.substr(0, end), state, failure);
        line.erase(0, end + 1);
        tell(state);
      }
    }
    if (failure.empty()) failure = said;
  }

  void run(pid_t id, Pipe out, Pipe err) {
    RenderState state = told;
    std::string failure;
    follow(out, err, state, failure);
    // Until it has been waited for, its number is nobody else's.
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    bool stopped = false;
    {
      const std::lock_guard lock(mutex);
      process = -1;
      stopped = stopping;
      ::waitpid(id, nullptr, 0);
    }
    const bool done = info.si_code == CLD_EXITED && info.si_status == 0;
    state.is = done ? RenderState::Is::done : stopped ? RenderState::Is::stopped : RenderState::Is::failed;
    state.message = state.is == RenderState::Is::failed ? for_the_page(std::move(failure)) : "";
    tell(state);
    ended.notify_all();
  }
};

RenderJob::RenderJob(std::filesystem::path program, std::function<void(const RenderState&)> changed)
    : state_(std::make_unique<State>()) {
  state_->program = std::move(program);
  state_->changed = std::move(changed);
}

RenderJob::~RenderJob() {
  {
    std::unique_lock lock(state_->mutex);
    if (state_->process > 0) {
      state_->stopping = true;
      ::kill(-state_->process, SIGTERM);
      const auto gone = [this] { return state_->process < 0; };
      if (!state_->ended.wait_for(lock, std::chrono::milliseconds(400), gone))
        ::kill(-state_->process, SIGKILL);
    }
  }
  if (state_->thread.joinable()) state_->thread.join();
}

void RenderJob::start(const std::vector<std::string>& words, const std::filesystem::path& folder,
                      std::string_view input) {
  {
    const std::lock_guard lock(state_->mutex);
    if (state_->told.is == RenderState::Is::running) throw std::runtime_error("a rendering is under way");
    if (state_->thread.joinable()) state_->thread.join();
    Pipe out, err;
    const Descriptor text = as_file(input);
    state_->process = spawn(state_->program, words, folder, {*text, *out.to, *err.to});
    out.to.close();
    err.to.close();
    state_->stopping = false;
    state_->told = {RenderState::Is::running, 0, 0, ""};
    state_->thread =
        std::thread([this, id = state_->process, from = std::move(out), said = std::move(err)]() mutable {
          state_->run(id, std::move(from), std::move(said));
        });
  }
  state_->changed(state());
}

void RenderJob::stop() {
  const std::lock_guard lock(state_->mutex);
  if (state_->process < 0) return;
  state_->stopping = true;
  ::kill(-state_->process, SIGINT);
}

RenderState RenderJob::state() const {
  const std::lock_guard lock(state_->mutex);
  return state_->told;
}

}  // namespace host::live
