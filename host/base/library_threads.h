#pragma once

namespace host {

// Holds the pools that the image library and the EXR library keep for the whole process, which all encoders
// and decoders share, to this many threads, and a software driver's that has not begun yet, which asks the
// environment: what a person set there stays. 0: leaves all as they are. For a program's start, before files
// are read.
void hold_threads(int threads);

}  // namespace host
