#include <qv/io/general/module.h>
#include <qv/io/general_reader.h>
#include <qv/version.h>

namespace qv::io {

// Where the module is a part of the library, as in a static one.
const GeneralReader& general_reader() {
  return *general::reader_for(core_version());
}

}  // namespace qv::io
