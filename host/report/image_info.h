#pragma once

#include "host/plates/headers.h"

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace host::report {

// What image files hold, for people and as JSON. docs/info.md describes the members.

// A file as it was asked for: of a pattern, `frames` are those that stand, in order, and `header` is the
// first one's.
struct AskedImage {
  std::string name;
  std::string path;
  std::vector<int64_t> frames;
  plates::HeaderPtr header;
};

// The text is of one that can be read; else the JSON has its "error".
std::string image_text(const AskedImage& image);
nlohmann::ordered_json image_json(const AskedImage& image);

// The frames that stand and those between them that do not: "1-3,5-9, without 4". And as members "frames" and
// "missing".
std::string sequence_text(const std::vector<int64_t>& frames);
void add_sequence(const std::vector<int64_t>& frames, nlohmann::ordered_json& json);

// A layer as `read` calls it, with its channels in the order of red, green, blue and alpha, each once:
// `"depth" (Z)`.
std::string layer_text(const plates::Layer& layer, const plates::Contents& contents);
nlohmann::ordered_json layer_json(const plates::Layer& layer, const plates::Contents& contents);

}  // namespace host::report
