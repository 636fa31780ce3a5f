#pragma once

#include <filesystem>
#include <functional>
#include <memory>

namespace host::live {

// Tells when something has become of a file: it was written, or something else was put in its place or taken
// away; also where a link leads. Says nothing of what other machines do to a shared disk.
class FileWatch {
 public:
  // `changed` is called on a thread of the watch, which ends with it; may be told once too often. Where the
  // system has no watches left, it is never called.
  FileWatch(const std::filesystem::path& file, std::function<void()> changed);
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace host::live
