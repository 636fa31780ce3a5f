#include <qv/io/exr/layout.h>
#include <qv/io/exr/order.h>
#include <qv/io/exr/read.h>

#include "tests/io/documented.h"
#include "tests/io/files.h"

#include <algorithm>
#include <cstdlib>

#include <sanitizer/lsan_interface.h>

// Files of each kind with any bytes changed, and any bytes as such a file: reading must end in a documented
// result, whatever stands in it. The readers are not instrumented, so nothing would lead from random bytes to
// a valid header; the changes start from whole files instead. What is read of OpenEXR files past the general
// reader is read from memory, which is hundreds of times as fast as from files by every entry.

namespace {

// Shows channels of a part in an image, beside and across its edges.
void show(const qv::io::exr::File& file, const qv::io::exr::Part& part, int width, int height, int x, int y) {
  std::vector<float> pixels(static_cast<size_t>(width * height * 4));
  qv::io::exr::Layer layer;
  layer.width = width;
  layer.height = height;
  layer.x = x;
  layer.y = y;
  layer.pixels = pixels.data();
  const int channels = static_cast<int>(part.channels.size());
  for (int c = 0; c < 4; ++c)
    layer.sources[static_cast<size_t>(c)] = {qv::io::exr::Source::Kind::channel, (channels - 1) * c / 3, 0};
  double ms = 0;
  qv::io::exr::decode_layers(file, part, {&layer, 1}, 1, ms);
}

void read_exr(const std::vector<uint8_t>& bytes) {
  const auto file = qv::io::exr::File::open(bytes);
  if (!file) return;
  for (int index = 0; index < std::min(file->parts(), 4); ++index) {
    const auto part = file->part(index);
    if (!part) continue;
    show(*file, *part, 50, 50, 0, 0);
    show(*file, *part, 9, 9, -5, -17);
    const std::vector<int> order = qv::io::exr::listed_order(part->channels);
    if (order.size() != 4 || int64_t{part->width} * part->height > 1 << 16) continue;
    const size_t values = size_t{4} * static_cast<size_t>(part->width) * static_cast<size_t>(part->height);
    std::vector<uint16_t> halves(values);
    qv::io::exr::decode_halves(*file, {*part, order}, 1, halves.data());
  }
}

const std::filesystem::path folder = support::new_folder();

struct Base {
  std::string ending, bytes;
};

// Of the kinds that tests read.
const std::vector<Base>& bases() {
  static const std::vector<Base> result = [] {
    std::vector<Base> made;
    for (const Kind& kind : kinds()) {
      const int size = kind.formats.size() > 1 ? 40 : 8;
      made.push_back(
          {std::filesystem::path(kind.name).extension(), support::bytes_of(make(folder, kind, size, size))});
    }
    return made;
  }();
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  OIIO::attribute("limits:imagesize_MB", 1);
  OIIO::attribute("exr_threads", -1);
  return 0;
}

// One input in 64, whatever is in it, so that those do not breed: every entry reads the file, which is slow.
bool reads_files(const uint8_t* data, size_t size) {
  uint32_t hash = 2166136261u;
  for (size_t i = 0; i < size; ++i) hash = (hash ^ data[i]) * 16777619u;
  return hash >> 26 == 0;
}

// The first byte chooses the file, by whose ending the reader is chosen, and whether the rest changes some of
// its bytes, three input bytes a change, or takes the place of them all.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const Base& from = bases()[data[0] / 2 % bases().size()];
  std::string bytes(data + 1, data + size);
  if (data[0] % 2 == 0) {
    bytes = from.bytes;
    for (size_t i = 1; i + 2 < size; i += 3)
      bytes[(data[i] | size_t{data[i + 1]} << 8) % bytes.size()] = static_cast<char>(data[i + 2]);
  }
  read_exr({bytes.begin(), bytes.end()});
  if (!reads_files(data, size)) return 0;
  // OpenImageIO 2.4 leaves a text behind whenever libpng jumps out of a damaged file, which only whole stacks
  // would tell from leaks of ours, at twenty times the price of everything else.
  const __lsan::ScopedDisabler leaks_of_others;
  const std::string path = support::write_bytes(folder / ("any" + from.ending), bytes);
  if (!ends_as_documented(path, {{0, 0, 1, 0, 0, 8, 8}}, 8, 8, 1)) std::abort();
  return 0;
}
