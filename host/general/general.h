#pragma once

#include <qv/io/decode.h>
#include <qv/io/image_read.h>
#include <qv/io/layers.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace host::plates {
struct FileTold;
struct PartInfo;
}  // namespace host::plates

namespace host::writer {
struct Raster;
struct WriteJob;
}  // namespace host::writer

// Files of any kind, through OpenImageIO. That brings hundreds of libraries along, so whatever calls it is in
// a module of its own, libquorvel_host_images.so, which the first file that needs it has loaded. What
// stands between the two is here and names no type of OpenImageIO.
namespace host::general {

// An image file, open for reading. Of what it throws, a std::runtime_error names the path. Externally
// synchronised.
class File {
 public:
  File() = default;
  virtual ~File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // What the file says of itself and of its parts, of which no more than so many are looked at.
  virtual plates::FileTold told(int most_parts) = 0;

  // One of its parts, which count from 0; nothing behind the last.
  virtual std::optional<plates::PartInfo> part(int index) = 0;

  // The text by which it says what wrote it, or "".
  virtual std::string software() = 0;

  // The channels from `begin` to before `end` of each pixel of a part's data window, rows top to bottom.
  // Whole numbers of 32 bits as such, others as steps from 0 to 1. Throws std::runtime_error.
  virtual std::vector<double> values(int part, int begin, int end) = 0;

  // Decodes a part, a strip at a time, and lets go of what comes. Throws std::runtime_error where it cannot.
  virtual void try_pixels(int part) = 0;

  // As the functions of these names in qv::io.
  virtual void decode_plain(int threads, qv::io::DecodeResult& out) = 0;
  virtual bool load_layers(const std::vector<qv::io::Read>& reads,
                           const std::vector<std::array<qv::io::Slot, 4>>& slots, int width, int height,
                           int threads, const std::vector<float*>& outs, std::string& error) = 0;
};

// What the module has to offer. Thread-safe.
class Library {
 public:
  Library() = default;
  virtual ~Library() = default;
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // Null with the reason in `error` where the file is no image that can be read.
  virtual std::unique_ptr<File> open(const std::string& path, std::string& error) const = 0;

  // As qv::oiio_read_float, whose reader is the same.
  virtual qv::ImageRead read(const std::string& path) const = 0;

  // Makes the content of a file of any type but EXR. The raster is of its window and holds what is to be
  // stored. Throws std::runtime_error that says what the format refused.
  virtual void encode(const writer::WriteJob& job, const writer::Raster& raster,
                      std::vector<unsigned char>& content) const = 0;

  // Holds the pools that OpenImageIO and OpenEXR keep for the whole process to this many threads.
  virtual void hold_threads(int threads) const = 0;
};

// The module's, which the first call loads. Throws std::runtime_error that names the module's file where that
// is missing or of another version. Thread-safe.
const Library& library();

// As Library::hold_threads, at once or as soon as the module is loaded; loads nothing. Thread-safe.
void hold_threads(int threads);

}  // namespace host::general
