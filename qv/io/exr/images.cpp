#include <qv/io/exr/images.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <span>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>

namespace qv::io::exr {

namespace {

std::unique_ptr<File> open_exr(const OIIO::ImageInput& input, const std::string& path) {
  return std::string_view(input.format_name()) == "openexr" ? File::open(path) : nullptr;
}

bool fits(const Read& read, const Subimage& subimage) {
  return read.width == subimage.part.width && read.height == subimage.part.height && read.chbegin >= 0 &&
         read.chbegin < read.chend && read.chend <= static_cast<int64_t>(subimage.channels.size());
}

using Subimages = std::map<int, Subimage>;

// Those that the reads name; nothing when one of them is not read here.
std::optional<Subimages> subimages_of(const File& file, OIIO::ImageInput& input,
                                      const std::vector<Read>& reads) {
  Subimages result;
  for (const Read& read : reads) {
    auto found = result.find(read.subimage);
    if (found == result.end()) {
      auto subimage = subimage_of(file, read.subimage, input.spec(read.subimage, 0));
      if (!subimage) return std::nullopt;
      found = result.emplace(read.subimage, std::move(*subimage)).first;
    }
    if (!fits(read, found->second)) return std::nullopt;
  }
  return result;
}

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

}  // namespace

std::optional<Subimage> subimage_of(const File& file, int subimage, const OIIO::ImageSpec& spec) {
  if (subimage < 0 || subimage >= file.parts()) return std::nullopt;
  std::optional<Part> part = file.part(subimage);
  const bool rows_countable = int64_t{spec.y} + spec.height <= std::numeric_limits<int>::max();
  if (!part || spec.deep || spec.format == OIIO::TypeUnknown || spec.depth != 1 || !rows_countable ||
      spec.x != part->x || spec.y != part->y || spec.width != part->width || spec.height != part->height ||
      spec.channelnames.size() != part->channels.size() ||
      spec.nchannels != static_cast<int>(part->channels.size()))
    return std::nullopt;
  std::map<std::string_view, int> by_name;
  for (size_t c = 0; c < part->channels.size(); ++c)
    by_name.emplace(part->channels[c].name, static_cast<int>(c));
  Subimage result;
  for (const std::string& name : spec.channelnames) {
    const auto found = by_name.find(name);
    if (found == by_name.end()) return std::nullopt;
    result.channels.push_back(found->second);
    by_name.erase(found);
  }
  result.part = std::move(*part);
  return result;
}

int thread_count(int threads) {
  if (threads <= 0) OIIO::getattribute("threads", threads);
  if (threads <= 0) threads = static_cast<int>(std::thread::hardware_concurrency());
  return std::max(1, threads);
}

bool decode(const OIIO::ImageInput& input, const std::string& path, int threads, float* pixels,
            double& placing_ms) {
  const auto file = open_exr(input, path);
  if (!file || file->parts() != 1) return false;
  const auto subimage = subimage_of(*file, 0, input.spec());
  if (!subimage || subimage->channels.size() != 4) return false;
  Layer layer;
  layer.pixels = pixels;
  layer.width = subimage->part.width;
  layer.height = subimage->part.height;
  for (size_t c = 0; c < 4; ++c) layer.sources[c] = {Source::Kind::channel, subimage->channels[c], 0};
  return decode_layers(*file, subimage->part, {&layer, 1}, thread_count(threads), placing_ms);
}

bool load(OIIO::ImageInput& input, const std::string& path, const std::vector<Read>& reads,
          const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
          const std::vector<float*>& outs, double& placing_ms) {
  const auto file = open_exr(input, path);
  if (!file) return false;
  const std::optional<Subimages> subimages = subimages_of(*file, input, reads);
  if (!subimages) return false;
  std::map<int, std::vector<Layer>> layers;
  for (size_t o = 0; o < outs.size(); ++o) {
    const Output output = {reads, slots[o], outs[o], width, height};
    const std::vector<Place> places = output.places();
    const bool alone = places.size() == 1;
    if (!alone) output.fill_all();
    for (const Place& place : places) {
      const Subimage& subimage = subimages->at(std::get<0>(place));
      layers[std::get<0>(place)].push_back(output.layer(place, subimage, alone));
      if (alone) output.fill_around(layers[std::get<0>(place)].back(), subimage.part);
    }
  }
  return std::all_of(layers.begin(), layers.end(), [&](const auto& each) {
    return decode_layers(*file, subimages->at(each.first).part, each.second, threads, placing_ms);
  });
}

}  // namespace qv::io::exr
