#include <qv/io/bands.h>
#include <qv/io/layers.h>
#include <qv/io/pixel_memory.h>
#include <qv/io/reader.h>
#include <qv/io/scatter.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>

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
  return spec.format != OIIO::TypeUnknown && spec.width == read.width && spec.height == read.height &&
         spec.depth == 1 && read.chbegin >= 0 && read.chbegin < read.chend && read.chend <= spec.nchannels;
}

bool read_layer(OIIO::ImageInput& input, const std::string& path, const Read& read, int threads,
                std::unique_ptr<float[]>& layer, std::string& err) {
  const OIIO::ImageSpec spec = input.spec(read.subimage, 0);
  if (!matches(read, spec)) {
    input.geterror();
    err = "plan does not match the file";
    return false;
  }
  const std::optional<size_t> count = float_count(read.width, read.height, read.chend - read.chbegin);
  if (!count) throw std::bad_alloc();
  layer = uninitialised_floats(*count);
  return *count == 0 || read_in_bands(input, path, spec, read, bands_of(spec, threads), layer.get(), err);
}

bool read_layers(OIIO::ImageInput& input, const std::string& path, const std::vector<Read>& reads,
                 int threads, LayerPixels& layers, std::string& err) {
  layers.resize(reads.size());
  for (size_t i = 0; i < reads.size(); ++i) {
    if (!read_layer(input, path, reads[i], threads, layers[i], err)) return false;
  }
  return true;
}

bool load(const std::string& path, const std::vector<Read>& reads,
          const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
          const std::vector<float*>& outs, std::string& err, Stats& stats) {
  const Clock::time_point opening = Clock::now();
  const auto input = open_reader(path, threads, err);
  if (!input) return false;
  const Clock::time_point reading = Clock::now();
  stats.open_ms = ms_since(opening);
  LayerPixels layers;
  const bool read = read_layers(*input, path, reads, threads, layers, err);
  input->close();
  stats.read_ms = ms_since(reading);
  if (!read) return false;
  const Clock::time_point scattering = Clock::now();
  scatter(reads, layers, slots, width, height, threads, outs);
  stats.scatter_ms = ms_since(scattering);
  return true;
}

}  // namespace

bool load_layers(const std::string& path, const std::vector<Read>& reads,
                 const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
                 const std::vector<float*>& outs, std::string& err, Stats* stats) {
  Stats unused;
  try {
    err = plan_error(reads, slots, width, height, outs.size());
    return err.empty() &&
           load(path, reads, slots, width, height, threads, outs, err, stats ? *stats : unused);
  } catch (const std::bad_alloc&) {
    err = "out of memory";
  } catch (const std::exception& failure) {
    err = failure.what();
  }
  return false;
}

}  // namespace qv::io
