#pragma once

#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace host {

// What a person should be told though it stops nothing: the one way from wherever it is noticed to
// whoever shows it. A text is told once. Bounded: of many thousands, the later ones are dropped.
// Thread-safe.
class Notices {
 public:
  // An empty text is none.
  void add(const std::string& text);

  // Those that nobody has taken yet, in order.
  std::vector<std::string> take();

 private:
  std::mutex mutex_;
  std::set<std::string> told_;
  std::vector<std::string> waiting_;
};

}  // namespace host
