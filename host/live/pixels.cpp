#include "host/live/pixels.h"

#include "host/writer/exr/values.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace host::live {
namespace {

constexpr uint32_t infinite_half = 0x7c00;

// A half's bits as a float without sign of `bits` bits after the point: rounded, ties to even.
template <unsigned bits>
uint32_t narrowed(uint16_t half) {
  constexpr unsigned shift = 10 - bits;
  constexpr uint32_t most = (infinite_half >> shift) - 1;
  const uint32_t magnitude = half & 0x7fffU;
  const uint32_t rounded =
      std::min((magnitude + (1U << (shift - 1)) - 1 + (magnitude >> shift & 1U)) >> shift, most);
  const uint32_t finite = half == magnitude ? rounded : 0;
  // A NaN may have its bits where they are cut off.
  const uint32_t special = (magnitude > infinite_half ? 1U << (bits - 1) : 0) | infinite_half >> shift;
  const bool keeps = magnitude > infinite_half || half == infinite_half;
  return keeps ? special : finite;
}

// The same for halves that are finite, as compilers make it of vectors.
template <int bits, size_t size>
void narrow_finite(const std::array<int16_t, size>& halves, std::array<int16_t, size>& to) {
  constexpr int shift = 10 - bits;
  constexpr auto most = static_cast<int16_t>((infinite_half >> shift) - 1);
  for (size_t i = 0; i < size; ++i) {
    const int16_t half = std::max<int16_t>(halves[i], 0);
    const auto rounded = static_cast<int16_t>((half + (1 << (shift - 1)) - 1 + (half >> shift & 1)) >> shift);
    to[i] = std::min(rounded, most);
  }
}

void pack_words(const float* from, size_t count, uint32_t* to) {
  constexpr size_t group = 64;
  std::array<uint16_t, 4 * group> halves{};
  std::array<int16_t, 4 * group> bits{}, wide{}, narrow{};
  const auto word = [](uint32_t red, uint32_t green, uint32_t blue) {
    return red | green << 11 | blue << 22;
  };
  for (size_t begin = 0; begin < count; begin += group) {
    const size_t n = std::min(group, count - begin);
    const bool special = writer::exr::to_halves(from + 4 * begin, 1, 4 * n, halves.data());
    for (size_t i = 0; special && i < n; ++i) {
      const uint16_t* const pixel = &halves[4 * i];
      to[begin + i] = word(narrowed<6>(pixel[0]), narrowed<6>(pixel[1]), narrowed<5>(pixel[2]));
    }
    if (special) continue;
    std::memcpy(bits.data(), halves.data(), sizeof bits);
    narrow_finite<6>(bits, wide);
    narrow_finite<5>(bits, narrow);
    for (size_t i = 0; i < n; ++i) {
      to[begin + i] = word(static_cast<uint32_t>(wide[4 * i]), static_cast<uint32_t>(wide[4 * i + 1]),
                           static_cast<uint32_t>(narrow[4 * i + 2]));
    }
  }
}

void pack_bytes(const float* from, size_t count, uint8_t* to) {
  for (size_t i = 0; i < 4 * count; ++i) {
    // In this order a NaN becomes 0.
    const float held = std::min(std::max(0.0F, from[i]), 1.0F);
    const float up = held * 255.0F + 0.5F;
    to[i] = static_cast<uint8_t>(up);
  }
}

}  // namespace

const char* pixels_name(session::Pixels pixels) {
  constexpr std::array names = {"rgba16f", "r11g11b10f", "rgba8"};
  return names.at(static_cast<size_t>(pixels));
}

size_t pixel_bytes(session::Pixels pixels) {
  return pixels == session::Pixels::rgba16f ? 8 : 4;
}

void pack_pixels(session::Pixels pixels, const float* from, size_t count, void* to) {
  if (pixels == session::Pixels::rgba16f) {
    writer::exr::to_halves(from, 1, 4 * count, static_cast<uint16_t*>(to));
  } else if (pixels == session::Pixels::r11g11b10f) {
    pack_words(from, count, static_cast<uint32_t*>(to));
  } else {
    pack_bytes(from, count, static_cast<uint8_t*>(to));
  }
}

}  // namespace host::live
