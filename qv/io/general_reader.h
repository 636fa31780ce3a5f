#pragma once

#include <qv/io/decode.h>
#include <qv/io/image_read.h>
#include <qv/io/layer_plan.h>

#include <string>

namespace qv::io {

// What reads files through OpenImageIO: a module of its own, libquorvel_core_images.so beside the library,
// that is loaded when it is first needed. OpenImageIO brings hundreds of libraries along, which take a
// process without need for them 0.2 s and 100 MiB.
class GeneralReader {
 public:
  virtual ~GeneralReader() = default;

  // As qv::io's functions of these names and qv::oiio_read_float. `open`, where it is not null, is the file.
  virtual void decode_plain(OIIO::ImageInput* open, const std::string& path, int threads,
                            DecodeResult& out) const = 0;
  virtual bool load_layers(OIIO::ImageInput* open, const std::string& path, const LayerPlan& plan,
                           std::string& err, Stats* stats) const = 0;
  virtual ImageRead read_float(const std::string& path) const = 0;

  // As qv::oiio_runtime_version.
  virtual std::string version() const = 0;
};

// Throws std::runtime_error that names the module when it cannot be loaded; the next call tries again. Lasts
// as long as the process. Thread-safe.
const GeneralReader& general_reader();

}  // namespace qv::io
