#include "host/cli/keeper.h"

#include "host/cli/cli.h"
#include "host/files/atomic_file.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host::cli {
namespace {

namespace fs = std::filesystem;

bool is_crash(int signal) {
  for (const int each : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT}) {
    if (signal == each) return true;
  }
  return false;
}

std::string time_of_day() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 16> text{};
  std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
  return text.data();
}

std::string named(int signal) {
  const char* const description = sigdescr_np(signal);
  return "signal " + std::to_string(signal) + (description ? std::string(", ") + description : "");
}

// Beside the composition, under a name that is free.
fs::path rescue(const fs::path& composition, const std::string& text) {
  fs::path name;
  for (int n = 1; name.empty() || fs::exists(name); ++n) {
    name = composition;
    const std::string number = n == 1 ? "" : "-" + std::to_string(n);
    name.replace_extension(".rescued" + number + composition.extension().string());
  }
  files::write_whole(name, {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
  return name;
}

// Libraries start threads when they are loaded, and wait for them at the end; a copy does not have them.
void leave(int status, void* /*nothing*/) {
  std::fflush(nullptr);
  _exit(status);
}

}  // namespace

int code_of(int signal) {
  return signal == SIGTERM ? exit_put_back : exit_interrupted;
}

Keeper::Keeper(fs::path composition)
    : composition_(std::move(composition)), keepsake_(std::make_shared<live::Keepsake>()) {
  sigemptyset(&ending_);
  for (const int signal : {SIGINT, SIGTERM}) sigaddset(&ending_, signal);
  pthread_sigmask(SIG_BLOCK, &ending_, nullptr);
}

std::optional<int> Keeper::run() {
  // Who started the program may have had it ignored, and nothing could then be waited for.
  std::signal(SIGCHLD, SIG_DFL);
  for (;;) {
    keepsake_->forget_image();
    start();
    if (serving_ == 0) return std::nullopt;
    const int status = wait();
    if (WIFEXITED(status)) return left_with(WEXITSTATUS(status));
    if (asked_ != 0) return code_of(asked_);
    const int signal = WTERMSIG(status);
    if (!is_crash(signal)) give_up("what serves the page was ended (" + named(signal) + ")");
    const std::string where = ", most likely in the graphics driver (" + named(signal) + ")";
    if (!keepsake_->gave_image()) give_up("the renderer crashed before it had given an image" + where);
    story_ = "The renderer crashed at " + time_of_day() + where +
             ", and was started again; the composition is as it was.";
    std::cerr << "quorvel: " + story_ + "\n" << std::flush;
  }
}

int Keeper::wait_for_end() const {
  int signal = 0;
  sigwait(&ending_, &signal);
  return signal;
}

// As a copy of this process: of threads it has had only those of libraries that are idle.
void Keeper::start() {
  sigset_t ended;
  sigemptyset(&ended);
  sigaddset(&ended, SIGCHLD);
  pthread_sigmask(SIG_BLOCK, &ended, nullptr);
  const pid_t front = getpid();
  serving_ = fork();
  if (serving_ < 0) throw std::system_error(errno, std::generic_category(), "a process that serves the page");
  if (serving_ > 0) return;
  on_exit(leave, nullptr);
  pthread_sigmask(SIG_UNBLOCK, &ended, nullptr);
  // It does not stay behind, not even where that is gone by now.
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != front) kill(getpid(), SIGTERM);
}

// For its end, as waitpid tells it.
int Keeper::wait() {
  sigset_t waited = ending_;
  sigaddset(&waited, SIGCHLD);
  for (int status = 0;;) {
    if (waitpid(serving_, &status, WNOHANG) == serving_) return status;
    int signal = 0;
    sigwait(&waited, &signal);
    if (signal == SIGCHLD) continue;
    kill(serving_, asked_ == 0 ? signal : SIGKILL);
    asked_ = signal;
  }
}

// The code, of an end that has said why.
int Keeper::left_with(int code) const {
  const bool meant = asked_ != 0 || code == exit_put_back || code == exit_interrupted;
  const std::string where = meant ? "" : rescued();
  if (!where.empty()) std::cerr << "quorvel: " + where + "\n" << std::flush;
  return code;
}

void Keeper::give_up(const std::string& why) const {
  const std::string where = rescued();
  throw std::runtime_error(where.empty() ? why : why + "; " + where);
}

// Puts what was not saved into a file, and says so; "" where all was saved.
std::string Keeper::rescued() const {
  const auto left = keepsake_->document();
  if (!left || left->text == left->known) return "";
  try {
    return "what was not saved is in " + rescue(composition_, left->text).string();
  } catch (const std::exception& error) {
    return std::string("what was not saved is lost: ") + error.what();
  }
}

}  // namespace host::cli
