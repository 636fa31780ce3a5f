#include "host/cli/info.h"

#include "host/shot/frames.h"

#include <algorithm>
#include <array>
#include <optional>

namespace host::cli {
namespace {

constexpr size_t most_missing = 20;
constexpr size_t most_lines = 20;

std::string size_text(int64_t width, int64_t height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

std::string window_text(const Extent& extent) {
  const Box& window = extent.window;
  if (is_empty(window)) return "empty";
  if (window == format_box(extent.format)) return size_text(extent.format.width, extent.format.height);
  return size_text(box_width(window), box_height(window)) + " at (" + std::to_string(window[0]) + ", " +
         std::to_string(window[1]) + ")";
}

std::string inputs_text(const shot::Composition& composition, const node::Node& node) {
  std::string text;
  const auto& specs = node.type->inputs;
  for (size_t i = 0; i < node.inputs.size(); ++i) {
    if (node.inputs[i] < 0) continue;
    text += text.empty() ? "" : ", ";
    if (specs.size() > 1) text += specs[std::min(i, specs.size() - 1)].name + " ";
    text += composition.nodes[static_cast<size_t>(node.inputs[i])].name;
  }
  return text;
}

// The cell, filled up to the column's width.
std::string padded(std::string cell, size_t width) {
  cell.resize(std::max(cell.size(), width), ' ');
  return cell + "  ";
}

using Row = std::array<std::string, 4>;

std::string table(const std::vector<Row>& rows) {
  std::array<size_t, 4> widths{};
  for (const Row& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const Row& row : rows) {
    std::string line = "  ";
    for (size_t i = 0; i < row.size(); ++i) line += padded(row[i], widths[i]);
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

// Windows are known only once every file of the frame is there.
std::optional<std::vector<Extent>> extents_of(const shot::Composition& composition,
                                              const frame::Planner& planner) {
  try {
    return planner.extents(composition.frames.front());
  } catch (const frame::FrameError&) {
    return std::nullopt;
  }
}

std::string quoted_label(const std::string& text) {
  std::string label = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') label += '\\';
    label += c;
  }
  return label + '"';
}

std::string listed(const char* title, const std::vector<std::string>& results) {
  std::string text = "  " + std::string(title) + std::to_string(results.size());
  for (size_t i = 0; i < results.size(); ++i) {
    if (i == most_lines) return text + ", ...\n";
    text += (i == 0 ? ": " : ", ") + results[i];
  }
  return text + "\n";
}

}  // namespace

std::string plan_text(const frame::FramePlan& plan, frame::Existing existing) {
  std::string text = "frame " + std::to_string(plan.frame) + "\n";
  text += listed("computes ", plan.computes);
  if (!plan.reuses.empty()) text += listed("reuses   ", plan.reuses);
  for (const frame::PlannedFile& file : plan.reads) {
    text += file.error.empty() ? "  reads    " + file.path + "\n" : "  MISSING  " + file.error + "\n";
  }
  constexpr const char* when_there[] = {" (replaces it)", " (left as it is)",
                                        " (IN THE WAY: it exists already)"};
  for (const frame::PlannedFile& file : plan.writes) {
    text += "  writes   " + file.path;
    text += file.exists ? when_there[static_cast<size_t>(existing)] : "";
    text += "\n";
  }
  if (!plan.error.empty()) text += "  FAILS    " + plan.error + "\n";
  return text;
}

std::vector<std::string> missing_files(frame::Planner& planner, const std::vector<int64_t>& frames) {
  std::vector<std::string> lines;
  for (const int64_t frame : frames) {
    const frame::FramePlan plan = planner.frame(frame);
    for (const frame::PlannedFile& file : plan.reads) {
      if (!file.error.empty()) lines.push_back(file.error);
    }
    if (!plan.error.empty()) lines.push_back(plan.error);
  }
  return lines;
}

std::string info_text(const shot::Composition& composition, const frame::Planner& planner,
                      const std::vector<std::string>& missing) {
  const Format& format = planner.project().format;
  std::string text = composition.file + "\n";
  text += "  format   " + size_text(format.width, format.height);
  if (format.pixel_aspect != 1) text += ", pixel aspect " + std::to_string(format.pixel_aspect);
  text += "\n  frames   " + shot::frames_text(composition.frames) + "\n";
  for (const frame::PlannedFile& file : planner.writes(composition.frames.front())) {
    text += "  writes   " + file.path + " (node \"" + file.node + "\", frame " + std::to_string(file.frame) +
            ")\n";
  }
  text += "\n";
  const auto extents = extents_of(composition, planner);
  std::vector<Row> rows = {{"node", "type", "pixels", "inputs"}};
  for (size_t i = 0; i < composition.nodes.size(); ++i) {
    const node::Node& node = composition.nodes[i];
    rows.push_back({node.name, node.type->name, extents ? window_text((*extents)[i]) : "?",
                    inputs_text(composition, node)});
  }
  text += table(rows);
  if (missing.empty()) return text + "\nno file is missing\n";
  text += "\n" + std::to_string(missing.size()) + " missing:\n";
  for (size_t i = 0; i < std::min(missing.size(), most_missing); ++i) text += "  " + missing[i] + "\n";
  if (missing.size() > most_missing) text += "  and so on\n";
  return text;
}

std::string graphviz(const shot::Composition& composition) {
  std::string text = "digraph composition {\n  node [shape=box];\n";
  for (const node::Node& node : composition.nodes) {
    const bool output = node.type->writes_files;
    text += "  " + quoted_label(node.name) + " [label=" + quoted_label(node.name + "\n" + node.type->name) +
            (output ? ", style=bold" : "") + "];\n";
  }
  for (const node::Node& node : composition.nodes) {
    const auto& specs = node.type->inputs;
    for (size_t i = 0; i < node.inputs.size(); ++i) {
      if (node.inputs[i] < 0) continue;
      text += "  " + quoted_label(composition.nodes[static_cast<size_t>(node.inputs[i])].name) + " -> " +
              quoted_label(node.name);
      if (specs.size() > 1)
        text += " [label=" + quoted_label(specs[std::min(i, specs.size() - 1)].name) + "]";
      text += ";\n";
    }
  }
  return text + "}\n";
}

}  // namespace host::cli
