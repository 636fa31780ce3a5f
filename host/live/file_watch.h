#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace host::live {

// Tells when something has become of files: they were written, or something else was put in their place or
// taken away; also where a link leads, and files of a frame pattern. Says nothing of what other machines do
// to a shared disk. Thread-safe.
class FileWatch {
 public:
  static constexpr size_t most_folders = 64;  // files in further ones are not looked after

  // `changed` is called on a thread of the watch, which ends with it, so long after the first thing that
  // happened, for all that happens meanwhile; may be told once too often. Where the system has no watches
  // left, it is never called.
  explicit FileWatch(std::function<void()> changed, std::chrono::milliseconds delay = {});
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // These from now on, and no others.
  void follow(const std::vector<std::filesystem::path>& files);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace host::live
