#include "host/files/metadata.h"

#include "host/nodes/families.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

// What travels beside pixels.

namespace host::nodes {
namespace {

using files::Metadata;
using files::Metadatum;
using nlohmann::json;

// The type of a value of JSON under a name that is nobody's.
std::string usual_type(const json& value) {
  if (value.is_string()) return "string";
  if (value.is_boolean()) return "int";
  if (value.is_number_integer() && files::is_sound({"", "int", {value.get<double>()}, {}})) return "int";
  if (value.is_number()) return value.is_number_integer() ? "double" : "float";
  const auto all = [&value](auto&& is) { return std::all_of(value.begin(), value.end(), is); };
  if (all([](const json& each) { return each.is_string(); })) return "stringvector";
  const char* const kind = all([](const json& each) { return each.is_number_integer(); }) ? "i" : "f";
  if (value.size() == 2 || value.size() == 3) return "v" + std::to_string(value.size()) + kind;
  if (value.size() == 9) return "m33f";
  return value.size() == 16 ? "m44f" : "floatvector";
}

double number_of(const json& value) {
  return value.is_boolean() ? (value.get<bool>() ? 1.0 : 0.0) : value.get<double>();
}

// The entry that a value of JSON means: of the type that an object with "type" and "value" names, else of
// that which the name has everywhere, else of its own. Throws std::runtime_error that begins with the name.
Metadatum entry_of(const std::string& name, const json& given) {
  const auto refuse = [&](const std::string& expected) -> std::runtime_error {
    return std::runtime_error("\"" + name + "\": expected " + expected + ", found " + given.dump());
  };
  if (name.empty() || files::is_storage(name))
    throw std::runtime_error("\"" + name + "\" is no metadata: it says how a file stores its pixels");
  const bool typed = given.is_object();
  if (typed && !(given.size() == 2 && given.contains("value") && given.value("type", json()).is_string()))
    throw refuse(R"({"type": "v2f", "value": [1, 2]} or the like)");
  const json& value = typed ? given["value"] : given;
  if (value.is_null() || value.is_object() || (value.is_array() && value.empty()))
    throw refuse("a text, a number or a list of one of them");

  const std::string known(files::type_of_name(name));
  const std::string type = typed           ? given["type"].get<std::string>()
                           : known.empty() ? usual_type(value)
                                           : known;
  if (value.is_string()) {
    if (auto entry = files::from_text(name, type, value.get<std::string>())) return std::move(*entry);
    throw refuse(type == "timecode" ? R"(a time code such as "01:00:00:00")" : "a value of type " + type);
  }
  Metadatum entry{name, type, {}, {}};
  for (const json& each : value.is_array() ? value : json::array({value})) {
    if (each.is_string()) {
      entry.texts.push_back(each.get<std::string>());
    } else if (each.is_number() || each.is_boolean()) {
      entry.numbers.push_back(number_of(each));
    } else {
      throw refuse("numbers or texts");
    }
  }
  if (type == "rational" && entry.numbers.size() == 1) entry.numbers.push_back(1);
  const bool texts = type == "string" || type == "stringvector";
  const bool whole = texts ? entry.numbers.empty() : files::numbers_of_type(type) && entry.texts.empty();
  if (!whole || !files::is_sound(entry)) throw refuse("a value of type " + type);
  return entry;
}

class SetMetadata final : public Operation {
 public:
  std::vector<std::string> check(const Knobs& knobs) const override {
    std::vector<std::string> problems;
    const json set = json::parse(knobs.text("set"));
    for (const auto& [name, value] : set.items()) {
      try {
        entry_of(name, value);
      } catch (const std::runtime_error& error) {
        problems.push_back(std::string("knob \"set\": ") + error.what());
      }
    }
    return problems;
  }

  files::MetadataPtr metadata(const Call& call, std::span<const Image> inputs) const override {
    Metadata all = inputs[0].metadata ? *inputs[0].metadata : Metadata();
    for (const std::string& pattern : call.knobs.texts("drop")) all.drop(pattern);
    const json set = json::parse(call.knobs.text("set"));
    for (const auto& [name, value] : set.items()) all.set(entry_of(name, value));
    return std::make_shared<const Metadata>(std::move(all));
  }

  Image render(const Call& /*call*/, std::span<const Image> inputs, const Extent& /*extent*/,
               RenderContext& /*context*/) const override {
    return inputs[0];
  }
};

NodeType metadata() {
  NodeType type;
  type.name = "metadata";
  type.family = "in and out";
  type.help = "Sets and drops what the image brings along beside its pixels: time code, camera, owner.";
  type.inputs = {{"image", true, "Whose metadata to change; its pixels come out unchanged."}};
  type.knobs = {
      object("set", R"(Entries by OpenEXR's names, as {"timeCode": "01:00:00:00", "take": 3}; one of a type )"
                    R"(of your own is {"type": "m33d", "value": [...]}.)"),
      texts("drop", 100, "Names to drop before, or patterns with * and ?; \"*\" drops all."),
  };
  type.operation = std::make_shared<SetMetadata>();
  type.takes_pending = true;
  type.changes = -1;
  return type;
}

}  // namespace

std::vector<NodeType> metadata_family() {
  return {metadata()};
}

}  // namespace host::nodes
