#pragma once

#include "host/general/general.h"

#include <memory>
#include <string>
#include <utility>

#include <OpenImageIO/imageio.h>

namespace host::general::images {

// A file that a reader of OpenImageIO's has open.
class ReaderFile final : public File {
 public:
  ReaderFile(std::string path, std::unique_ptr<OIIO::ImageInput> input)
      : path_(std::move(path)), input_(std::move(input)) {}

  plates::FileTold told(int most_parts) override;
  std::optional<plates::PartInfo> part(int index) override;
  std::string software() override;
  std::vector<double> values(int part, int begin, int end) override;
  void try_pixels(int part) override;
  void decode_plain(int threads, qv::io::DecodeResult& out) override;
  bool load_layers(const std::vector<qv::io::Read>& reads,
                   const std::vector<std::array<qv::io::Slot, 4>>& slots, int width, int height, int threads,
                   const std::vector<float*>& outs, std::string& error) override;

 private:
  // EXR files tell more of theirs than their reader hands on.
  bool tells_metadata() const;
  void read(int part, int begin, int end, const OIIO::TypeDesc& type, void* to);

  std::string path_;
  std::unique_ptr<OIIO::ImageInput> input_;
};

}  // namespace host::general::images
