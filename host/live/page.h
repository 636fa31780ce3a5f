#pragma once

#include <span>
#include <string_view>

namespace host::live {

// A file of the page, as it was built and packed by gzip.
struct PageFile {
  std::string_view path;  // "/page.js"
  std::string_view type;
  std::string_view gzip;
};

// All there are.
std::span<const PageFile> page_files();

}  // namespace host::live
