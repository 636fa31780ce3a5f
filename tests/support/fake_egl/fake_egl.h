#pragma once

#include <atomic>
#include <cstdint>
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

}  // namespace fake_egl
