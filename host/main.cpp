#include "host/allocator.h"
#include "host/cli.h"

int main(int argc, char** argv) {
  host::keep_freed_memory();
  return host::run(argc, argv);
}
