#include "host/general/images/spec_metadata.h"

#include "host/files/made.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host::general::images {
namespace {

using OIIO::TypeDesc;
using writer::Container;

struct Names {
  const char *ours, *theirs;
};
constexpr std::array<Names, 11> renamed = {{{"aperture", "FNumber"},
                                            {"capDate", "DateTime"},
                                            {"comments", "ImageDescription"},
                                            {"expTime", "ExposureTime"},
                                            {"framesPerSecond", "FramesPerSecond"},
                                            {"isoSpeed", "Exif:ISOSpeedRatings"},
                                            {"keyCode", "smpte:KeyCode"},
                                            {"owner", "Copyright"},
                                            {"timeCode", "smpte:TimeCode"},
                                            {"worldToCamera", "worldtocamera"},
                                            {"worldToNDC", "worldtoscreen"}}};

std::string our_name(const std::string& name) {
  for (const Names& each : renamed)
    if (name == each.theirs) return each.ours;
  return name;
}

std::string their_name(const std::string& name) {
  for (const Names& each : renamed)
    if (name == each.ours) return each.theirs;
  return name;
}

struct Type {
  const char* ours;
  TypeDesc theirs;
};

// Types whose values lie in memory alike.
const std::vector<Type>& types() {
  static const std::vector<Type> all = {{"timecode", OIIO::TypeTimeCode},
                                        {"keycode", OIIO::TypeKeyCode},
                                        {"rational", OIIO::TypeRational},
                                        {"m44f", OIIO::TypeMatrix44},
                                        {"m33f", OIIO::TypeMatrix33},
                                        {"chromaticities", TypeDesc(TypeDesc::FLOAT, 8)},
                                        {"int", OIIO::TypeInt},
                                        {"float", OIIO::TypeFloat},
                                        {"double", TypeDesc(TypeDesc::DOUBLE)},
                                        {"v2f", TypeDesc(TypeDesc::FLOAT, TypeDesc::VEC2)},
                                        {"v2i", TypeDesc(TypeDesc::INT, TypeDesc::VEC2)},
                                        {"v3f", OIIO::TypeVector},
                                        {"v3i", TypeDesc(TypeDesc::INT, TypeDesc::VEC3)}};
  return all;
}

// "" for what OpenEXR has nothing for.
std::string our_type(const TypeDesc& type) {
  for (const Type& each : types())
    if (type == each.theirs) return each.ours;
  const bool scalar = type.aggregate == TypeDesc::SCALAR && type.arraylen == 0;
  const auto base = static_cast<TypeDesc::BASETYPE>(type.basetype);
  const bool whole = base == TypeDesc::UINT8 || base == TypeDesc::INT8 || base == TypeDesc::UINT16 ||
                     base == TypeDesc::INT16 || base == TypeDesc::UINT32;
  if (scalar && whole) return "int";
  if (base != TypeDesc::FLOAT) return "";
  return type.arraylen > 0 ? "floatvector" : type.aggregate == TypeDesc::VEC3 ? "v3f" : "";
}

std::optional<files::Metadatum> entry_of(const OIIO::ParamValue& value) {
  const std::string name = our_name(value.name().string());
  if (value.type() == OIIO::TypeString) {
    std::string text = value.get_string(0);
    if (name == "comments") text = files::without_color_note(text);
    return text.empty() ? std::nullopt : std::optional(files::from_text(name, std::move(text)));
  }
  files::Metadatum entry{name, our_type(value.type()), {}, {}};
  if (entry.type.empty()) return std::nullopt;
  // A date of numbers would be none.
  const std::string_view known = files::type_of_name(name);
  if (known == "string" || known == "envmap") return std::nullopt;
  const auto base = static_cast<TypeDesc::BASETYPE>(value.type().basetype);
  const size_t count = value.type().numelements() * value.type().aggregate;
  for (size_t i = 0; i < count; ++i) {
    const int at = static_cast<int>(i);
    if (base == TypeDesc::UINT32) {
      entry.numbers.push_back(static_cast<double>(static_cast<const uint32_t*>(value.data())[i]));
    } else if (base == TypeDesc::DOUBLE) {
      entry.numbers.push_back(static_cast<const double*>(value.data())[i]);
    } else if (base == TypeDesc::FLOAT) {
      entry.numbers.push_back(static_cast<double>(static_cast<const float*>(value.data())[i]));
    } else {
      entry.numbers.push_back(value.get_int_indexed(at));
    }
  }
  if (entry.type == "int" && known == "float") entry.type = known;
  return files::is_sound(entry) ? std::optional(std::move(entry)) : std::nullopt;
}

void add_as_it_is(const files::Metadatum& entry, OIIO::ImageSpec& spec) {
  const std::string name = their_name(entry.name);
  if (entry.type == "string") return spec.attribute(name, entry.texts[0]);
  for (const Type& each : types()) {
    if (entry.type != each.ours) continue;
    const auto base = static_cast<TypeDesc::BASETYPE>(each.theirs.basetype);
    const std::vector<float> reals(entry.numbers.begin(), entry.numbers.end());
    std::vector<uint32_t> words;
    for (const double number : entry.numbers)
      words.push_back(static_cast<uint32_t>(static_cast<int64_t>(number)));
    const void* const values = base == TypeDesc::FLOAT    ? static_cast<const void*>(reals.data())
                               : base == TypeDesc::DOUBLE ? static_cast<const void*>(entry.numbers.data())
                                                          : static_cast<const void*>(words.data());
    return spec.attribute(name, each.theirs, values);
  }
}

// Tags of the main directory. One in the EXIF directory would cost the image: in memory the writer loses it.
bool has_tiff_tag(std::string_view name) {
  constexpr std::array<std::string_view, 9> tags = {"Artist",       "Copyright",    "DateTime",
                                                    "DocumentName", "HostComputer", "ImageDescription",
                                                    "Make",         "Model",        "PageName"};
  return std::find(tags.begin(), tags.end(), name) != tags.end();
}

}  // namespace

files::Metadata metadata_of(const OIIO::ImageSpec& spec) {
  files::Metadata metadata;
  for (const OIIO::ParamValue& value : spec.extra_attribs) {
    if (files::is_storage(value.name().string())) continue;
    if (auto entry = entry_of(value)) metadata.set(std::move(*entry));
  }
  return metadata;
}

void add_metadata(const files::Metadata& metadata, Container container, OIIO::ImageSpec& spec) {
  for (const files::Metadatum& each : metadata.all()) {
    const std::string name = their_name(each.name);
    if (container == Container::png) {
      // Its texts have their own names for these alone.
      const bool known = name == "DateTime" || name == "Copyright" || name == "ImageDescription";
      spec.attribute(known ? name : each.name, files::text_of(each));
    } else if (container != Container::tiff) {
      add_as_it_is(each, spec);
    } else if (has_tiff_tag(name) && each.type == "string") {
      spec.attribute(name, each.texts[0]);
    }
  }
}

}  // namespace host::general::images
