#include "host/base/allocator.h"
#include "host/cli/cli.h"

#include <array>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <initializer_list>
#include <string_view>

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr std::string_view blas_threads = "OPENBLAS_NUM_THREADS=";
constexpr size_t most_variables = 4096;
constexpr int most_loading_seconds = 10;

bool address_space_is_limited() {
  rlimit limit{};
  return getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

[[noreturn]] void end_out_of_memory() {
  constexpr std::string_view text = "quorvel: out of memory or threads (see ulimit -v and -u)\n";
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
  _exit(host::cli::exit_memory);
}

// A library that finds no memory while it is loaded, or a thread that finds none: nobody is there to
// catch what they throw.
[[noreturn]] void end_uncaught() {
  if (std::current_exception() == nullptr || !address_space_is_limited()) std::abort();
  end_out_of_memory();
}

void end_by_signal(int /*signal*/) {
  end_out_of_memory();
}

// One that asks again and again for what it does not get never comes back from being loaded (OpenBLAS
// 0.3.29): it may take so many seconds of processor time, 0 for any number.
void bound_loading(int seconds) {
  std::signal(SIGPROF, seconds > 0 ? end_by_signal : SIG_DFL);
  itimerval timer{};
  timer.it_value.tv_sec = seconds;
  setitimer(ITIMER_PROF, &timer, nullptr);
}

// Before any library is set up. The linear algebra that image libraries bring along starts its threads
// then, and where an address-space limit refuses them it waits for ever; it can only be told by the
// environment. Nothing is allocated here.
void before_libraries(int /*argc*/, char** argv, char** environment) {
  if (!address_space_is_limited()) return;
  std::set_terminate(end_uncaught);
  bound_loading(most_loading_seconds);
  // Some drivers go on with what they were not given, or abort.
  for (const int signal : {SIGSEGV, SIGBUS, SIGABRT}) std::signal(signal, end_by_signal);
  std::array<char*, most_variables> variables{};
  size_t count = 0;
  for (; environment[count]; ++count) {
    if (count + 2 > most_variables ||
        blas_threads == std::string_view(environment[count]).substr(0, blas_threads.size()))
      return;
    variables.at(count) = environment[count];
  }
  static char one_thread[] = "OPENBLAS_NUM_THREADS=1";
  variables.at(count) = one_thread;
  execve("/proc/self/exe", argv, variables.data());  // goes on as it is where that fails
}

[[gnu::section(".preinit_array"), gnu::used]] void (*const first)(int, char**, char**) = before_libraries;

}  // namespace

int main(int argc, char** argv) {
  if (address_space_is_limited()) bound_loading(0);
  host::keep_freed_memory();
  return host::cli::run(argc, argv);
}
