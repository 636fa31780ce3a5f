#pragma once

#include <qv/io/decode.h>
#include <qv/io/file_attributes.h>

#include <chrono>
#include <string>

namespace qv::io {

using DecodeClock = std::chrono::steady_clock;

double ms_since(DecodeClock::time_point start);

// What decode_plain is asked for, and what is known of it.
struct DecodeRequest {
  const std::string& path;
  int threads = 0;
  FileAttributes file;
  DecodeClock::time_point start;
};

// Resets `out` to decode_other with the file's attributes, asked for now.
DecodeRequest begin_decode(const std::string& path, int threads, DecodeResult& out);

}  // namespace qv::io
