#include "host/plates/color_space.h"

#include "host/files/made.h"

#include <cctype>
#include <string_view>

namespace host::plates {
namespace {

std::string lower(std::string_view text) {
  std::string result(text);
  for (char& each : result) each = static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
  return result;
}

// The names that newer readers have for what older ones call "Linear", "sRGB" and "Gamma2.2".
std::string known_name(const std::string& space) {
  if (space == "lin_rec709_scene") return "Linear";
  if (space == "srgb_rec709_scene") return "sRGB";
  const bool gamma = space.size() > 3 && space.starts_with('g') && space.ends_with("_rec709_scene");
  return gamma ? "Gamma" + space.substr(1, 1) + "." + space.substr(2, 1) : space;
}

}  // namespace

// Readers call floats "Linear" without asking, and some whole numbers "sRGB". A gamma stands for the curve
// of a screen, as PNG files give it.
ColorSpace color_space_of(const ColorHints& hints) {
  const std::string& note = hints.description;
  for (const bool srgb : {true, false}) {
    if (note.substr(0, note.find('\n')) == files::color_note(srgb))
      return {srgb ? "sRGB" : "linear", "its description says so"};
  }
  ColorSpace otherwise = hints.floats
                             ? ColorSpace{"linear", "floats are, unless the file says otherwise"}
                             : ColorSpace{"sRGB", "whole numbers are, unless the file says otherwise"};
  const std::string space = known_name(hints.space);
  if (space.empty() && lower(hints.profile).find("linear") != std::string::npos)
    return {"linear", "its colour profile is called linear"};
  const std::string name = lower(space) == "linear" ? "linear" : space;
  if (name.empty() || name == otherwise.name) return otherwise;
  if (space.starts_with("Gamma")) return {"sRGB", "the file says " + space + ", which stands for that curve"};
  return {name, "the file says so"};
}

}  // namespace host::plates
