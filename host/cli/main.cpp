#include "host/base/allocator.h"
#include "host/cli/cli.h"

int main(int argc, char** argv) {
  host::keep_freed_memory();
  return host::cli::run(argc, argv);
}
