#include "host/base/library_threads.h"

#include <cstdlib>
#include <string>

#include <OpenImageIO/imageio.h>

namespace host {

void hold_library_threads(int threads) {
  OIIO::attribute("threads", threads);
  OIIO::attribute("exr_threads", threads);
}

void hold_threads(int threads) {
  if (threads == 0) return;
  hold_library_threads(threads);
  setenv("LP_NUM_THREADS", std::to_string(threads).c_str(), 0);
}

}  // namespace host
