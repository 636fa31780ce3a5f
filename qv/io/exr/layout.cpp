#include <qv/io/exr/layout.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <tuple>

namespace qv::io::exr {

namespace {

// Layers of one output that share their place and their part.
using Place = std::tuple<int, int64_t, int64_t>;

struct Output {
  const std::vector<Read>& reads;
  const std::array<Slot, 4>& slots;
  float* pixels = nullptr;
  int64_t width = 0, height = 0;

  std::vector<Place> places() const {
    std::vector<Place> result;
    for (const Slot& slot : slots) {
      if (slot.read < 0) continue;
      const Place place = place_of(slot);
      if (std::find(result.begin(), result.end(), place) == result.end()) result.push_back(place);
    }
    return result;
  }

  Place place_of(const Slot& slot) const {
    const Read& read = reads[static_cast<size_t>(slot.read)];
    return {read.subimage, read.x, read.y};
  }

  // The components that lie at `place`, and the constants if they are to be written with them.
  Layer layer(const Place& place, const Subimage& subimage, bool constants) const {
    Layer result;
    result.pixels = pixels;
    result.width = width;
    result.height = height;
    result.x = std::get<1>(place);
    result.y = std::get<2>(place);
    for (size_t c = 0; c < 4; ++c) {
      const Slot& slot = slots[c];
      if (slot.read < 0) {
        if (constants) result.sources[c] = {Source::Kind::value, 0, slot.value};
      } else if (place_of(slot) == place) {
        const int channel = reads[static_cast<size_t>(slot.read)].chbegin + slot.channel;
        const int in_part = subimage.channels[static_cast<size_t>(channel)];
        result.sources[c] = {Source::Kind::channel, in_part, 0};
      }
    }
    return result;
  }

  // Pixels where no layer lies.
  void fill(int64_t row, int64_t begin, int64_t end) const {
    float* to = pixels + (row * width + begin) * 4;
    for (int64_t x = begin; x < end; ++x)
      for (const Slot& slot : slots) *to++ = slot.read < 0 ? slot.value : 0;
  }

  void fill_around(const Layer& layer, const Part& part) const {
    const int64_t left = std::clamp<int64_t>(layer.x, 0, width);
    const int64_t right = std::clamp<int64_t>(layer.x + part.width, 0, width);
    for (int64_t row = 0; row < height; ++row) {
      const bool covered = row >= layer.y && row < layer.y + part.height && left < right;
      fill(row, 0, covered ? left : width);
      if (covered) fill(row, right, width);
    }
  }

  void fill_all() const {
    for (int64_t row = 0; row < height; ++row) fill(row, 0, width);
  }
};

// An image that is all of a subimage of four channels.
Layer whole(const Subimage& subimage) {
  Layer layer;
  layer.width = subimage.part.width;
  layer.height = subimage.part.height;
  for (size_t c = 0; c < 4; ++c) layer.sources[c] = {Source::Kind::channel, subimage.channels[c], 0};
  return layer;
}

}  // namespace

bool fits(const Read& read, const Subimage& subimage) {
  return read.width == subimage.part.width && read.height == subimage.part.height && read.chbegin >= 0 &&
         read.chbegin < read.chend && read.chend <= static_cast<int64_t>(subimage.channels.size());
}

bool decode(const File& file, const Subimage& subimage, int threads, float* pixels, double& placing_ms) {
  Layer layer = whole(subimage);
  layer.pixels = pixels;
  return decode_layers(file, subimage.part, {&layer, 1}, threads, placing_ms);
}

bool decode_halves(const File& file, const Subimage& subimage, int threads, uint16_t* pixels) {
  const auto is_half = [](const Channel& channel) { return channel.type == Type::half; };
  if (!std::all_of(subimage.part.channels.begin(), subimage.part.channels.end(), is_half)) return false;
  Layer layer = whole(subimage);
  layer.halves = pixels;
  double placing_ms = 0;
  return decode_layers(file, subimage.part, {&layer, 1}, threads, placing_ms);
}

bool load(const File& file, const Subimages& subimages, const LayerPlan& plan, int threads,
          double& placing_ms) {
  std::map<int, std::vector<Layer>> layers;
  for (size_t o = 0; o < plan.outs.size(); ++o) {
    const Output output = {plan.reads, plan.slots[o], plan.outs[o], plan.width, plan.height};
    const std::vector<Place> places = output.places();
    const bool alone = places.size() == 1;
    if (!alone) output.fill_all();
    for (const Place& place : places) {
      const Subimage& subimage = subimages.at(std::get<0>(place));
      layers[std::get<0>(place)].push_back(output.layer(place, subimage, alone));
      if (alone) output.fill_around(layers[std::get<0>(place)].back(), subimage.part);
    }
  }
  return std::all_of(layers.begin(), layers.end(), [&](const auto& each) {
    return decode_layers(file, subimages.at(each.first).part, each.second, threads, placing_ms);
  });
}

}  // namespace qv::io::exr
