#include <qv/io/general/bands.h>
#include <qv/io/general/images.h>
#include <qv/io/general/reader.h>
#include <qv/io/general/scatter.h>
#include <qv/io/general/subimages.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <new>
#include <optional>
#include <span>

namespace qv::io::general {

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

bool matches(const Read& read, const OIIO::ImageSpec& spec) {
  const bool rows_countable = int64_t{spec.y} + spec.height <= std::numeric_limits<int>::max();
  return spec.format != OIIO::TypeUnknown && spec.width == read.width && spec.height == read.height &&
         rows_countable && spec.depth == 1 && read.chbegin >= 0 && read.chbegin < read.chend &&
         read.chend <= spec.nchannels;
}

// Reads the range at `first` and those after it that can share its pass over the file. Returns the
// index of the first one not read; nothing, with a text in `err`, when it fails.
std::optional<size_t> read_some(OIIO::ImageInput& input, const std::string& path, std::span<const Read> reads,
                                size_t first, int threads, LayerPixels& layers, std::string& err) {
  const int subimage = reads[first].subimage;
  const OIIO::ImageSpec spec = input.spec(subimage, 0);
  size_t end = first;
  while (end < reads.size() && reads[end].subimage == subimage && matches(reads[end], spec)) {
    layers[end] = make_layer(input, spec, reads[end]);
    ++end;
    if (!reads_together(input, spec)) break;
  }
  if (end == first) {
    input.geterror();
    err = "plan does not match the file";
    return std::nullopt;
  }
  const LayerGroup group = {reads.subspan(first, end - first), std::span(layers).subspan(first, end - first)};
  const bool empty = spec.width == 0 || spec.height == 0;
  if (!empty && !read_in_bands(input, path, spec, group, bands_of(spec, threads), err)) return std::nullopt;
  return end;
}

bool read_layers(OIIO::ImageInput& input, const std::string& path, const std::vector<Read>& reads,
                 int threads, LayerPixels& layers, std::string& err) {
  layers.resize(reads.size());
  for (size_t next = 0; next < reads.size();) {
    const auto end = read_some(input, path, reads, next, threads, layers, err);
    if (!end) return false;
    next = *end;
  }
  return true;
}

bool fill(OIIO::ImageInput& input, bool closes, const std::string& path, const LayerPlan& plan,
          std::string& err, Stats& stats) {
  const Clock::time_point reading = Clock::now();
  stats.scatter_ms = 0;
  if (load_exr(input, path, plan, stats.scatter_ms)) {
    if (closes) input.close();
    stats.read_ms = ms_since(reading) - stats.scatter_ms;
    return true;
  }
  LayerPixels layers;
  const bool read = read_layers(input, path, plan.reads, plan.threads, layers, err);
  if (closes) input.close();
  stats.read_ms = ms_since(reading);
  if (!read) return false;
  const Clock::time_point scattering = Clock::now();
  scatter(plan.reads, layers, plan.slots, plan.width, plan.height, plan.threads, plan.outs);
  stats.scatter_ms = ms_since(scattering);
  return true;
}

}  // namespace

bool load_layers(OIIO::ImageInput* open, const std::string& path, const LayerPlan& plan, std::string& err,
                 Stats* stats) {
  Stats unused;
  Stats& told = stats ? *stats : unused;
  try {
    err = plan_error(plan);
    if (!err.empty()) return false;
    if (open) {
      open->threads(std::max(plan.threads, 0));
      told.open_ms = 0;
      return fill(*open, false, path, plan, err, told);
    }
    const Clock::time_point opening = Clock::now();
    const auto input = open_reader(path, plan.threads, err);
    told.open_ms = ms_since(opening);
    return input && fill(*input, true, path, plan, err, told);
  } catch (const std::bad_alloc&) {
    err = "out of memory";
  } catch (const std::exception& failure) {
    err = failure.what();
  }
  return false;
}

}  // namespace qv::io::general
