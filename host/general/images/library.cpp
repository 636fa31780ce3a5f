#include "host/general/general.h"
#include "host/general/images/encode.h"
#include "host/general/images/file.h"
#include "host/general/offer.h"

#include <memory>
#include <utility>

#include <OpenImageIO/imageio.h>

namespace host::general::images {
namespace {

class ReaderLibrary final : public Library {
 public:
  std::unique_ptr<File> open(const std::string& path, std::string& error) const override {
    auto input = OIIO::ImageInput::open(path);
    if (input) return std::make_unique<ReaderFile>(path, std::move(input));
    error = OIIO::geterror();
    return nullptr;
  }

  qv::ImageRead read(const std::string& path) const override {
    return qv::oiio_read_float(path);
  }

  void encode(const writer::WriteJob& job, const writer::Raster& raster,
              std::vector<unsigned char>& content) const override {
    images::encode(job, raster, content);
  }

  void hold_threads(int threads) const override {
    OIIO::attribute("threads", threads);
    OIIO::attribute("exr_threads", threads);
  }
};

}  // namespace
}  // namespace host::general::images

// The one function that the module shows.
extern "C" __attribute__((visibility("default"))) const host::general::Offer* quorvel_host_images() {
  static const host::general::images::ReaderLibrary library;
  static const host::general::Offer offer = {host::general::offer_version, &library};
  return &offer;
}
