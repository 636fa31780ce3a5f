#include <qv/graph/result_cache.h>

#include "python/bindings/arrays.h"
#include "python/bindings/core.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

namespace bindings {

namespace py = pybind11;
using namespace py::literals;

namespace {

using qv::graph::CachePopped;
using qv::graph::ResultCache;
using Holds = std::vector<std::pair<int64_t, int64_t>>;

std::optional<CachePopped> pop1(ResultCache& cache, int64_t key) {
  CachePopped popped;
  return cache.pop1(key, popped) ? std::optional(popped) : std::nullopt;
}

void add_popped(py::module_& core) {
  py::class_<CachePopped>(core, "CachePopped", "A result that a cache gave up, for its host to let go.")
      .def_readonly("key", &CachePopped::key)
      .def_readonly("slot", &CachePopped::slot)
      .def_readonly("flag", &CachePopped::flag)
      .def_readonly("cost", &CachePopped::cost)
      .def_readonly("pinned", &CachePopped::pinned);
}

}  // namespace

void add_cache(py::module_& core) {
  add_popped(core);
  py::class_<ResultCache>(core, "ResultCache",
                          R"(Remembers results by key and says which to give up when memory runs short.

Owns no pixels: an entry names the host's result by its slot, 0 or more, and the buffers that it keeps alive
with their sizes in bytes. Two orders of recency: what the current evaluation uses is pinned, the rest is
not. A buffer that several entries hold is counted once. Keys are numbers of 64 bits with a sign.

>>> from quorvel import core
>>> cache = core.ResultCache()
>>> for key in (1, 2, 3):
...     _ = cache.put(key, slot=key, holds=[(key, 100)], flag=False, cost=0.0, pinned=False)
>>> cache.get(1, pin=False)
1
>>> [popped.key for popped in cache.evict(150, 0)], cache.held(pinned=False)
([2, 3], 100))")
      .def(py::init<>())
      .def(
          "put",
          [](ResultCache& it, int64_t key, int64_t slot, const Holds& holds, bool flag, double cost,
             bool pinned) { return it.put(key, slot, holds.data(), holds.size(), flag, cost, pinned); },
          "key"_a, "slot"_a, "holds"_a, "flag"_a = false, "cost"_a = 0.0, "pinned"_a = false,
          R"(Stores a result as the most recent of its order; returns the slot that the key had, or -1.

`holds` are pairs (buffer, size in bytes); `flag` and `cost` are handed back as they are.)")
      .def("get", &ResultCache::get, "key"_a, "pin"_a = false,
           "The slot of a key, now the most recent of its order, pinned with `pin`; -1 where it is not "
           "cached.")
      .def("move", &ResultCache::move, "key"_a, "pinned"_a,
           "Makes a key the most recent of the chosen order; nothing where it is not cached.")
      .def("begin_touch", &ResultCache::begin_touch, "Opens a touch cycle, or goes on with the open one.")
      .def("touch", &ResultCache::touch, "key"_a, "Records a key as used in the open touch cycle.")
      .def("end_touch", &ResultCache::end_touch, "keys"_a,
           "Closes the touch cycle: pins `keys` and unpins what was neither recorded nor given.")
      .def("evict", &ResultCache::evict, "max_unpinned_bytes"_a, "max_pinned_bytes"_a,
           "Gives up the least recent of each order while its total is over the budget, unpinned ones first.")
      .def("pop1", &pop1, "key"_a, "Removes one key; None where it is not cached.")
      .def("contains", &ResultCache::contains, "key"_a, "Whether a key is cached. Makes nothing more recent.")
      .def("__contains__", &ResultCache::contains, "key"_a)
      .def("in_unpinned", &ResultCache::in_unpinned, "key"_a, "Whether a key is cached and not pinned.")
      .def("held", &ResultCache::held, "pinned"_a, "The bytes that one order holds.")
      .def("size", &ResultCache::size, "pinned"_a, "The number of entries of one order.")
      .def("__len__", [](const ResultCache& it) { return it.size(false) + it.size(true); })
      .def("keys", &ResultCache::keys, "pinned"_a, "The keys of one order, the least recent first.")
      .def("slots", &ResultCache::slots, "The slots of both orders, unpinned first, the least recent first.")
      .def("clear", &ResultCache::clear, "Forgets everything, the open touch cycle too.")
      .def_readwrite("touching", &ResultCache::touching, "A touch cycle is open.");
}

}  // namespace bindings
