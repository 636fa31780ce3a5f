#include <qv/io/bands.h>
#include <qv/io/exr/images.h>
#include <qv/io/layers.h>
#include <qv/io/reader.h>
#include <qv/io/scatter.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <new>
#include <optional>
#include <span>

namespace qv::io {

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

bool slot_exists(const Slot& slot, const std::vector<Read>& reads) {
  if (slot.read < 0) return true;
  const auto index = static_cast<size_t>(slot.read);
  return index < reads.size() && slot.channel >= 0 &&
         slot.channel < int64_t{reads[index].chend} - reads[index].chbegin;
}

// What is wrong with the plan in itself; empty when nothing is.
std::string plan_error(const std::vector<Read>& reads, const std::vector<std::array<Slot, 4>>& slots,
                       int width, int height, size_t outs) {
  if (outs != slots.size() || width < 0 || height < 0) return "bad plan";
  for (const auto& output : slots) {
    const auto exists = [&](const Slot& slot) { return slot_exists(slot, reads); };
    if (!std::all_of(output.begin(), output.end(), exists)) return "bad slot";
  }
  return {};
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

// What is wanted, and where it goes.
struct Order {
  const std::string& path;
  const std::vector<Read>& reads;
  const std::vector<std::array<Slot, 4>>& slots;
  int width, height, threads;
  const std::vector<float*>& outs;
};

bool fill(OIIO::ImageInput& input, bool closes, const Order& order, std::string& err, Stats& stats) {
  const auto& [path, reads, slots, width, height, threads, outs] = order;
  const Clock::time_point reading = Clock::now();
  stats.scatter_ms = 0;
  const int workers = std::max(1, band_limit(exr::thread_count(threads)));
  if (exr::load(input, path, reads, slots, width, height, workers, outs, stats.scatter_ms)) {
    if (closes) input.close();
    stats.read_ms = ms_since(reading) - stats.scatter_ms;
    return true;
  }
  LayerPixels layers;
  const bool read = read_layers(input, path, reads, threads, layers, err);
  if (closes) input.close();
  stats.read_ms = ms_since(reading);
  if (!read) return false;
  const Clock::time_point scattering = Clock::now();
  scatter(reads, layers, slots, width, height, threads, outs);
  stats.scatter_ms = ms_since(scattering);
  return true;
}

// Through a file that is open, or else one that is opened here.
bool load(OIIO::ImageInput* open, const Order& order, std::string& err, Stats* stats) {
  Stats unused;
  Stats& told = stats ? *stats : unused;
  try {
    err = plan_error(order.reads, order.slots, order.width, order.height, order.outs.size());
    if (!err.empty()) return false;
    if (open) {
      open->threads(std::max(order.threads, 0));
      told.open_ms = 0;
      return fill(*open, false, order, err, told);
    }
    const Clock::time_point opening = Clock::now();
    const auto input = open_reader(order.path, order.threads, err);
    told.open_ms = ms_since(opening);
    return input && fill(*input, true, order, err, told);
  } catch (const std::bad_alloc&) {
    err = "out of memory";
  } catch (const std::exception& failure) {
    err = failure.what();
  }
  return false;
}

}  // namespace

bool load_layers(const std::string& path, const std::vector<Read>& reads,
                 const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
                 const std::vector<float*>& outs, std::string& err, Stats* stats) {
  return load(nullptr, {path, reads, slots, width, height, threads, outs}, err, stats);
}

bool load_layers(OIIO::ImageInput& input, const std::string& path, const std::vector<Read>& reads,
                 const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
                 const std::vector<float*>& outs, std::string& err, Stats* stats) {
  return load(&input, {path, reads, slots, width, height, threads, outs}, err, stats);
}

}  // namespace qv::io
