#include "host/cli/interrupt.h"

#include <csignal>
#include <initializer_list>

namespace host::cli {
namespace {

std::atomic<bool> raised_flag = false;
std::atomic<bool> terminate_flag = false;
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not wait for a lock");

extern "C" void raise_flag(int signal) {
  if (signal == SIGTERM) terminate_flag = true;
  raised_flag = true;
}

void handle(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  // Once: the second signal finds the default action, so that a hung driver can still be left.
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigaction(signal, &action, nullptr);
}

}  // namespace

InterruptFlag::InterruptFlag() {
  raised_flag = terminate_flag = false;
  for (const int signal : {SIGINT, SIGTERM}) handle(signal, raise_flag);
}

InterruptFlag::~InterruptFlag() {
  for (const int signal : {SIGINT, SIGTERM}) handle(signal, SIG_DFL);
}

const std::atomic<bool>& InterruptFlag::raised() const {
  return raised_flag;
}

bool InterruptFlag::terminated() const {
  return terminate_flag;
}

}  // namespace host::cli
