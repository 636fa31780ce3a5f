#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// What a person at a GPU debugger reads, and what a developer is told: passes in groups under the names
// of nodes, textures under the name of the group in which they were taken, programs under their files',
// where the driver has KHR_debug; and in builds without NDEBUG the errors that GL keeps to itself.
// GL thread only.
namespace host::gpu {

// Looks the functions up for the context that is current. Nothing is labelled before.
void load_debug(void (*(*look_up)(const char*))());

// The calls made during its life, as a group. Groups nest.
class DebugGroup {
 public:
  explicit DebugGroup(std::string_view name);
  ~DebugGroup();
  DebugGroup(const DebugGroup&) = delete;
  DebugGroup& operator=(const DebugGroup&) = delete;

 private:
  std::string outer_;
};

void label_texture(uint32_t texture);  // by the group that is open
void label_program(uint32_t program, std::string_view name);

// Throws std::runtime_error that names the GL errors since the last call, if there are any.
void throw_errors();

// The same in builds without NDEBUG; otherwise nothing, for asking waits for the driver.
inline void check_errors() {
#ifndef NDEBUG
  throw_errors();
#endif
}

}  // namespace host::gpu
