#include "host/files/library_threads.h"

#include <OpenImageIO/imageio.h>

namespace host::files {

void hold_library_threads(int threads) {
  OIIO::attribute("threads", threads);
  OIIO::attribute("exr_threads", threads);
}

}  // namespace host::files
