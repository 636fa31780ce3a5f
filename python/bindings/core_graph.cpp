#include <qv/graph/record.h>
#include <qv/graph/schedule.h>
#include <qv/graph/walk.h>

#include "python/bindings/arrays.h"
#include "python/bindings/core.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <pybind11/functional.h>
#include <pybind11/stl.h>

// The graph's parts are used by one thread at a time. Every call holds the interpreter's lock from its first
// look at the part to its last, so that calls from several threads queue; a walk alone, which calls back,
// refuses what would pull the graph from under it.
namespace bindings {

namespace py = pybind11;
using namespace py::literals;

namespace {

namespace graph = qv::graph;

struct Walk {
  graph::Walk walk;
  bool in_pass = false;
};

// Marks a pass as under way for as long as it lives.
class Pass {
 public:
  explicit Pass(Walk& of) : of_(of) {
    refuse_in_pass(of);
    of_.in_pass = true;
  }
  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;
  ~Pass() {
    of_.in_pass = false;
  }

  static void refuse_in_pass(const Walk& walk) {
    if (walk.in_pass) throw std::runtime_error("walk: a pass is under way");
  }

 private:
  Walk& of_;
};

void build(Walk& it, std::vector<std::vector<int>> inputs, const ArrayLike& always, const ArrayLike& values) {
  std::vector<uint8_t> flags = integers_of<uint8_t>(always, "always_flags");
  std::vector<int64_t> initial = integers_of<int64_t>(values, "initial_values");
  if (flags.size() != inputs.size() || initial.size() != inputs.size())
    throw py::value_error("build: " + std::to_string(inputs.size()) + " input_lists, " +
                          std::to_string(flags.size()) + " always_flags, " + std::to_string(initial.size()) +
                          " initial_values");
  Pass::refuse_in_pass(it);
  it.walk.build(std::move(inputs), std::move(flags), std::move(initial));
}

int walk(Walk& it, const std::vector<int>& seeds, bool all, const graph::Walk::Visit& visit) {
  const Pass pass(it);
  return it.walk.walk(seeds, all, visit);
}

// Replaces the numbers and not the memory, so that a pass that is under way reads the new ones.
template <class T>
void assign(std::vector<T>& field, const ArrayLike& argument, const char* name) {
  const std::vector<T> values = integers_of<T>(argument, name);
  if (values.size() != field.size())
    throw py::value_error(std::string(name) + ": " + std::to_string(values.size()) + " entries for " +
                          std::to_string(field.size()) + " nodes");
  std::copy(values.begin(), values.end(), field.begin());
}

void add_walk(py::module_& core) {
  py::class_<Walk>(core, "Walk", R"(Change propagation over a graph that is evaluated again and again.

Given the nodes that were edited, visits them and whatever lies downstream of a node whose value turned out
to be new. Nodes are numbered upstream first. Arrays that a field gives are copies that cannot be
written; `always` and `values` can be set as a whole between passes, and from a visit for later nodes.

>>> from quorvel import core
>>> walk, numbers = core.Walk(), [1, 10]
>>> walk.build([[], [0], [0, 1]], [0, 0, 0], [0, 0, 0])
>>> def visit(node: int, dirty: bool) -> int:
...     return numbers[node] if node < 2 else int(walk.values[0] + walk.values[1])
>>> walk.walk([0, 1], False, visit), walk.values
(3, array([ 1, 10, 11]))
>>> numbers[1] = 20
>>> walk.walk([1], False, visit), walk.changed_list
(2, array([1, 2], dtype=int32)))")
      .def(py::init<>())
      .def("build", &build, "input_lists"_a, "always_flags"_a, "initial_values"_a, R"(Replaces the graph.

input_lists[i] names the inputs of node i, always_flags[i] whether it is visited in every pass (not 0),
initial_values[i] its value now, of 64 bits. ValueError: sizes that differ (nothing is changed) or an input that is
not upstream of its node (the walk is to be built again). RuntimeError: called from a visit.)")
      .def(
          "size", [](const Walk& it) { return it.walk.size(); }, "The number of nodes.")
      .def("walk", &walk, "seeds"_a, "all"_a, "visit"_a,
           R"(One pass in ascending order; returns how many were visited.

Calls visit(node, dirty) for each node that is a seed or has an input that changed in this pass, for those
that are always visited, or with `all` for every node. A returned value other than values[node] is
stored and marks the node changed; None does not. What visit raises passes through, and the seeds then
stay marked for the next pass. RuntimeError: called from a visit.)")
      .def_property_readonly("offsets", [](const Walk& it) { return snapshot(it.walk.offsets); })
      .def_property_readonly("inputs", [](const Walk& it) { return snapshot(it.walk.inputs); })
      .def_property(
          "always", [](const Walk& it) { return snapshot(it.walk.always); },
          [](Walk& it, const ArrayLike& value) { assign(it.walk.always, value, "always"); },
          "Whether a node is visited in every pass, 0 or not. uint8, one a node.")
      .def_property_readonly("seeded", [](const Walk& it) { return snapshot(it.walk.seeded); })
      .def_property_readonly(
          "changed", [](const Walk& it) { return snapshot(it.walk.changed); },
          "Which nodes changed in this or the last pass, 1 or 0. uint8.")
      .def_property(
          "values", [](const Walk& it) { return snapshot(it.walk.values); },
          [](Walk& it, const ArrayLike& value) { assign(it.walk.values, value, "values"); },
          "The last known value of each node. int64.")
      .def_property_readonly(
          "changed_list", [](const Walk& it) { return snapshot(it.walk.changed_list); },
          "The nodes that changed, in visiting order. int32.");
}

graph::Record record(std::vector<graph::SlotSpec> specs, const ArrayLike& data, const ArrayLike& kinds) {
  return {std::make_shared<const std::vector<graph::SlotSpec>>(std::move(specs)),
          integers_of<uint32_t>(data, "data"), integers_of<uint8_t>(kinds, "kinds")};
}

void add_record(py::module_& core) {
  using graph::Record;
  using graph::SlotSpec;
  py::class_<SlotSpec>(core, "SlotSpec",
                       "Where a parameter lies in a record: `components` words from word `offset` on.")
      .def(py::init([](int32_t components, uint32_t offset) {
             return SlotSpec{components, offset};
           }),
           "components"_a, "offset"_a)
      .def_readonly("components", &SlotSpec::components)
      .def_readonly("offset", &SlotSpec::offset);
  py::class_<Record>(core, "Record",
                     R"(The parameters of a node as words of 32 bits, and the hash that names its result.

`data` has the words, `kinds` a byte a slot; the words of slots of kind 1 take part in the hash. Both are
given as copies that cannot be written, and can be set.

>>> import numpy as np
>>> from quorvel import core
>>> size = core.Record([core.SlotSpec(1, 0)], np.array([2.5], np.float32).view(np.uint32), [1])
>>> size.typed_hash() == core.Record([core.SlotSpec(1, 0)], [0x40200000], [1]).typed_hash()
True)")
      .def(py::init(&record), "specs"_a, "data"_a, "kinds"_a,
           "ValueError: a word that is not of 32 bits, a kind that is not of 8.")
      .def_property(
          "data", [](const Record& it) { return snapshot(it.data); },
          [](Record& it, const ArrayLike& value) { it.data = integers_of<uint32_t>(value, "data"); })
      .def_property(
          "kinds", [](const Record& it) { return snapshot(it.kinds); },
          [](Record& it, const ArrayLike& value) { it.kinds = integers_of<uint8_t>(value, "kinds"); })
      .def(
          "typed_hash", [](const Record& it) { return static_cast<int64_t>(it.typed_hash()); },
          R"(A hash of 64 bits over kinds and data, as the signed number that keys and values are.

IndexError: a slot of kind 1 has no spec or reaches beyond the data.)");
}

// A field of a result as an array over the result's own memory, which it keeps alive.
template <auto Field>
auto view(const py::object& result) {
  const auto& values = result.cast<const graph::ScheduleResult&>().*Field;
  using T = typename std::decay_t<decltype(values)>::value_type;
  py::array_t<T> array(static_cast<py::ssize_t>(values.size()), values.data(), result);
  array.attr("setflags")("write"_a = false);
  return Array<T>{std::move(array)};
}

graph::ScheduleResult run(const graph::Schedule& it, const ArrayLike& hashes, graph::ResultCache& cache,
                          bool pin) {
  return it.run(integers_of<int64_t>(hashes, "hashes"), cache, pin);
}

void add_schedule(py::module_& core) {
  using graph::Schedule;
  using graph::ScheduleResult;
  core.attr("always_compute") = static_cast<int>(graph::always_compute);
  core.attr("skip_inputs") = static_cast<int>(graph::skip_inputs);
  core.attr("need_inputs") = static_cast<int>(graph::need_inputs);

  py::class_<ScheduleResult>(core, "ScheduleResult",
                             "What one evaluation has to do. Arrays are views that cannot be written.")
      .def_property_readonly("order", &view<&ScheduleResult::order>,
                             "The needed nodes, ascending, inputs first. int32.")
      .def_property_readonly("compute", &view<&ScheduleResult::compute>,
                             "Whether a node is needed and to be computed, 1 or 0. uint8, one a node.")
      .def_property_readonly("cached", &view<&ScheduleResult::cached>,
                             "The slot that the cache gave, or -1. int64, one a node.")
      .def_property_readonly("uses", &view<&ScheduleResult::uses>,
                             "How many times needed nodes will read the node's result. int32, one a node.");

  py::class_<Schedule>(core, "Schedule",
                       R"(Plans evaluations of a graph: what to compute, what to take from a cache.

Nodes are numbered upstream first; the last one is the requested output.

>>> from quorvel import core
>>> schedule, cache = core.Schedule(), core.ResultCache()
>>> schedule.build([[], [0], [1]], [0, 0, 0])
>>> cache.put(key=77, slot=5, holds=[], flag=False, cost=0.0, pinned=False)
-1
>>> plan = schedule.run([66, 77, 88], cache, pin=True)
>>> plan.order, plan.compute, plan.cached
(array([1, 2], dtype=int32), array([0, 0, 1], dtype=uint8), array([-1,  5, -1])))")
      .def(py::init<>())
      .def(
          "build",
          [](Schedule& it, const std::vector<std::vector<int>>& ups, const ArrayLike& flags) {
            it.build(ups, integers_of<uint8_t>(flags, "node_flags"));
          },
          "up_lists"_a, "node_flags"_a, R"(Replaces the graph: the inputs of each node, and its flags.

Flags are always_compute, skip_inputs and need_inputs combined by |; missing ones are 0.)")
      .def("size", &Schedule::size, "The number of nodes.")
      .def("ups", &Schedule::ups, "node"_a, "The inputs of a node. IndexError: there is no such node.")
      .def("run", &run, "hashes"_a, "cache"_a, "pin"_a,
           R"(Plans one evaluation; hashes[i] is the cache key of node i.

Hits become recent and, with `pin`, pinned. IndexError: a needed node has no hash.)")
      .def_property_readonly("offsets", [](const Schedule& it) { return snapshot(it.offsets); })
      .def_property_readonly("inputs", [](const Schedule& it) { return snapshot(it.inputs); })
      .def_property_readonly("flags", [](const Schedule& it) { return snapshot(it.flags); });
}

}  // namespace

void add_graph(py::module_& core) {
  add_walk(core);
  add_record(core);
  add_cache(core);
  add_schedule(core);
}

}  // namespace bindings
