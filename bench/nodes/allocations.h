#pragma once

#include <cstdint>

// How often the program, its libraries included, has called operator new.
std::uint64_t allocations();
