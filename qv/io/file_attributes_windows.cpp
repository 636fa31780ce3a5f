#include <qv/io/file_attributes.h>

#define WIN32_LEAN_AND_MEAN
#include <climits>

#include <windows.h>

namespace qv::io {

namespace {

// Empty when `path` is empty, too long or no UTF-8.
std::wstring wide(const std::string& path) {
  if (path.empty() || path.size() > INT_MAX) return {};
  const int bytes = static_cast<int>(path.size());
  const int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), bytes, nullptr, 0);
  std::wstring result(static_cast<size_t>(units), L'\0');
  if (units > 0) MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), bytes, result.data(), units);
  return result;
}

}  // namespace

FileAttributes file_attributes(const std::string& path) {
  const std::wstring name = wide(path);
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  if (name.empty() || !GetFileAttributesExW(name.c_str(), GetFileExInfoStandard, &data)) return {};
  // FILETIME counts 100 ns from 1601; unsigned arithmetic wraps where the result cannot hold it.
  const uint64_t ticks =
      uint64_t{data.ftLastWriteTime.dwHighDateTime} << 32 | data.ftLastWriteTime.dwLowDateTime;
  const uint64_t ns = ticks * 100u - 11644473600000000000u;
  const uint64_t bytes = uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
  const bool device = (data.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) != 0;
  return {true, static_cast<int64_t>(ns), bytes, device};
}

}  // namespace qv::io
