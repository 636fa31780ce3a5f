#pragma once

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qv::anim {
class Curve;
}

namespace host::node {

enum class KnobKind : uint8_t {
  number,   // one or more numbers, each constant or keyed
  integer,  // whole numbers; a keyed one is rounded down, a hair below a number counts as that number
  flag,     // true or false; a keyed one is true when not 0
  choice,   // one of a list of texts
  text,     // any text
  texts,    // a text or a list of them
  file,     // a path, relative to the composition's folder; may hold a frame pattern
  object,   // names and any values, kept as a text of JSON
};

// As programs are told of it: "number", "flag".
const char* kind_name(KnobKind kind);

// What a node type says of one knob: enough to check a composition, to print `quorvel nodes` and to
// write the JSON schema. Made by the functions below, refined by chaining:
//   numbers("translate", {0, 0}, "Moves the image.").in_pixels()
struct KnobSpec {
  std::string name;
  KnobKind kind = KnobKind::number;
  std::string help;              // one sentence, shown to people
  std::vector<double> defaults;  // of numbers, integers and flags: one value a component
  std::string default_text;      // of choices, texts, files and objects
  std::vector<std::string> choices;
  int most_texts = 1;  // of a list of texts
  int fewest = 1;      // components to give at least; one number alone fills all components
  double minimum = -std::numeric_limits<double>::infinity();
  double maximum = std::numeric_limits<double>::infinity();
  bool pixels = false;    // a length or position: scaled with --proxy
  bool by_layer = false;  // of a choice: an object is taken as well, which says it for each layer
  bool pairs = false;     // of a text: an object of texts is taken as well, as "name=value name=value"

  // Values below or above are refused in a composition, and held at the limit between keys.
  KnobSpec within(double least, double most) &&;
  KnobSpec in_pixels() &&;
  KnobSpec or_pairs() &&;
  KnobSpec or_by_layer() &&;
  // A list knob that may be given fewer components than it has defaults.
  KnobSpec at_least(int components) &&;

  int length() const {
    return static_cast<int>(defaults.size());
  }
};

KnobSpec number(std::string name, double value, std::string help);
KnobSpec numbers(std::string name, std::initializer_list<double> values, std::string help);
KnobSpec integer(std::string name, int64_t value, std::string help);
KnobSpec flag(std::string name, bool value, std::string help);
KnobSpec choice(std::string name, std::string value, std::vector<std::string> choices, std::string help);
KnobSpec text(std::string name, std::string value, std::string help);
KnobSpec texts(std::string name, int most, std::string help);
KnobSpec file(std::string name, std::string help);
KnobSpec object(std::string name, std::string help);

// One component's value: a constant, or a curve over frames.
struct KnobComponent {
  double constant = 0;
  std::shared_ptr<const qv::anim::Curve> curve;  // null for a constant
  int64_t curve_id = 0;                          // stands for the curve's keys: equal ones, equal curves
};

// What a composition says of one knob: components for numbers, integers and flags, text for the rest;
// a list of texts is one, a line each.
struct KnobValue {
  std::vector<KnobComponent> components;
  std::string text;

  static KnobValue default_of(const KnobSpec& spec);
  bool animated() const;
};

// A node's knobs at one time. A view: the specs and values that it was made of outlive it. Knobs in
// pixels come scaled to the render's scale, so that a node need not know of proxies. Asking for a
// knob that the node type does not declare, or as another kind, is a fault of the node's author and
// throws std::logic_error. Thread-safe; cost of a lookup: a search of the few names.
class Knobs {
 public:
  Knobs(std::span<const KnobSpec> specs, std::span<const KnobValue> values, double time, double scale);

  double number(std::string_view name, size_t component = 0) const;
  std::vector<double> numbers(std::string_view name) const;  // as many as were given
  int64_t integer(std::string_view name) const;              // saturated; NaN is 0
  bool flag(std::string_view name) const;
  const std::string& text(std::string_view name) const;  // of choices, texts, files and objects
  std::vector<std::string> texts(std::string_view name) const;
  int choice(std::string_view name) const;  // position among its choices

  // True when a keyed curve makes the knob differ from frame to frame.
  bool animated(std::string_view name) const;

  // The same knobs at another time, for motion blur and retiming.
  Knobs at(double time) const;
  double time() const {
    return time_;
  }
  double scale() const {
    return scale_;
  }

  // For whoever handles all knobs alike (hashing): position instead of name.
  std::span<const KnobSpec> specs() const {
    return specs_;
  }
  double value(size_t knob, size_t component) const;
  std::span<const KnobValue> values() const {
    return values_;
  }

 private:
  size_t find(std::string_view name) const;
  std::span<const KnobSpec> specs_;
  std::span<const KnobValue> values_;
  double time_;
  double scale_;
};

}  // namespace host::node
