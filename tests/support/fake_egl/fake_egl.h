#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A driver that draws nothing, writes every GL call down, hands out object names and fails on
// request. A test links the target fake_egl and calls reset() first.
namespace fake_egl {

// Starts over: nothing recorded, hidden or failing, names from 1 again, and a context current that
// there never was before, with no objects.
void reset();

// Makes a context current on this thread, null for none; fresh_context() names one never used.
void make_current(void* context);
void* fresh_context();

// Makes `context` current on the calling thread right after `calls` more GL calls.
void switch_context_after(int calls, void* context);

// eglGetProcAddress answers null for this name from now on.
void hide(std::string_view name);

// The n-th object asked for from now on (1 is the next) gets no name.
void fail_object(int n);

// The calls since the last take, one text each: the GL name, then the arguments with blanks between,
// unsigned ones from 0x400 up in hexadecimal, arrays of values in brackets.
std::vector<std::string> take_calls();

// Calls since the process began; counted even while recording is off.
uint64_t call_count();
void record(bool on);

// The objects of the current context, of one kind ("texture", "framebuffer", ...), and the bytes of
// its textures.
size_t alive(std::string_view kind);
uint64_t texture_bytes();

// Deletions of what does not exist under the current context, draws into it, and the like.
std::vector<std::string> misuse();

}  // namespace fake_egl
