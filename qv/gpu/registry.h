#pragma once

#include <qv/export.h>
#include <qv/gpu/uniform_cache.h>

#include <cstdint>
#include <string_view>

// What is known of each GL program's uniforms, and the value last sent to each of them, so that a
// value already there is not sent again: frames redraw with mostly the same parameters, and a
// skipped upload costs a comparison instead of a call into the driver.
//
// One process-wide registry, without locks. A program has an entry from its first program_add,
// uniform_set, uniform_set_block or uniform_set_many until program_forget. The host calls
// program_forget when it deletes a GL program, and uniform_forget when it relinks one or uploads
// by other means: else needed uploads are skipped. GL errors are not queried.
//
// Everything here: GL thread only.
namespace qv::gpu {

// What a uniform holds. Any other number is never uploaded, like uniform_other.
enum UniformType : int32_t {
  uniform_float = 0,
  uniform_vector = 1,  // 2 to 4 floats
  uniform_matrix3 = 5,
  uniform_matrix4 = 6,
  uniform_other = 7,
};

// One uniform of a program as the host reflected it.
struct UniformInfo {
  int32_t location = -1;
  int32_t type = uniform_other;  // a UniformType
  int32_t size = 1;              // floats of a uniform_float or uniform_vector
};

// One uniform value to upload. No padding: batches are compared as bytes.
struct Pending {
  int32_t location = 0;
  // Floats that count: 1 to 4 for a float or vector, 9 or 16 for a matrix. Others are not sent.
  int32_t count = 0;
  // Column by column for a matrix. Only the first `count` are sent.
  float values[16] = {};
};

// Counters since the start of the process.
struct Stats {
  uint64_t draws = 0;    // draws issued or counted
  uint64_t uploads = 0;  // uniform values sent
  uint64_t skipped = 0;  // uniform values not sent because the program had them already
};

QV_API const Stats& stats();

namespace uniform_cache {
QV_API extern Stats counters;  // what stats() shows
}

// Notes a uniform of a program, over what was noted under this name before.
QV_API void program_add(uint32_t program, std::string_view name, UniformInfo info);

// Drops all that is known of a program. Nothing happens when it is unknown.
QV_API void program_forget(uint32_t program);

QV_API bool program_known(uint32_t program);

// What was noted under `name` (compared by bytes); null when there is nothing. The pointer stays
// valid until the program is forgotten, whatever is added meanwhile.
QV_API const UniformInfo* uniform_info(uint32_t program, std::string_view name);

// Whether a value of `count` floats may go to this uniform: floats and vectors take `size` floats, at
// most 4; a matrix takes 9 or 16.
QV_API bool uniform_accepts(const UniformInfo& info, int32_t count);

// Makes the next upload to a location go to GL whatever the value; a negative location means all
// locations of the program.
QV_API void uniform_forget(uint32_t program, int32_t location);

// Sends `count` floats to a location, unless the bytes are those sent last. The count picks the GL
// call (1 to 4, 9, 16; any other count sends nothing, and is counted and remembered all the same).
// A negative location is passed on to GL every time. A hit costs a short comparison and, when the
// program is not the one used last, a hash look-up.
QV_API inline void uniform_set(uint32_t program, int32_t location, const float* values, int32_t count) {
  if (uniform_cache::holds(program, location, values, count)) [[likely]] {
    ++uniform_cache::counters.skipped;
  } else {
    uniform_cache::set(program, location, values, count);
  }
}

// Sets n values, in order. `key` is the caller's name for exactly this batch: the same key again,
// with nothing sent to or forgotten of the program in between, skips the batch unseen, at the same
// cost for any n. Key 0 never skips that way; single values may still be skipped.
QV_API void uniform_set_block(uint32_t program, uint64_t key, const Pending* pending, int32_t n);

// The same without a key: skips the batch when its bytes are those of the last one.
QV_API void uniform_set_many(uint32_t program, const Pending* pending, int32_t n);

}  // namespace qv::gpu
