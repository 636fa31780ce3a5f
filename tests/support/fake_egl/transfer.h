#pragma once

#include <cstddef>
#include <functional>

// The fake driver's pixel-pack buffers, reads and fences. A read reaches its buffer when the fence
// behind it signals and not before, so that whoever copies too early copies something else.
namespace fake_egl {

// What a fence does: signals at the first wait, at the fourth, at the first after release(), never;
// it fails; the driver refuses to make it.
enum class Fence { prompt, late, held, silent, broken, refused };

// Asks these from now on for the kind of each new fence, and whether the driver maps a buffer.
void plan_transfers(std::function<Fence()> next_fence, std::function<bool()> next_map);
void release();                  // of the held fences, and of those to come
void await_reads(size_t count);  // blocks until so many were queued since the plan
size_t fences_alive();
float pixel(int x, int y, int channel);  // what every framebuffer shows

}  // namespace fake_egl
