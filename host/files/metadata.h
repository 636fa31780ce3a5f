#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host::files {

// One thing that a file says beside its pixels, under OpenEXR's name for it and as one of OpenEXR's types:
// "timeCode", a "timecode". Files of other types have it under names of their own, which is their readers'
// and encoders' business (general/images/spec_metadata.h).
struct Metadatum {
  std::string name;
  std::string type;                // "string", "int", "m44f", ...
  std::vector<double> numbers;     // of types made of numbers, in OpenEXR's order
  std::vector<std::string> texts;  // of "string" and "stringvector"; of a type that nobody knows its bytes
  bool operator==(const Metadatum&) const = default;
};

// What a picture brings along beside its pixels, by name, each name once: time code, camera, chromaticities.
// Nothing about how a file stores it. A value; images share one that nobody changes (MetadataPtr).
class Metadata {
 public:
  // In place of one of that name.
  void set(Metadatum entry);

  // Those that a name or a pattern with * and ? fits.
  void drop(const std::string& pattern);

  // Null when there is none.
  const Metadatum* find(std::string_view name) const;

  const std::vector<Metadatum>& all() const {
    return entries_;
  }

  // About what it takes.
  uint64_t bytes() const;

 private:
  std::vector<Metadatum> entries_;
};

using MetadataPtr = std::shared_ptr<const Metadata>;

// Whether a name says how a file stores its pixels, which every file says for itself.
bool is_storage(std::string_view name);

// The numbers that a type is made of, a letter each: i and u of 32 bits, f and d, b a byte; "*f" any number
// of them. Nothing for texts and for what is no type of OpenEXR's metadata.
std::optional<std::string_view> numbers_of_type(std::string_view type);

// The type that a well-known name has in every file ("timeCode": "timecode"), or "".
std::string_view type_of_name(std::string_view name);

// Whether its numbers are as many, and such, as its type holds.
bool is_sound(const Metadatum& entry);

// For people: "01:00:00:00", "24000/1001", "0.64, 0.33". And back, nothing where the text is none of that
// type; texts that fit no known name's type are strings.
std::string text_of(const Metadatum& entry);
std::optional<Metadatum> from_text(std::string name, std::string_view type, std::string_view text);
Metadatum from_text(std::string name, std::string text);

}  // namespace host::files
