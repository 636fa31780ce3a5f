#pragma once

#include <qv/export.h>

#include <cstddef>

namespace qv {

// Asks for huge pages behind a large block, best before it is written: faulting in 4 KiB pages costs
// more than filling them, and a table that is read all over waits for the processor's page tables.
// What lies in whole huge pages is asked for. Advice only; nothing where there is none. Thread-safe.
QV_API void prefer_huge_pages(void* begin, size_t bytes) noexcept;

}  // namespace qv
