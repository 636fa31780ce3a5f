#pragma once

namespace host {

// Tells the C library to keep freed memory for the next image instead of giving it back to the
// system: a render allocates the same few sizes again and again, and fresh pages cost more than
// filling them. To be called once, before the first thread. Does nothing where there is no such knob.
void keep_freed_memory();

// Gives back to the system what is kept. For when it is of sizes that will not be asked for again.
void return_freed_memory();

}  // namespace host
