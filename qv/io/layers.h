#pragma once

#include <qv/export.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

namespace qv::io {

// One range of channels of one subimage, and where the layer lies in the output. The layer's size
// must be that of the subimage's data window.
struct Read {
  int32_t subimage = 0;
  int32_t chbegin = 0;  // first channel
  int32_t chend = 0;    // one past the last
  int32_t x = 0;        // output column of the layer's first column; may be negative
  int32_t y = 0;        // output row of its first row; may be negative
  int32_t width = 0;
  int32_t height = 0;
};

// Where one component of an output comes from: a channel of a read, or a constant.
struct Slot {
  int32_t read = -1;    // index into the reads; negative: the constant
  int32_t channel = 0;  // within the read, 0 being its chbegin
  float value = 0;      // the constant
};

// Where the time of load_layers went, in milliseconds.
struct Stats {
  double open_ms = 0;     // opening the file
  double read_ms = 0;     // from there until all reads are done and the file is closed
  double scatter_ms = 0;  // filling the outputs; where that goes along with reading, its share of the time
};

// Reads several channel ranges of one file and scatters them into RGBA float buffers.
// `outs[i]`, owned by the caller, holds width x height x 4 floats, rows top to bottom, and is filled
// from `slots[i]` (R, G, B, A); a component whose layer does not cover a pixel is 0 there. `path` is
// UTF-8; pipes, sockets and devices are refused. `stats` may be null.
// False with a text in `err` when it fails, the outputs then holding whatever was written: "bad
// plan" (as many slot arrays as outs, no negative size), "bad slot" (a read or channel that does not
// exist), "plan does not match the file" (size, depth or channels of a subimage), "out of memory"
// (for over 1 GiB a range also where less is free), or OpenImageIO's text. Throws nothing.
// `threads` (0: OpenImageIO's default) bounds the threads: with 1 everything happens on the calling
// thread, but for OpenEXR files of the codecs piz, pxr24, b44 and dwa, whose blocks OpenImageIO 2.4 hands to
// OpenEXR's process-wide pool, which only its global attribute "exr_threads" bounds. Of other OpenEXR files
// only chunks that the outputs show are read. The rest, with 128 rows and more, is read in parallel
// bands, each through its own file handle. The environment variable QUORVEL_NATIVE_IO_BANDS lowers the number
// of threads and of bands from 16, with 0 to one. Thread-safe for different outputs. Memory: at most one
// float a pixel and channel read, besides the outputs.
QV_API bool load_layers(const std::string& path, const std::vector<Read>& reads,
                        const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
                        const std::vector<float*>& outs, std::string& err, Stats* stats);

// The same for who has the file open already, to look at its header, and saves opening it again. `input` may
// stand at any subimage; it is left open.
QV_API bool load_layers(OIIO::ImageInput& input, const std::string& path, const std::vector<Read>& reads,
                        const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
                        const std::vector<float*>& outs, std::string& err, Stats* stats);

}  // namespace qv::io
