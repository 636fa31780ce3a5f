#include "host/decode/read_layers.h"

#include <qv/io/image_read.h>
#include <qv/io/layers.h>

#include "host/decode/read_ids.h"
#include "host/general/general.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <new>
#include <stdexcept>

namespace host::decode {
namespace {

// What a channel of a layer is where the file has none.
float absent(size_t channel) {
  return channel == 3 ? 1.0F : 0.0F;
}

// Reads layers that have windows of one size.
class LayerPlan {
 public:
  LayerPlan(int64_t width, int64_t height)
      : width_(static_cast<int>(width)), height_(static_cast<int>(height)) {}

  // All layers of a subimage are one range of channels, so that its blocks are decoded once.
  void add(const plates::Layer& layer, float* out) {
    qv::io::Read& read = read_of(layer.subimage);
    for (const int channel : layer.channels) {
      if (channel < 0) continue;
      read.chbegin = std::min(read.chbegin, channel);
      read.chend = std::max(read.chend, channel + 1);
    }
    layers_.push_back(&layer);
    outs_.push_back(out);
  }

  void run(const std::string& path, plates::OpenFile& file, int threads) const {
    std::vector<std::array<qv::io::Slot, 4>> slots;
    for (const plates::Layer* layer : layers_) slots.push_back(slots_of(*layer));
    if (file.exr && file.exr->load_layers(reads_, slots, width_, height_, threads, outs_, nullptr)) return;
    std::string error;
    if (!file.by_general().load_layers(reads_, slots, width_, height_, threads, outs_, error))
      throw std::runtime_error(path + ": " + error);
  }

 private:
  qv::io::Read& read_of(int subimage) {
    const auto known = places_.find(subimage);
    if (known != places_.end()) return reads_[known->second];
    places_[subimage] = reads_.size();
    qv::io::Read read;
    read.subimage = subimage;
    read.chbegin = std::numeric_limits<int>::max();
    read.width = width_;
    read.height = height_;
    reads_.push_back(read);
    return reads_.back();
  }

  std::array<qv::io::Slot, 4> slots_of(const plates::Layer& layer) const {
    const size_t place = places_.at(layer.subimage);
    std::array<qv::io::Slot, 4> slots;
    for (size_t i = 0; i < slots.size(); ++i) {
      slots[i].value = absent(i);
      if (layer.channels[i] < 0) continue;
      slots[i].read = static_cast<int>(place);
      slots[i].channel = layer.channels[i] - reads_[place].chbegin;
    }
    return slots;
  }

  int width_;
  int height_;
  std::vector<qv::io::Read> reads_;
  std::map<int, size_t> places_;  // of subimages among the reads
  std::vector<const plates::Layer*> layers_;
  std::vector<float*> outs_;
};

Pixels read_general(const std::string& path, const plates::Layer& layer) {
  const qv::ImageRead image = general::library().read(path);
  if (!image.error.empty()) throw std::runtime_error(path + ": " + image.error);
  const Box& window = layer.extent.window;
  const int most = *std::max_element(layer.channels.begin(), layer.channels.end());
  if (image.width != box_width(window) || image.height != box_height(window) || most >= image.channels) {
    throw std::runtime_error(path + ": the file changed while it was being read");
  }
  const auto rgba = pixel_buffer(window);
  const size_t pixels = static_cast<size_t>(image.width) * static_cast<size_t>(image.height);
  const auto stride = static_cast<size_t>(image.channels);
  for (size_t channel = 0; channel < 4; ++channel) {
    const int from = layer.channels[channel];
    float* out = rgba.get() + channel;
    if (from < 0) {
      for (size_t i = 0; i < pixels; ++i) out[i * 4] = absent(channel);
      continue;
    }
    const float* in = image.pixels.data() + from;
    for (size_t i = 0; i < pixels; ++i) out[i * 4] = in[i * stride];
  }
  return {layer.extent, rgba, {}};
}

}  // namespace

std::shared_ptr<float[]> pixel_buffer(const Box& window) {
  const auto width = static_cast<uint64_t>(box_width(window));
  const auto height = static_cast<uint64_t>(box_height(window));
  if (height != 0 && width > std::numeric_limits<size_t>::max() / sizeof(float) / 4 / height) {
    throw std::bad_alloc();
  }
  return std::shared_ptr<float[]>(new float[static_cast<size_t>(width * height * 4)]);
}

std::vector<Pixels> read_layers(const std::string& path, std::shared_ptr<plates::OpenFile> file,
                                const std::vector<plates::Layer>& layers, bool layered, int threads) {
  std::vector<Pixels> results;
  if (!file) file = plates::open_file(path);
  if (!layered && !file->exr && layers.size() == 1 && !layers[0].ids) return {read_general(path, layers[0])};
  std::map<std::pair<int64_t, int64_t>, LayerPlan> plans;
  for (const plates::Layer& layer : layers) {
    if (layer.ids) {
      results.push_back(read_ids(path, *file, layer));
      continue;
    }
    const auto buffer = pixel_buffer(layer.extent.window);
    const std::pair size(box_width(layer.extent.window), box_height(layer.extent.window));
    plans.try_emplace(size, size.first, size.second).first->second.add(layer, buffer.get());
    results.push_back({layer.extent, buffer, {}});
  }
  for (const auto& [size, plan] : plans) plan.run(path, *file, threads);
  return results;
}

}  // namespace host::decode
