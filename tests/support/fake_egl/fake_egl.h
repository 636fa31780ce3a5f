#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// A driver that draws nothing, writes every GL call down, hands out object names and fails on
// request. A test links the target fake_egl and calls reset() first.
namespace fake_egl {

struct Object {
  std::string kind;  // "texture", "framebuffer", ...
  void* context = nullptr;
  uint64_t bytes = 0;
};

// What a test asks for and what the driver has seen, for a test to look at while no thread calls GL.
struct Driver {
  std::set<std::string, std::less<>> hidden;  // the names that eglGetProcAddress knows nothing of
  int failing_object = 0;                     // the n-th asked for from now on (1 is the next) gets no name
  int calls_to_switch = 0;                    // right after so many, that context is current
  void* switched_context = nullptr;
  // The GL name, then the arguments with blanks between, unsigned ones from 0x400 up in hexadecimal, arrays
  // of values in brackets.
  std::vector<std::string> calls;
  std::vector<std::string>
      misuse;  // deletions of what the current context has not, draws into it, and the like
  std::map<unsigned, Object> objects;
  unsigned last_name = 0;
};
extern Driver driver;
inline std::atomic<bool> recording{true};

// Starts over: nothing recorded, hidden or failing, names from 1 again, and a context current that
// there never was before, with no objects.
void reset();

// Makes a context current on this thread, null for none; fresh_context() names one never used.
void make_current(void* context);
void* fresh_context();

// The calls since the last take.
std::vector<std::string> take_calls();

// The objects of one kind that the current context has, and the bytes of its textures.
struct Alive {
  uint64_t count = 0, bytes = 0;
};
Alive alive(std::string_view kind);

// The driver's pixel-pack buffers, reads and fences. A read reaches its buffer when the fence behind it
// signals and not before, so that whoever copies too early copies something else. What a fence does: signals
// at the first wait, at the fourth, at the first after release(), never; it fails; the driver refuses to make
// it.
enum class Fence { prompt, late, held, silent, broken, refused };

// Asks these from now on for the kind of each new fence, and whether the driver maps a buffer.
void plan_transfers(std::function<Fence()> next_fence, std::function<bool()> next_map);
void release();                  // of the held fences, and of those to come
void await_reads(size_t count);  // blocks until so many were queued since the plan
size_t fences_alive();
float pixel(int x, int y, int channel);  // what every framebuffer shows

}  // namespace fake_egl
