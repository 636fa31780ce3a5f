#include <qv/io/general/images.h>
#include <qv/io/general/module.h>
#include <qv/version.h>

#include <string_view>

#include <OpenImageIO/imageio.h>

namespace qv::io::general {

namespace {

class Reader final : public GeneralReader {
 public:
  void decode_plain(OIIO::ImageInput* open, const std::string& path, int threads,
                    DecodeResult& out) const override {
    general::decode_plain(open, path, threads, out);
  }

  bool load_layers(OIIO::ImageInput* open, const std::string& path, const LayerPlan& plan, std::string& err,
                   Stats* stats) const override {
    return general::load_layers(open, path, plan, err, stats);
  }

  ImageRead read_float(const std::string& path) const override {
    return general::read_float(path);
  }

  std::string version() const override {
    const int version = OIIO::openimageio_version();
    return std::to_string(version / 10000) + "." + std::to_string(version / 100 % 100) + "." +
           std::to_string(version % 100);
  }
};

}  // namespace

const GeneralReader* reader_for(const char* version) {
  static const Reader reader;
  return std::string_view(version) == QV_PROJECT_VERSION ? &reader : nullptr;
}

}  // namespace qv::io::general

extern "C" QV_API const void* quorvel_core_general_reader(const char* version);

const void* quorvel_core_general_reader(const char* version) {
  return qv::io::general::reader_for(version);
}
