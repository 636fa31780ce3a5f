#pragma once

#include "host/writer/image_writer.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace host::writer {

namespace exr {
class Crew;
class Packer;
}  // namespace exr

// The whole content of an image file, as it lies in its encoder.
struct Encoded {
  std::span<const unsigned char> content;
  std::string notice;    // pixels that the file cannot hold as they are, counted; empty when there are none
  double helped_ms = 0;  // what other threads did of it
};

// Has in the process what encodes files of this type, as the first of them would. Throws std::runtime_error
// where that is missing.
void load_encoder(const OutputFile& file);

// The most that an encoder fills for a file of an image of this extent, that its packing makes no smaller.
uint64_t encoding_bytes(const OutputFile& file, const Extent& extent);

// Makes files in memory: what a full disk then spoils is a file that nobody has seen yet. The memory is used
// again for the next one. Externally synchronised.
class Encoder {
 public:
  Encoder();
  ~Encoder();
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  // EXR files are packed together with the crew, others on the calling thread. The content lasts until
  // the next call. Throws std::runtime_error that says what the format refused.
  Encoded encode(const WriteJob& job, exr::Packer& own, exr::Crew& crew);

  // Of the memory that it keeps, as far as files have filled it.
  uint64_t bytes() const;

 private:
  struct Memory;
  std::unique_ptr<Memory> memory_;
};

}  // namespace host::writer
