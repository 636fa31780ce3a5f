#pragma once

#include "tests/support/files.h"
#include "tests/support/images.h"

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <OpenImageIO/deepdata.h>

// A kind of file, and what decode_plain says of it.
struct Kind {
  std::string name;  // with the extension that chooses the format
  std::string compression;
  std::vector<std::string> channels;
  std::vector<OIIO::TypeDesc> formats;  // one a channel, or one for all
  int status = 2;
  int tile = 0;
  int crop = 0;   // how far the data window lies inside the display window
  int parts = 1;  // subimages
  bool deep = false;
};

inline void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

inline std::vector<Kind> kinds() {
  using T = std::vector<OIIO::TypeDesc>;
  const std::vector<std::string> rgba = {"R", "G", "B", "A"};
  const T half = {OIIO::TypeHalf}, real = {OIIO::TypeFloat};
  const T mixed = {OIIO::TypeHalf, OIIO::TypeFloat, OIIO::TypeUInt32, OIIO::TypeHalf};
  return {{"none.exr", "none", rgba, half},
          {"zip.exr", "zip", rgba, half},
          {"piz.exr", "piz", rgba, half},
          {"dwab.exr", "dwab", rgba, half},
          {"float.exr", "zip", rgba, real},
          {"mixed_tiles.exr", "zips", rgba, mixed, 2, 16},
          {"png.png", "zip", rgba, {OIIO::TypeUInt8}},
          {"tiff.tif", "zip", rgba, half},
          {"tiles.tif", "none", rgba, half, 2, 16},
          {"parts.exr", "zip", rgba, half, 3, 0, 0, 3},
          {"crop.exr", "zip", rgba, half, 3, 0, 5},
          {"names.exr", "zip", {"R", "G", "B", "mask"}, real, 3},
          {"one.exr", "rle", {"Z"}, real, 3},
          {"layers.exr", "zip", {"R", "G", "B", "A", "depth.Z", "n.x", "n.y"}, half, 3},
          {"deep.exr", "zips", {"R", "G", "B", "A", "Z"}, real, 3, 0, 0, 1, true}};
}

// Writes one of a kind; 130 rows give bands and several blocks of every codec but one.
inline std::string make(const std::filesystem::path& folder, const Kind& kind, int width = 40,
                        int height = 130) {
  std::vector<OIIO::ImageSpec> specs(
      static_cast<size_t>(kind.parts),
      {width, height, static_cast<int>(kind.channels.size()), kind.formats[0]});
  std::mt19937 random(7);
  for (size_t part = 0; part < specs.size(); ++part) {
    OIIO::ImageSpec& spec = specs[part];
    spec.channelnames = kind.channels;
    if (kind.formats.size() > 1) spec.channelformats = kind.formats;
    spec.deep = kind.deep;
    spec.tile_width = spec.tile_height = kind.tile;
    spec.x = spec.y = kind.crop;
    spec.full_width = width + 2 * kind.crop;
    spec.full_height = height + 2 * kind.crop;
    spec.attribute("compression", kind.compression);
    spec.attribute("oiio:UnassociatedAlpha", 1);
    if (kind.parts > 1) spec.attribute("oiio:subimagename", "part" + std::to_string(part));
  }
  return support::write_image(folder / kind.name, specs, [&](OIIO::ImageOutput& output, size_t part) {
    // Halves, so that every format but the 8-bit one holds them exactly.
    std::vector<float> pixels(static_cast<size_t>(width * height) * kind.channels.size());
    for (size_t i = 0; i < pixels.size(); ++i)
      pixels[i] = static_cast<float>((i / 8 + random() % 16) % 2048) / 1024;
    if (!kind.deep) return output.write_image(OIIO::TypeFloat, pixels.data());
    OIIO::DeepData deep(specs[part]);
    for (int64_t i = 0; i < deep.pixels(); ++i) {
      deep.set_samples(i, static_cast<int>(i % 3));
      for (int s = 0; s < deep.samples(i); ++s) deep.set_deep_value(i, 4, s, static_cast<float>(s));
    }
    return output.write_deep_image(deep);
  });
}

// All pixels of a subimage in one call of the general reader; nothing where that fails.
inline std::optional<std::vector<float>> whole(const std::string& path, int subimage) {
  const auto input = OIIO::ImageInput::open(path);
  const OIIO::ImageSpec spec = input->spec(subimage, 0);
  std::vector<float> pixels(spec.image_pixels() * static_cast<size_t>(spec.nchannels));
  if (input->read_image(subimage, 0, 0, spec.nchannels, OIIO::TypeFloat, pixels.data())) return pixels;
  return std::nullopt;
}
