#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace host::live {

// What is told of a rendering.
struct RenderState {
  enum class Is : uint8_t { idle, running, done, failed, stopped } is = Is::idle;
  int64_t done = 0, total = 0;  // frames
  std::string message;          // why it failed; the last notice while it runs
};

// As protocol.ts has it: "idle".
const char* state_name(RenderState::Is is);

// A rendering to files by a process of its own, one at a time, so that whatever becomes of it a page goes on.
// Thread-safe.
class RenderJob {
 public:
  // `changed` is called on a thread of the job's, and must not call it.
  RenderJob(std::filesystem::path program, std::function<void(const RenderState&)> changed);
  ~RenderJob();  // ends it within half a second
  RenderJob(const RenderJob&) = delete;
  RenderJob& operator=(const RenderJob&) = delete;

  // Starts the program with these words, which include `--progress jsonl`, in a folder. Throws
  // std::runtime_error while another one runs, and where the program cannot be started.
  void start(const std::vector<std::string>& words, const std::filesystem::path& folder,
             std::string_view input);

  // Has it end as Ctrl-C does.
  void stop();

  RenderState state() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace host::live
