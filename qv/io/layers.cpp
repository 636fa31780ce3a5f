#include <qv/io/general_reader.h>
#include <qv/io/layers.h>

#include <exception>

namespace qv::io {

namespace {

bool load(OIIO::ImageInput* open, const std::string& path, const LayerPlan& plan, std::string& err,
          Stats* stats) {
  try {
    return general_reader().load_layers(open, path, plan, err, stats);
  } catch (const std::exception& failure) {
    err = failure.what();
    return false;
  }
}

}  // namespace

bool load_layers(const std::string& path, const std::vector<Read>& reads,
                 const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
                 const std::vector<float*>& outs, std::string& err, Stats* stats) {
  return load(nullptr, path, {reads, slots, width, height, threads, outs}, err, stats);
}

bool load_layers(OIIO::ImageInput& input, const std::string& path, const std::vector<Read>& reads,
                 const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
                 const std::vector<float*>& outs, std::string& err, Stats* stats) {
  return load(&input, path, {reads, slots, width, height, threads, outs}, err, stats);
}

}  // namespace qv::io
