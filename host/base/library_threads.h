#pragma once

namespace host {

// Holds the pools that the image library and the EXR library keep for the whole process, which all
// encoders and decoders share, to this many threads. For a program's start, before files are read.
void hold_library_threads(int threads);

}  // namespace host
