#pragma once

namespace host {

// Installs OpenBLAS's routines in the library's transforms, once: later calls cost nothing. To be
// called before any transform is computed. Thread-safe.
void install_linear_algebra();

}  // namespace host
