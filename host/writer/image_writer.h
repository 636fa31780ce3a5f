#pragma once

#include "host/base/extent.h"
#include "host/base/memory_use.h"
#include "host/files/metadata.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace host::writer {

// How a file is to be written; what the knobs of a `write` node say. The format follows the path's
// extension: .exr, .png, .tif or .tiff, .jpg or .jpeg, .dpx.
struct OutputFile {
  enum class Depth { automatic, half, float32, integer8, integer10, integer12, integer16 };
  enum class Color { automatic, linear, srgb };

  // What an EXR file has of one image.
  struct Layer {
    std::string name;                   // "": the main image
    std::vector<std::string> channels;  // names that were chosen, see exr_parts.h; else those of `alpha`
    std::optional<Depth> depth = std::nullopt;  // where it is not that of the file
  };

  std::string path;                // with the frame number filled in
  Depth depth = Depth::automatic;  // half for EXR, 8 bits for PNG and JPEG, 10 for DPX, 16 for TIFF
  std::string compression;         // the format's own name for it ("zip", "zip:9", ...); "" its default
  Color color = Color::automatic;  // how colour is encoded; automatic: sRGB in PNG and JPEG, else linear
  bool alpha = true;               // write alpha; otherwise RGB alone
  bool overscan = false;           // keep pixels outside the format, where the file type can
  double scale = 1;                // --proxy, which the file says of itself
  std::string digest;              // what the image is made from, as the file is to say it; "" for nothing
  std::vector<Layer> layers;       // one an image of the job; empty: the main image alone
  bool parts = false;              // each layer in a part of its own
  int quality = 95;                // of JPEG, to 100
  files::Metadata metadata;        // what the file says beside what its image brings, or instead of it
};

// An image among others of a file; as in WriteJob.
struct Picture {
  Extent extent;
  std::shared_ptr<const float[]> rgba;
  bool coverage = true;
};

// One image to be encoded. Takes shared ownership of the pixels: premultiplied RGBA float, rows top
// to bottom, box_width(extent.window) x box_height(extent.window). EXR keeps the data window (its part inside
// the format unless `overscan`); PNG and the others, whose readers mostly know of none, get the format's
// area, transparent black where there are no pixels. PNG stores colour unpremultiplied, as its readers
// expect.
struct WriteJob {
  int64_t frame = 0;
  OutputFile file;
  Extent extent;
  std::shared_ptr<const float[]> rgba;
  bool coverage = true;                   // colour is premultiplied by alpha; else nothing divides it
  files::MetadataPtr metadata = nullptr;  // what the image brings along
  std::vector<Picture> further = {};      // images of the layers behind the first
};

// How a job ended: error is empty when the file stands whole under its name.
struct WriteResult {
  int64_t frame = 0;
  std::string path;
  std::string error;   // names the path
  std::string notice;  // what of the image the file does not hold; names the path
  uint64_t bytes = 0;
  double encode_ms = 0;
};

// Encodes on threads of its own, which start jobs in the order of submission; those of them that are free
// pack an EXR file together, so that the oldest stands first. A file appears whole or not at all (see
// atomic_file.h). `done` is called once a job, on an encoding thread, never by two
// at a time. put from one thread at a time, finish after the last put. Destruction finishes what was put.
class ImageWriter {
 public:
  // queue_limit: jobs held at most, those being encoded included; threads: how many encode side by
  // side, 0 one a processor. No others work for it. use: whose Owner::encoders its own memory is.
  ImageWriter(int queue_limit, int threads, std::function<void(const WriteResult&)> done,
              MemoryUse use = MemoryUse());
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

}  // namespace host::writer
