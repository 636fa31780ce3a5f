// One program a text function: QV_PROPERTY names the predicate of tests/nodes/text_properties.h that
// must hold for every input.
#include "tests/nodes/text_properties.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!text_properties::QV_PROPERTY(std::string(data, data + size))) std::abort();
  return 0;
}
