#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/name_map.h>
#include <qv/gpu/registry.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <vector>

namespace qv::gpu {

namespace uniform_cache {

Recent recent;
Stats counters;

}  // namespace uniform_cache

namespace {

using uniform_cache::counters;
using uniform_cache::recent;
using CacheSlot = uniform_cache::Slot;

struct Program {
  NameMap<UniformInfo> uniforms;
  std::vector<CacheSlot> cache;
  // Grows with every upload and every forgetting, so that an equal `memo_revision` says that
  // nothing has happened to the program's uniforms since the last batch.
  uint64_t revision = 0;
  uint64_t memo_revision = 0;
  std::vector<Pending> last_many;
  uint64_t block_key = 0;
};

static_assert(sizeof(Pending) == 72, "batches are compared as bytes, padding included");

std::unordered_map<uint32_t, Program>& programs() {
  static std::unordered_map<uint32_t, Program> map;
  return map;
}

// The entry of recent.program. Entries do not move; only program_forget invalidates them.
Program* recent_entry = nullptr;

void make_recent(uint32_t program, Program* entry) {
  recent_entry = entry;
  recent = {program, entry->cache.data(), entry->cache.size()};
}

// Kept out of line, so that what it follows is short.
[[gnu::noinline]] Program* search(uint32_t program, bool add) {
  auto at = programs().find(program);
  if (at == programs().end()) {
    if (!add) return nullptr;
    at = programs().try_emplace(program).first;
  }
  make_recent(program, &at->second);
  return recent_entry;
}

Program* find_program(uint32_t program) {
  return recent.program == program ? recent_entry : search(program, false);
}

Program& find_or_add_program(uint32_t program) {
  return recent.program == program ? *recent_entry : *search(program, true);
}

// A count that no upload has is remembered as it stands, but never reaches past the 16 floats.
size_t stored_bytes(int32_t count) {
  return static_cast<size_t>(std::clamp(count, 0, 16)) * sizeof(float);
}

bool equal_bytes(const void* a, const void* b, size_t bytes) {
  return bytes == 0 || std::memcmp(a, b, bytes) == 0;
}

// Whether a location has this value; one that was never set has the value of no floats.
bool holds(std::span<const CacheSlot> slots, int32_t location, const float* values, int32_t count) {
  const auto index = static_cast<size_t>(location);
  return index < slots.size() ? uniform_cache::holds(slots[index], values, count) : count == 0;
}

void upload(uint32_t program, int32_t location, const float* values, int32_t count) {
  constexpr unsigned char transpose = 0;
  switch (count) {
    case 1:
      gl::ProgramUniform1fv(program, location, 1, values);
      break;
    case 2:
      gl::ProgramUniform2fv(program, location, 1, values);
      break;
    case 3:
      gl::ProgramUniform3fv(program, location, 1, values);
      break;
    case 4:
      gl::ProgramUniform4fv(program, location, 1, values);
      break;
    case 9:
      gl::ProgramUniformMatrix3fv(program, location, 1, transpose, values);
      break;
    case 16:
      gl::ProgramUniformMatrix4fv(program, location, 1, transpose, values);
      break;
    default:
      break;
  }
  ++counters.uploads;
}

void send(Program& entry, uint32_t program, int32_t location, const float* values, int32_t count) {
  const auto index = static_cast<size_t>(location);
  if (index >= entry.cache.size()) {
    entry.cache.resize(index + 1);
    if (recent_entry == &entry) make_recent(program, &entry);
  }
  upload(program, location, values, count);
  ++entry.revision;
  CacheSlot& slot = entry.cache[index];
  slot.count = count;
  std::copy_n(values, stored_bytes(count) / sizeof(float), slot.values);
}

void set_cached(Program& entry, uint32_t program, int32_t location, const float* values, int32_t count) {
  if (holds(entry.cache, location, values, count)) {
    ++counters.skipped;
    return;
  }
  send(entry, program, location, values, count);
}

void set_each(Program& entry, uint32_t program, std::span<const Pending> batch) {
  for (const Pending& value : batch) {
    if (value.location >= 0) {
      set_cached(entry, program, value.location, value.values, value.count);
    } else {
      upload(program, value.location, value.values, value.count);
      ++entry.revision;
    }
  }
}

std::span<const Pending> as_batch(const Pending* pending, int32_t n) {
  return n > 0 ? std::span(pending, static_cast<size_t>(n)) : std::span<const Pending>();
}

}  // namespace

const Stats& stats() {
  return counters;
}

void program_add(uint32_t program, std::string_view name, UniformInfo info) {
  if (Program* const entry = find_program(program)) {
    assign(entry->uniforms, name, info);
    return;
  }
  // Whole or not at all: a program that is known answers for all its names.
  Program entry;
  assign(entry.uniforms, name, info);
  programs().try_emplace(program, std::move(entry));
}

void program_forget(uint32_t program) {
  recent = {};
  recent_entry = nullptr;
  programs().erase(program);
}

bool program_known(uint32_t program) {
  return find_program(program) != nullptr;
}

const UniformInfo* uniform_info(uint32_t program, std::string_view name) {
  const Program* const entry = find_program(program);
  return entry == nullptr ? nullptr : find(entry->uniforms, name);
}

bool uniform_accepts(const UniformInfo& info, int32_t count) {
  switch (info.type) {
    case uniform_float:
    case uniform_vector:
      return info.size == count && count <= 4;
    case uniform_matrix3:
      return count == 9;
    case uniform_matrix4:
      return count == 16;
    default:
      return false;
  }
}

void uniform_forget(uint32_t program, int32_t location) {
  Program* const entry = find_program(program);
  if (entry == nullptr) return;
  ++entry->revision;
  if (location < 0) {
    for (CacheSlot& slot : entry->cache) slot.count = 0;
  } else if (static_cast<size_t>(location) < entry->cache.size()) {
    entry->cache[static_cast<size_t>(location)].count = 0;
  }
}

void uniform_cache::set(uint32_t program, int32_t location, const float* values, int32_t count) {
  if (location >= 0) {
    set_cached(find_or_add_program(program), program, location, values, count);
    return;
  }
  upload(program, location, values, count);
  if (Program* const entry = find_program(program)) ++entry->revision;
}

void uniform_set_block(uint32_t program, uint64_t key, const Pending* pending, int32_t n) {
  Program& entry = find_or_add_program(program);
  const auto batch = as_batch(pending, n);
  if (key != 0 && key == entry.block_key && entry.memo_revision == entry.revision) {
    counters.skipped += batch.size();
    return;
  }
  set_each(entry, program, batch);
  entry.last_many.clear();
  entry.memo_revision = entry.revision;
  entry.block_key = key;
}

void uniform_set_many(uint32_t program, const Pending* pending, int32_t n) {
  Program& entry = find_or_add_program(program);
  const auto batch = as_batch(pending, n);
  if (entry.memo_revision == entry.revision && entry.last_many.size() == batch.size() &&
      equal_bytes(entry.last_many.data(), batch.data(), batch.size_bytes())) {
    counters.skipped += batch.size();
    return;
  }
  set_each(entry, program, batch);
  entry.last_many.assign(batch.begin(), batch.end());
  entry.memo_revision = entry.revision;
  entry.block_key = 0;
}

}  // namespace qv::gpu
