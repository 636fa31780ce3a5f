#pragma once

#include <qv/export.h>

#include <cstdint>
#include <memory>
#include <string>

#include <OpenImageIO/imageio.h>

namespace qv::io {

// What became of one file.
enum DecodeState : int32_t {
  decode_unknown = -1,  // no such job in a DecodeScheduler
  decode_queued = 0,    // in a DecodeScheduler, as is the next
  decode_running = 1,
  decode_done = 2,
  decode_other = 3,   // not decodable here: the caller falls back to a general reader
  decode_failed = 4,  // the file could not be opened
};

struct DecodeResult {
  int32_t status = decode_queued;   // a DecodeState
  bool has_mtime = false;           // the file's attributes could be read
  int64_t mtime_ns = 0;             // its last write, in nanoseconds since 1970-01-01 UTC
  double stat_s = 0;                // what asking for the attributes took, in seconds
  std::unique_ptr<float[]> pixels;  // width x height x 4, RGBA, rows top to bottom; null unless done
  int32_t width = 0;                // 0 unless done, as is height
  int32_t height = 0;
  std::shared_ptr<OIIO::ImageSpec> spec;  // a copy of the file's; null unless done
  std::string error;                      // OpenImageIO's text; empty unless failed
  double read_ms = 0;                     // opening, checking and reading
  double convert_ms = 0;                  // widening halves; 0 for a file that holds others as well
};

// Whether an image is of the kind that decode_plain takes, but for the number of subimages: exactly the
// channels R, G, B, A in this order, a data window equal to the display window, neither deep nor a
// volume. Thread-safe.
QV_API bool is_plain(const OIIO::ImageSpec& spec);

// Decodes a plain image file, of one subimage for which is_plain holds, into RGBA floats. Resets `out` first
// and reports everything there; no exception leaves. A plain file whose pixels are damaged or
// cannot be allocated is decode_other without a text; so is one that claims over 1 GiB of them when there
// is less memory or its codec cannot hold that many in so few bytes. `path` is UTF-8; pipes, sockets
// and devices are refused as decode_failed.
// `threads` (0: OpenImageIO's default) is how many threads work on the file at most; with 1 everything
// happens on the calling thread. Only OpenEXR files of the codecs piz, pxr24, b44 and dwa are handed by
// OpenImageIO 2.4 to OpenEXR's process-wide pool, which its global attribute "exr_threads" bounds.
// Thread-safe. Cost: decoding; OpenEXR files of other codecs are widened chunk by chunk in the cache, halves
// of others in place, so that no memory beyond the pixels is used but for a chunk a thread.
QV_API void decode_plain(const std::string& path, int threads, DecodeResult& out);

// The same for who has the file open already, to look at its header, and saves opening it again. `input` may
// stand at any subimage; it is closed when its pixels have been read, and left open otherwise.
QV_API void decode_plain(OIIO::ImageInput& input, const std::string& path, int threads, DecodeResult& out);

}  // namespace qv::io
