#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace host::node {

// Collects what a result depends on, value by value, and turns it into the key under which the
// result is cached. Equal sequences of equal values give equal keys, in every run and process; the
// order and the kind of the values count. Built on the library's records.
class Identity {
 public:
  void add(double value);
  void add(int64_t value);
  void add(std::string_view text);

  // Nothing was added.
  bool empty() const {
    return lengths_.empty();
  }

  // A non-negative key: the cache reports a miss as -1.
  int64_t key() const;

 private:
  void slot(std::initializer_list<uint32_t> words);
  std::vector<uint32_t> words_;
  std::vector<int32_t> lengths_;  // words of each value
};

}  // namespace host::node
