#pragma once

#include <qv/export.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

// What uniform_set looks at in its caller's own code: a value that is there already shall cost next
// to nothing beside a GL call, of which a call into the library would be a good part. Written by the
// registry alone; a host calls uniform_set. GL thread only.
namespace qv::gpu::uniform_cache {

// The value last uploaded to one location; a count of 0 remembers nothing.
struct Slot {
  int32_t count = 0;
  float values[16] = {};
};

// The program used last and its slots, for values come in runs for one program.
struct Recent {
  static constexpr uint64_t none = uint64_t{1} << 32;  // no program's name, so one comparison suffices
  uint64_t program = none;
  const Slot* slots = nullptr;
  uint64_t slot_count = 0;
};

QV_API extern Recent recent;

// Whether a slot has this value, byte for byte. Of the usual sizes each is compared with as many
// instructions as it needs.
inline bool holds(const Slot& slot, const float* values, int32_t count) {
  if (slot.count != count) return false;
  const void* const a = slot.values;
  const void* const b = values;
  switch (count) {
    case 1:
      return std::memcmp(a, b, sizeof(float)) == 0;
    case 2:
      return std::memcmp(a, b, 2 * sizeof(float)) == 0;
    case 3:
      return std::memcmp(a, b, 3 * sizeof(float)) == 0;
    case 4:
      return std::memcmp(a, b, 4 * sizeof(float)) == 0;
    default:
      return count <= 0 || std::memcmp(a, b, sizeof(float) * static_cast<size_t>(std::min(count, 16))) == 0;
  }
}

// Whether the program used last is this one and has this value; a negative location is beyond all.
inline bool holds(uint32_t program, int32_t location, const float* values, int32_t count) {
  const auto index = static_cast<uint32_t>(location);
  return program == recent.program && index < recent.slot_count && holds(recent.slots[index], values, count);
}

// What uniform_set does when the value is not found there at once.
QV_API void set(uint32_t program, int32_t location, const float* values, int32_t count);

}  // namespace qv::gpu::uniform_cache
