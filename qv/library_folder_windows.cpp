#include <qv/version.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include <windows.h>

namespace qv {

std::string library_folder() {
  HMODULE module = nullptr;
  static const char inside = 0;
  constexpr DWORD by_address =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (!GetModuleHandleExW(by_address, reinterpret_cast<LPCWSTR>(&inside), &module)) return {};
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
  path.resize(std::min(path.size(), path.rfind(L'\\')));
  std::string text(path.size() * 3, '\0');
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, path.data(), static_cast<int>(path.size()), text.data(),
                                        static_cast<int>(text.size()), nullptr, nullptr);
  text.resize(static_cast<size_t>(bytes));
  return text;
}

}  // namespace qv
