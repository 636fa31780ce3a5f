#pragma once

#include "host/files/image_writer.h"

#include <memory>
#include <span>
#include <string>

namespace host::files {

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

 private:
  struct Memory;
  std::unique_ptr<Memory> memory_;
};

}  // namespace host::files
