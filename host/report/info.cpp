#include "host/report/info.h"

#include "host/frame/colors.h"
#include "host/plan/found.h"
#include "host/report/image_info.h"
#include "host/shot/frames.h"

#include <algorithm>
#include <array>
#include <optional>

namespace host::report {
namespace {

constexpr size_t most_problems = 20;
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

// What a read node found: its file, the sequence behind it, and what there is to take.
std::string found_text(const plan::Found& found) {
  std::string text = "  reads    " + found.path + " (node \"" + found.node + "\", frame " +
                     std::to_string(found.frame) + "): ";
  text += !found.error.empty() ? "?" : found.color ? frame::color_text(*found.color) : "black";
  const std::string further = "\n           ";
  if (!found.frames.empty()) text += further + "frames " + sequence_text(found.frames);
  if (!found.error.empty()) return text + "\n";
  text += further + "takes " + layer_text(found.layer, found.contents) + " of ";
  for (size_t i = 0; i < found.contents.layers.size(); ++i)
    text += (i == 0 ? "" : ", ") + layer_text(found.contents.layers[i], found.contents);
  return text + "\n";
}

// Where the first frame goes; an output that cannot say so is a problem told below.
std::string writes_text(const shot::Composition& composition, const plan::Planner& planner) {
  std::string text;
  const int64_t frame = composition.frames.front();
  try {
    for (const plan::Target& target : planner.targets().at(frame)) {
      text += "  writes   " + target.file.path + " (node \"" +
              composition.nodes[static_cast<size_t>(target.node)].name + "\", frame " +
              std::to_string(frame) + ")\n";
    }
  } catch (const frame::FrameError&) {
    text += "  writes   ?\n";
  }
  return text;
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

std::string plan_text(const plan::FramePlan& plan) {
  std::string text = "frame " + std::to_string(plan.frame) + "\n";
  text += listed("computes ", plan.computes);
  if (!plan.reuses.empty()) text += listed("reuses   ", plan.reuses);
  for (const plan::PlannedFile& file : plan.reads) {
    text += file.error.empty() ? "  reads    " + file.path + "\n" : "  MISSING  " + file.error + "\n";
  }
  for (const plan::PlannedFile& file : plan.writes) {
    text += "  writes   " + file.path;
    if (file.exists && file.error.empty()) text += plan.skipped ? " (left as it is)" : " (replaces it)";
    text += "\n";
    if (!file.error.empty()) text += "  FAILS    " + file.error + "\n";
  }
  for (const std::string& notice : plan.notices) text += "  notice   " + notice + "\n";
  if (!plan.error.empty()) text += "  FAILS    " + plan.error + "\n";
  return text;
}

std::string info_text(const shot::Composition& composition, const plan::Planner& planner,
                      const std::vector<std::string>& problems) {
  const Format& format = planner.project().format;
  std::string text = composition.file + "\n";
  text += "  format   " + size_text(format.width, format.height);
  if (format.pixel_aspect != 1) text += ", pixel aspect " + std::to_string(format.pixel_aspect);
  text += "\n  frames   " + shot::frames_text(composition.frames) + "\n";
  for (const plan::Found& found :
       plan::found_by_reads(composition, planner.project(), composition.frames.front()))
    text += found_text(found);
  text += writes_text(composition, planner);
  text += "\n";
  const auto extents = planner.extents_if_known(composition.frames.front());
  std::vector<Row> rows = {{"node", "type", "pixels", "inputs"}};
  for (size_t i = 0; i < composition.nodes.size(); ++i) {
    const node::Node& node = composition.nodes[i];
    rows.push_back({node.name, node.type->name, extents ? window_text((*extents)[i]) : "?",
                    inputs_text(composition, node)});
  }
  text += table(rows);
  const auto notices = frame::color_notices(composition, planner.project(), composition.frames.front());
  for (const std::string& notice : notices) text += "\nnotice: " + notice + "\n";
  if (problems.empty()) return text + "\nno problem found\n";
  return text + "\n" + std::to_string(problems.size()) +
         (problems.size() == 1 ? " problem:\n" : " problems:\n") + problems_text(problems);
}

std::string quick_look_text(const shot::Composition& composition, const plan::Targets& targets,
                            const std::vector<int64_t>& frames) {
  std::string text;
  if (!composition.quick_look) return text;
  for (const plan::Target& target : targets.at(frames.front())) {
    const node::Node& node = composition.nodes[static_cast<size_t>(target.node)];
    if (!node.type->writes_files) text += "node \"" + node.name + "\" goes to " + target.file.path + "\n";
  }
  return text;
}

std::string problems_text(const std::vector<std::string>& problems) {
  std::string text;
  for (size_t i = 0; i < std::min(problems.size(), most_problems); ++i) text += "  " + problems[i] + "\n";
  if (problems.size() > most_problems) text += "  and so on\n";
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

}  // namespace host::report
