#pragma once

#include "host/extent.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace host::files {

// How a file is to be written; what the knobs of a `write` node say. The format follows the path's
// extension: .exr, .png, .tif or .tiff.
struct OutputFile {
  enum class Depth { automatic, half, float32, integer8, integer16 };
  std::string path;                // with the frame number filled in
  Depth depth = Depth::automatic;  // half for EXR, 8 bits for PNG, 16 for TIFF
  std::string compression;         // the format's own name for it ("zip", "dwaa", ...); "" its default
  bool srgb = false;               // encode colour with the sRGB curve
  bool alpha = true;               // write alpha; otherwise RGB alone
  bool overscan = false;           // keep pixels outside the format, where the file type can
};

// One image to be encoded. Takes shared ownership of the pixels: premultiplied RGBA float, rows top
// to bottom, box_width(extent.window) x box_height(extent.window). EXR and TIFF keep the data window;
// PNG gets the format's area, transparent black where there are no pixels.
struct WriteJob {
  int64_t frame = 0;
  OutputFile file;
  Extent extent;
  std::shared_ptr<const float[]> rgba;
};

// How a job ended: error is empty when the file stands whole under its name.
struct WriteResult {
  int64_t frame = 0;
  std::string path;
  std::string error;  // names the path
  uint64_t bytes = 0;
  double encode_ms = 0;
};

// Encodes on a thread of its own, in the order of submission. A file appears whole or not at all: it
// is written under a temporary name in the same folder ("." + name + ".<pid>.part"), flushed and
// renamed. Missing folders are made. `done` is called on the writer's thread, once a job.
// put from one thread at a time, finish after the last put. Destruction finishes what was put.
class ImageWriter {
 public:
  // queue_limit: jobs held at most, the one being encoded included; threads: for the encoders, 0 all.
  ImageWriter(int queue_limit, int threads, std::function<void(const WriteResult&)> done);
  ~ImageWriter();
  ImageWriter(const ImageWriter&) = delete;
  ImageWriter& operator=(const ImageWriter&) = delete;

  // Waits while the queue is full: this is what holds rendering back when disks are slow.
  void put(WriteJob job);

  // Waits until every job is done.
  void finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Removes the temporary files that killed runs left in a folder: those whose process is gone.
// Returns how many. A folder that does not exist has none.
int remove_leftovers(const std::filesystem::path& folder);

}  // namespace host::files
