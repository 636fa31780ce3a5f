#include "host/shot/asked/outline.h"

#include "host/files/path.h"
#include "host/shot/problems.h"

#include <exception>
#include <fstream>
#include <iterator>

#include <nlohmann/json.hpp>

namespace host::shot::asked {
namespace {

Outline outline_of(const nlohmann::json& root) {
  Outline found;
  for (const nlohmann::json& node : root.value("nodes", nlohmann::json::array())) {
    found.nodes.emplace_back(node.value("name", ""), node.value("type", ""));
  }
  found.views = root.value("views", found.views);
  return found;
}

}  // namespace

Outline outline(const std::string& file) {
  try {
    std::ifstream stream(files::expanded(file), std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    return outline_of(parse_json(text, file));
  } catch (const std::exception&) {
    return {};
  }
}

}  // namespace host::shot::asked
