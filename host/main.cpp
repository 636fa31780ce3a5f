#include "host/cli.h"

int main(int argc, char** argv) {
  return host::run(argc, argv);
}
