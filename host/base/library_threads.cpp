#include "host/base/library_threads.h"

#include "host/general/general.h"

#include <cstdlib>
#include <string>

namespace host {

void hold_threads(int threads) {
  if (threads == 0) return;
  general::hold_threads(threads);
  setenv("LP_NUM_THREADS", std::to_string(threads).c_str(), 0);
}

}  // namespace host
