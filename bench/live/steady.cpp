#include "bench/live/page.h"
#include "host/base/memory_use.h"

#include <filesystem>
#include <iterator>
#include <thread>

namespace bench_live {
namespace {

int64_t entries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

Holdings held(Page& page) {
  constexpr double mebibyte = 1 << 20;
  while (!page.session().idle()) std::this_thread::yield();
  return {static_cast<double>(host::resident_bytes()) / mebibyte, static_cast<double>(page.held()) / mebibyte,
          entries("/proc/self/task"), entries("/proc/self/fd")};
}

}  // namespace

std::pair<Holdings, Holdings> work_long(int edits, int frames) {
  Page page(uint64_t{64} << 20);
  Holdings early;
  const int each = frames / edits;
  int64_t frame = 0;
  for (int edit = 0; edit < edits; ++edit) {
    page.edit(parsed(chain(12, 1 + 1e-3 * edit, 320, 180, true)));
    for (int i = 0; i < each; ++i) {
      frame = frame % 2000 + 1;
      const host::live::session::Ahead ahead{"", 0.5, 1, 2000, frame, 1};
      page.wait(page.wish(frame, i % 2 == 0 ? 1 : 0.5, ahead));
    }
    if (edit == edits / 4) early = held(page);
  }
  return {early, held(page)};
}

}  // namespace bench_live
