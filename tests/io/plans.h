#pragma once

#include <qv/io/layers.h>

#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// All pixels of a subimage.
struct Part {
  int width, height, channels;
  std::vector<float> pixels;
};

// What a slot of an output shows at a pixel, picked by itself.
inline float shown(const qv::io::Slot& slot, const std::vector<qv::io::Read>& reads,
                   const std::vector<Part>& parts, int x, int y) {
  if (slot.read < 0) return slot.value;
  const qv::io::Read& read = reads[static_cast<size_t>(slot.read)];
  const Part& part = parts[static_cast<size_t>(read.subimage)];
  x -= read.x;
  y -= read.y;
  if (x < 0 || x >= part.width || y < 0 || y >= part.height) return 0;
  return part.pixels[static_cast<size_t>((y * part.width + x) * part.channels + read.chbegin + slot.channel)];
}

// A random plan over one file, given all its pixels, against picking pixel by pixel.
inline void check_random_plan(const std::string& path, const std::vector<Part>& parts, int threads,
                              std::mt19937& random) {
  const auto any = [&](int low, int high) {
    return static_cast<int>(random() % static_cast<unsigned>(high - low + 1)) + low;
  };
  const bool large = any(0, 1) == 1;
  const int w = large ? 640 : any(0, 60), h = large ? 110 : any(0, 150);
  std::vector<qv::io::Read> reads(static_cast<size_t>(any(1, 6)));
  for (qv::io::Read& read : reads) {
    const int subimage = any(0, static_cast<int>(parts.size()) - 1);
    const Part& part = parts[static_cast<size_t>(subimage)];
    const int begin = any(0, part.channels - 1);
    read = {subimage,   begin,      any(begin + 1, part.channels), any(-50, 50), any(-140, 140),
            part.width, part.height};
  }
  std::vector<std::array<qv::io::Slot, 4>> slots(static_cast<size_t>(any(1, 3)));
  for (auto& output : slots)
    for (qv::io::Slot& slot : output) {
      slot = {any(-1, static_cast<int>(reads.size()) - 1), 0, static_cast<float>(any(0, 9))};
      if (slot.read < 0) continue;
      const qv::io::Read& read = reads[static_cast<size_t>(slot.read)];
      slot.channel = any(0, read.chend - read.chbegin - 1);
    }
  const std::vector<float> untouched(static_cast<size_t>(w * h * 4), -1);
  std::vector<std::vector<float>> pixels(slots.size(), untouched);
  std::vector<float*> outs;
  for (auto& each : pixels) outs.push_back(each.data());
  std::string err;
  ASSERT_TRUE(qv::io::load_layers(path, reads, slots, w, h, threads, outs, err, nullptr)) << err;
  for (size_t o = 0; o < slots.size(); ++o)
    for (int i = 0; i < w * h * 4; ++i) {
      const float got = pixels[o][static_cast<size_t>(i)];
      const float wanted = shown(slots[o][static_cast<size_t>(i % 4)], reads, parts, i / 4 % w, i / 4 / w);
      if (std::memcmp(&got, &wanted, sizeof got) != 0)
        FAIL() << "output " << o << " float " << i << " of " << w << " x " << h << ": " << got << ", not "
               << wanted;
    }
}
