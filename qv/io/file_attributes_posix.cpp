#include <qv/io/file_attributes.h>

#include <sys/stat.h>

namespace qv::io {

FileAttributes file_attributes(const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) return {};
#if defined(__APPLE__)
  const timespec time = status.st_mtimespec;
#else
  const timespec time = status.st_mtim;
#endif
  // Unsigned, so that a year outside the range of the result wraps instead of being undefined.
  const uint64_t ns = static_cast<uint64_t>(time.tv_sec) * 1000000000u + static_cast<uint64_t>(time.tv_nsec);
  const bool ends = S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
  return {true, static_cast<int64_t>(ns), static_cast<uint64_t>(status.st_size), !ends};
}

}  // namespace qv::io
