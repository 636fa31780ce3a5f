#include "host/base/library_threads.h"

#include <OpenImageIO/imageio.h>

namespace host {

void hold_library_threads(int threads) {
  OIIO::attribute("threads", threads);
  OIIO::attribute("exr_threads", threads);
}

}  // namespace host
