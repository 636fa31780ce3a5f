#pragma once

#include "host/writer/exr/packer.h"
#include "host/writer/exr/part.h"

#include <cstddef>
#include <span>
#include <vector>

namespace host::writer::exr {

// Work that several threads may do at once, each with a packer of its own, until nothing is left to begin.
// Thread-safe.
class Work {
 public:
  Work() = default;
  virtual ~Work() = default;
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  virtual void run(Packer& packer) noexcept = 0;
};

// The threads that write files, as the one of them sees them that writes this one.
class Crew {
 public:
  Crew() = default;
  virtual ~Crew() = default;
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  // At most so many threads are in a piece of work.
  virtual size_t threads() const = 0;

  // Runs `work` on this thread, and on others that have nothing older to do; returns when all have left it,
  // with the milliseconds that the others spent in it.
  virtual double share(Work& work, Packer& own) = 0;
};

// What a file in the making needs beside its packers, to be used again for the next one.
struct Memory {
  std::vector<unsigned char> content;  // the whole file
  std::vector<Bytes> chunks;           // packed, not yet in the file
};

struct Written {
  Extremes found;
  double helped_ms = 0;  // what others than the calling thread did of it
};

// Makes the file of these parts in `memory.content`, the same whoever packs. Throws what File throws.
Written write(std::span<const Part> parts, Packer& own, Crew& crew, Memory& memory);

}  // namespace host::writer::exr
