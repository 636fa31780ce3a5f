#pragma once

namespace host::frame {

// What happens to a file that stands already where a frame is to go.
enum class Existing { overwrite, skip, refuse };

}  // namespace host::frame
