#include <qv/io/band_limit.h>
#include <qv/io/general/subimages.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace qv::io::general {

namespace {

std::unique_ptr<exr::File> open_exr(const OIIO::ImageInput& input, const std::string& path) {
  return std::string_view(input.format_name()) == "openexr" ? exr::File::open(path) : nullptr;
}

// Those that the reads name; nothing when one of them is not read here.
std::optional<exr::Subimages> subimages_of(const exr::File& file, OIIO::ImageInput& input,
                                           const std::vector<Read>& reads) {
  exr::Subimages result;
  for (const Read& read : reads) {
    auto found = result.find(read.subimage);
    if (found == result.end()) {
      auto subimage = subimage_of(file, read.subimage, input.spec(read.subimage, 0));
      if (!subimage) return std::nullopt;
      found = result.emplace(read.subimage, std::move(*subimage)).first;
    }
    if (!exr::fits(read, found->second)) return std::nullopt;
  }
  return result;
}

// How many threads a count means.
int thread_count(int threads) {
  if (threads <= 0) OIIO::getattribute("threads", threads);
  if (threads <= 0) threads = static_cast<int>(std::thread::hardware_concurrency());
  return std::max(1, threads);
}

}  // namespace

std::optional<exr::Subimage> subimage_of(const exr::File& file, int subimage, const OIIO::ImageSpec& spec) {
  if (subimage < 0 || subimage >= file.parts()) return std::nullopt;
  std::optional<exr::Part> part = file.part(subimage);
  const bool rows_countable = int64_t{spec.y} + spec.height <= std::numeric_limits<int>::max();
  if (!part || spec.deep || spec.format == OIIO::TypeUnknown || spec.depth != 1 || !rows_countable ||
      spec.x != part->x || spec.y != part->y || spec.width != part->width || spec.height != part->height ||
      spec.channelnames.size() != part->channels.size() ||
      spec.nchannels != static_cast<int>(part->channels.size()))
    return std::nullopt;
  std::map<std::string_view, int> by_name;
  for (size_t c = 0; c < part->channels.size(); ++c)
    by_name.emplace(part->channels[c].name, static_cast<int>(c));
  exr::Subimage result;
  for (const std::string& name : spec.channelnames) {
    const auto found = by_name.find(name);
    if (found == by_name.end()) return std::nullopt;
    result.channels.push_back(found->second);
    by_name.erase(found);
  }
  result.part = std::move(*part);
  return result;
}

bool decode_exr(const OIIO::ImageInput& input, const std::string& path, int threads, float* pixels,
                double& placing_ms) {
  const auto file = open_exr(input, path);
  if (!file || file->parts() != 1) return false;
  const auto subimage = subimage_of(*file, 0, input.spec());
  if (!subimage || subimage->channels.size() != 4) return false;
  return exr::decode(*file, *subimage, thread_count(threads), pixels, placing_ms);
}

bool load_exr(OIIO::ImageInput& input, const std::string& path, const LayerPlan& plan, double& placing_ms) {
  const auto file = open_exr(input, path);
  if (!file) return false;
  const std::optional<exr::Subimages> subimages = subimages_of(*file, input, plan.reads);
  if (!subimages) return false;
  const int threads = std::max(1, band_limit(thread_count(plan.threads)));
  return exr::load(*file, *subimages, plan, threads, placing_ms);
}

}  // namespace qv::io::general
