#pragma once

namespace host::plan {

// What happens to a file that stands already where a frame is to go. `current`: it stays where it was made
// from what the frame is made from now, and is replaced otherwise.
enum class Existing { overwrite, skip, current, refuse };

}  // namespace host::plan
