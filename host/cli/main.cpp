#include "host/base/allocator.h"
#include "host/cli/cli.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>

#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr std::string_view blas_threads = "OPENBLAS_NUM_THREADS=";
constexpr size_t most_variables = 4096;

bool address_space_is_limited() {
  rlimit limit{};
  return getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

// A library that finds no memory while it is loaded, or a thread that finds none: nobody is there to
// catch what they throw.
[[noreturn]] void end_out_of_memory() {
  constexpr std::string_view text = "quorvel: out of memory or threads (see ulimit -v and -u)\n";
  const bool memory = std::current_exception() != nullptr && address_space_is_limited();
  if (!memory) std::abort();
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, text.data(), text.size());
  _exit(host::cli::exit_memory);
}

// Before any library is set up. The linear algebra that image libraries bring along starts its threads
// then, and where an address-space limit refuses them it waits for ever; it can only be told by the
// environment. Nothing is allocated here.
void before_libraries(int /*argc*/, char** argv, char** environment) {
  if (!address_space_is_limited()) return;
  std::set_terminate(end_out_of_memory);
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
  host::keep_freed_memory();
  return host::cli::run(argc, argv);
}
