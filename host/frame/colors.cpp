#include "host/frame/colors.h"

#include "host/writer/container.h"

#include <algorithm>
#include <exception>
#include <optional>

namespace host::frame {
namespace {

// Follows images from an output up to the files that they were read from, as far as nothing converts
// their colours and they are colours at all.
class Search {
 public:
  Search(const shot::Composition& composition, const node::Project& project, int64_t frame)
      : composition_(composition), project_(project), frame_(frame) {}

  void from(int output) {
    output_ = output;
    seen_.assign(composition_.nodes.size(), false);
    const node::Node& node = at(output);
    try {
      const auto file = node.type->operation->output(node.call_at(frame_, project_));
      encodes_ = file && writer::is_srgb(*file);
      follow(output);
    } catch (const std::exception&) {
      return;  // rendering says what is wrong
    }
  }

  std::vector<std::string> notices;

 private:
  const node::Node& at(int node) const {
    return composition_.nodes[static_cast<size_t>(node)];
  }

  void follow(int place) {
    if (place < 0 || seen_[static_cast<size_t>(place)]) return;
    seen_[static_cast<size_t>(place)] = true;
    const node::Node& node = at(place);
    // These convert; a decision list only grades.
    if (node.type->name.starts_with("ocio") && node.type->name != "ocio_cdl") return;
    const auto color = node.type->operation->color(node.call_at(frame_, project_));
    if (color && !color->decoded) note(node, color->space);
    for (size_t i = 0; i < node.inputs.size(); ++i) {
      const std::string& input = node.type->inputs[std::min(i, node.type->inputs.size() - 1)].name;
      if (input != "mask" && input != "matte") follow(node.inputs[i]);
    }
  }

  void note(const node::Node& node, const std::string& space) {
    std::string text = composition_.file + ": node \"" + node.name + "\": ";
    if (space == "sRGB" && encodes_) {
      text += "its file is sRGB and read as linear; node \"" + at(output_).name + "\" encodes it once more";
    } else if (space != "sRGB" && space != "linear") {
      text += "its file is " + space + " and read as it stands; ocio_colorspace would convert it";
    } else {
      return;
    }
    if (std::find(notices.begin(), notices.end(), text) == notices.end()) notices.push_back(text);
  }

  const shot::Composition& composition_;
  const node::Project& project_;
  int64_t frame_;
  int output_ = 0;
  bool encodes_ = false;
  std::vector<bool> seen_;
};

}  // namespace

std::string color_text(const plates::ReadColor& color) {
  if (!color.decoded) return color.space + (color.space == "linear" ? "" : ", taken as it stands");
  return color.space == "sRGB" ? "sRGB, made linear" : color.space + ", taken as sRGB, made linear";
}

std::vector<std::string> color_notices(const shot::Composition& composition, const node::Project& project,
                                       int64_t frame) {
  Search search(composition, project, frame);
  for (const int output : composition.outputs) search.from(output);
  return search.notices;
}

}  // namespace host::frame
