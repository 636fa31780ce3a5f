#include "host/live/page.h"

#include <array>
#include <cstddef>

// The bytes are taken in by the assembler: as text of C++ they would take long to compile.
#define QUORVEL_PAGE_FILE(name, file)                                                              \
  __asm__(".section .rodata\n.global quorvel_" #name "\n.hidden quorvel_" #name "\nquorvel_" #name \
          ":\n.incbin \"" QUORVEL_PAGE_FOLDER "/" file "\"\n.global quorvel_" #name                \
          "_end\n.hidden quorvel_" #name                                                           \
          "_end\n"                                                                                 \
          "quorvel_" #name "_end:\n.byte 0\n.previous\n");                                         \
  extern "C" const char quorvel_##name[];                                                          \
  extern "C" const char quorvel_##name##_end[];

QUORVEL_PAGE_FILE(index, "index.html.gz")
QUORVEL_PAGE_FILE(script, "page.js.gz")
QUORVEL_PAGE_FILE(style, "page.css.gz")
QUORVEL_PAGE_FILE(arranger, "arranger.js.gz")

namespace host::live {
namespace {

std::string_view between(const char* begin, const char* end) {
  return {begin, static_cast<size_t>(end - begin)};
}

}  // namespace

std::span<const PageFile> page_files() {
  static const std::array files = {
      PageFile{"/", "text/html; charset=utf-8", between(quorvel_index, quorvel_index_end)},
      PageFile{"/page.js", "text/javascript; charset=utf-8", between(quorvel_script, quorvel_script_end)},
      PageFile{"/page.css", "text/css; charset=utf-8", between(quorvel_style, quorvel_style_end)},
      PageFile{"/arranger.js", "text/javascript; charset=utf-8",
               between(quorvel_arranger, quorvel_arranger_end)},
  };
  return files;
}

}  // namespace host::live
