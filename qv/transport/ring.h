#pragma once

#include <qv/export.h>

#include <cstdint>
#include <functional>
#include <string>

// The transfer ring: rendered float images leave the GPU while the next one is being drawn.
//
// `start` queues the read of a rectangle into one of a few persistently mapped buffers and returns
// a ticket at once. A background thread waits for the GPU, copies the pixels to the caller's
// memory, runs the callback and completes the ticket. Tickets count from 1, are never reused and
// complete in the order of their issue; 0 is no ticket.
//
// One ring a process. `init` and `close` may alternate; tickets and counters run on. The render
// thread waits in `start` only while every buffer is in flight. No fault of the driver loses a
// ticket or a callback: a read whose fence fails, or stays silent for 30 s, ends as failed.
//
// What the background thread wrote (destination, `aux`, the callback's effects) before `done(t)`
// turned true or `wait(t)` returned is visible to the caller that saw it.
//
// The host keeps OpenGL's default pixel-pack state and reads from framebuffer objects only. It binds
// them for drawing as well during `start`: some software drivers copy at once and do not wait for
// draws into a texture that earlier ones had read (docs/gpu.md).
namespace qv::transport {

// Counters since the process began. `bytes` is what was copied to destinations. `completed` counts
// whole transfers, `failed` those that the driver let down; together they reach `started` when
// nothing is pending. `allocations` counts buffers made or grown, `held` the bytes of those that there are
// now.
struct Stats {
  uint64_t started = 0;
  uint64_t completed = 0;
  uint64_t bytes = 0;
  uint64_t allocations = 0;
  uint64_t failed = 0;
  uint64_t held = 0;
};

// Fetches the entry points and starts the background thread; true when the ring is ready, also
// when it was already. Otherwise false, with a text in `err` unless that is null: "libEGL.so.1 /
// eglGetProcAddress not available" for a missing loader and for any function that is missing there,
// "no background thread: ..." where the system gives none. Thread-safe. std::bad_alloc changes nothing.
QV_API bool init(std::string* err);

// Whether `init` has succeeded and `close` has not ended it since. Thread-safe.
QV_API bool ready();

// Starts reading the rectangle (x, y, width, height) of colour attachment 0 of `read_framebuffer`
// and returns its ticket. GL thread only: an EGL context with pixel-pack buffers is current.
//
// `dst` takes width * height * channels floats (2 channels: red, green; 4: all) in the order in
// which GL reads them, row y first, rows without gaps. It, and `aux`, live until the ticket is done.
// `aux` may be null; else its first min(aux_count, parts) words become 0, and word k becomes 1,
// with release order, once part k is in `dst`: an image can be shown as it arrives. Up to 8 parts
// of equally many rows, one for each whole 4 MiB of the image and at least one.
// `callback` may be empty. It runs on the background thread, in ticket order, once the pixels are
// there or the transfer has failed, and is destroyed before its ticket is done; what it throws is
// dropped. It may call done, failed, current_ticket, pending and stats; a start in it returns 0, a wait
// would never end.
//
// Throws nothing; what can fail does so before GL is asked for the pixels.
// Returns 0, and drops the callback uncalled, when the ring is not ready, the rectangle is empty or
// too large to address, `channels` is not 2 or 4, `dst` is null, or the driver refuses a buffer or a
// fence. Leaves no pixel-pack buffer bound and `restore_framebuffer` as the read framebuffer.
// Blocks while every slot is in flight. An image larger than its slot costs a new buffer.
QV_API uint64_t start(unsigned read_framebuffer, unsigned restore_framebuffer, int x, int y, int width,
                      int height, int channels, void* dst, unsigned* aux, unsigned aux_count,
                      std::function<void()> callback);

// Whether the ticket is complete. True for 0 and for tickets never issued. Thread-safe.
QV_API bool done(uint64_t ticket);

// Whether the driver let this transfer down, so that what it should have copied is not all there. Known
// as soon as its callback runs, and for the last 1,024 tickets; false for all others. Thread-safe.
QV_API bool failed(uint64_t ticket);

// In a callback: the ticket that it belongs to. 0 on every other thread. Thread-safe.
QV_API uint64_t current_ticket();

// Blocks until the ticket is complete; returns at once for one never issued. Thread-safe.
QV_API void wait(uint64_t ticket);

// Blocks until nothing is pending. Thread-safe.
QV_API void wait_all();

// Transfers that have a ticket and are not complete. Thread-safe.
QV_API int pending();

// Sets how many transfers may be in flight, n clamped to 1..8; 3 at first. The ring only grows:
// slots that exist stay. Thread-safe; a start that waits for a slot goes on.
QV_API void set_ring_size(int n);

// The counters. A transfer counts as completed or failed when its ticket completes. Thread-safe.
QV_API Stats stats();

// Waits for every transfer, ends the background thread and deletes the buffers. Nothing happens
// when the ring is not ready. GL thread only: with the context of the starts current, before it is
// destroyed.
QV_API void close();

}  // namespace qv::transport
