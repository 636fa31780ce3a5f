#pragma once

#include <qv/export.h>
#include <qv/io/decode.h>
#include <qv/io/layers.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qv::io {

enum class ExrType : int32_t { uint32, half, float32 };

// A part of an OpenEXR file, or its only one.
struct ExrPart {
  struct Channel {
    std::string name;  // "left.R"
    ExrType type = ExrType::half;
  };
  std::string name;                             // "" where it has none
  int32_t x = 0, y = 0, width = 0, height = 0;  // its data window, y down
  int32_t display_x = 0, display_y = 0, display_width = 0, display_height = 0;
  float pixel_aspect = 1;                   // as the file has it, which may be nonsense
  std::string compression;                  // "none", "rle", "zips" or "zip"
  int32_t tile_width = 0, tile_height = 0;  // 0: no tiles
  std::vector<Channel> channels;            // in the order in which OpenImageIO lists and Read counts them
};

// An OpenEXR file of the common kind, open: all parts flat, in scanlines or tiles, with a value for every
// channel at every pixel, of the compressions none, rle, zips and zip. Read by OpenEXR's core alone: a
// process that reads no other files is spared OpenImageIO and the libraries that it brings. What this reads
// is what decode_plain and load_layers deliver, to the bit; what it does not, or finds damaged, is theirs to
// read or to find words for. Thread-safe.
class QV_API ExrFile {
 public:
  // Null for every other file, what is damaged or cannot be opened included. `path` is UTF-8; pipes, sockets
  // and devices are not opened. Throws std::bad_alloc.
  static std::unique_ptr<ExrFile> open(const std::string& path);

  ~ExrFile();
  ExrFile(const ExrFile&) = delete;
  ExrFile& operator=(const ExrFile&) = delete;

  // At least one; their index is Read's subimage.
  const std::vector<ExrPart>& parts() const;

  // Whether decode_plain takes it: one part of R, G, B, A that fills its display window.
  bool is_plain() const;

  // What a part says in an attribute that is one text, under the name that it has there: "comments"; "" where
  // there is none. Throws std::bad_alloc.
  std::string text(int part, const std::string& attribute) const;

  // As the function of that name, with `spec` left null. The file's attributes are those that it had when it
  // was opened. decode_other for whatever that function would be needed for. `threads` of 0: one a processor.
  void decode_plain(int threads, DecodeResult& out) const;

  // The same pixels of a file whose channels are all halves, as they are; null for every other one, and where
  // decode_plain is not done.
  std::unique_ptr<uint16_t[]> decode_halves(int threads) const;

  // As the function of that name; false for whatever that function would be needed for. `stats` may be null.
  bool load_layers(const std::vector<Read>& reads, const std::vector<std::array<Slot, 4>>& slots, int width,
                   int height, int threads, const std::vector<float*>& outs, Stats* stats) const;

 private:
  struct State;
  explicit ExrFile(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace qv::io
