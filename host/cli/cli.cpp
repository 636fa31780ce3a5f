#include "host/cli/cli.h"

#include "host/cli/options.h"
#include "host/cli/table.h"
#include "host/gpu/gpu_context.h"
#include "host/plan/targets.h"
#include "host/programs/shader_library.h"
#include "host/report/printable.h"
#include "host/shot/composition.h"
#include "host/shot/frames.h"

#include <exception>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include <unistd.h>

namespace host::cli {
namespace {

int complain(const std::string& text, int code) {
  std::cerr << "quorvel: " << text << '\n';
  return code;
}

// Results that did not arrive were not printed, whatever was done for them.
int check_results(int code) {
  if (std::cout.flush() || code != exit_done) return code;
  return complain("standard output cannot be written to", exit_some_failed);
}

}  // namespace

int run(int argc, char** argv) {
  const report::TerminalGuard out(std::cout, STDOUT_FILENO);
  const report::TerminalGuard err(std::cerr, STDERR_FILENO);
  try {
    return check_results(Table().parse_and_run(argc, argv));
  } catch (const shot::CompositionError& error) {
    std::cerr << error.what() << '\n';
    return exit_usage;
  } catch (const shot::FramesError& error) {
    return complain(std::string("--frames: ") + error.what(), exit_usage);
  } catch (const plan::TargetError& error) {
    return complain(error.what(), exit_usage);
  } catch (const std::invalid_argument& error) {
    return complain(error.what(), exit_usage);
  } catch (const UsageError& error) {
    return complain(error.what(), exit_usage);
  } catch (const gpu::NoGpu& error) {
    return complain(error.what(), exit_no_gl);
  } catch (const programs::ShaderError& error) {
    return complain(error.what(), exit_no_gl);
  } catch (const std::bad_alloc&) {
    return complain("out of memory", exit_memory);
  } catch (const std::system_error& error) {
    const bool threads = error.code() == std::errc::resource_unavailable_try_again;
    return threads ? complain("out of memory or threads (see ulimit -v and -u)", exit_memory)
                   : complain(error.what(), exit_some_failed);
  } catch (const std::exception& error) {
    return complain(error.what(), exit_some_failed);
  }
}

}  // namespace host::cli
