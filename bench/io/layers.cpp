#include <qv/io/layers.h>

#include "bench/io/benches.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include <OpenImageIO/imageio.h>
#include <malloc.h>

namespace {

constexpr int width = 1920, height = 1080, layers = 20;
constexpr size_t pixels = size_t{width} * height;
const std::vector<int> wanted = {0, 5, 10, 15};

struct Outputs {
  std::vector<std::vector<float>> buffers{wanted.size(), std::vector<float>(pixels * 4)};
  std::vector<float*> pointers;
  Outputs() {
    for (auto& buffer : buffers) pointers.push_back(buffer.data());
  }
};

void ours(const std::string& path, int threads, const char* bands, Outputs& out) {
  std::vector<qv::io::Read> reads;
  std::vector<std::array<qv::io::Slot, 4>> slots;
  for (const int layer : wanted) {
    const auto index = static_cast<int>(reads.size());
    reads.push_back({0, layer * 4, layer * 4 + 4, 0, 0, width, height});
    slots.push_back({{{index, 0, 0}, {index, 1, 0}, {index, 2, 0}, {index, 3, 0}}});
  }
  bands ? ::setenv("QUORVEL_NATIVE_IO_BANDS", bands, 1) : ::unsetenv("QUORVEL_NATIVE_IO_BANDS");
  std::string err;
  if (!qv::io::load_layers(path, reads, slots, width, height, threads, out.pointers, err, nullptr))
    std::abort();
}

void whole_and_pick(const std::string& path, Outputs& out) {
  const auto input = OIIO::ImageInput::open(path);
  const std::unique_ptr<float[]> all(new float[pixels * layers * 4]);
  input->read_image(0, 0, 0, layers * 4, OIIO::TypeFloat, all.get());
  for (size_t k = 0; k < wanted.size(); ++k)
    for (size_t i = 0; i < pixels; ++i)
      std::memcpy(out.pointers[k] + 4 * i, all.get() + (i * layers + static_cast<size_t>(wanted[k])) * 4, 16);
}

void layer_by_layer(const std::string& path, Outputs& out) {
  const auto input = OIIO::ImageInput::open(path);
  for (size_t k = 0; k < wanted.size(); ++k)
    input->read_image(0, 0, wanted[k] * 4, wanted[k] * 4 + 4, OIIO::TypeFloat, out.pointers[k]);
}

// What a host does that knows the file: its rows of a block at a time, every layer of them, through one
// reader.
void one_band(const std::string& path, Outputs& out) {
  const auto input = OIIO::ImageInput::open(path);
  constexpr int block = 16;
  for (int y = 0; y < height; y += block)
    for (size_t k = 0; k < wanted.size(); ++k)
      input->read_scanlines(0, 0, y, std::min(y + block, height), 0, wanted[k] * 4, wanted[k] * 4 + 4,
                            OIIO::TypeFloat, out.pointers[k] + size_t{width} * 4 * static_cast<size_t>(y));
}

// A field of /proc/self/status in MiB.
double status_mib(const std::string& field) {
  std::ifstream file("/proc/self/status");
  for (std::string word; file >> word;) {
    double kib = 0;
    if (word == field + ":" && file >> kib) return kib / 1024;
  }
  return 0;
}

}  // namespace

void bench_layers(bench::Report& report) {
  const Folder folder;
  const std::string path = folder.image("zip", width, height, layers);
  OIIO::attribute("exr_threads", 2);
  Outputs mine, theirs;
  whole_and_pick(path, theirs);
  ours(path, 2, nullptr, mine);
  report.require(mine.buffers == theirs.buffers, "load_layers and read_image");
  const std::string label = "layers, 4 of 20, 1920x1080 zip";
  const int rounds = report.quick() ? 1 : 4;
  one_band(path, theirs);
  report.require(mine.buffers == theirs.buffers, "load_layers and read_scanlines");
  const auto bands =
      bench::time_in_turn(rounds, {[&] { ours(path, 2, nullptr, mine); }, [&] { ours(path, 2, "0", mine); },
                                   [&] { one_band(path, theirs); }});
  report.row(label + ", 2 threads, to one band of OpenImageIO", "ms", bench::Better::less,
             bands[0].median * 1e3, {{"one band", bands[2].median * 1e3}}, 4);
  report.row(label + ", 1 thread, to one band of OpenImageIO", "ms", bench::Better::less,
             bands[1].median * 1e3, {{"one band", bands[2].median * 1e3}});
  const auto peers = bench::time_in_turn(
      rounds / 2 + 1, {[&] { ours(path, 2, nullptr, mine); }, [&] { whole_and_pick(path, theirs); },
                       [&] { layer_by_layer(path, theirs); }});
  report.row(label + ", 2 threads, to OpenImageIO", "ms", bench::Better::less, peers[0].least * 1e3,
             {{"whole and pick", peers[1].least * 1e3}, {"layer by layer", peers[2].least * 1e3}}, 1.7);

  ::malloc_trim(0);  // what earlier calls left would hide a part of the peak
  // The kernel counts the peak from the last write of 5 on.
  std::ofstream("/proc/self/clear_refs") << 5;
  const double before = status_mib("VmRSS");
  ours(path, 2, nullptr, mine);
  const double outputs = static_cast<double>(pixels * 4 * 4 * wanted.size()) / (1 << 20);
  report.row("layers, peak with the outputs", "MiB", bench::Better::less,
             status_mib("VmHWM") - before + outputs, {{"read buffers and outputs", 2 * outputs}}, 0.91);
}
