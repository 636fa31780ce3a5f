#include "host/node/node.h"

#include "host/files/path.h"

#include <algorithm>
#include <filesystem>

namespace host::node {

std::string resolved_path(const Project& project, const std::string& file) {
  if (file.empty()) return file;
  return (std::filesystem::path(project.folder) / files::expanded(file)).lexically_normal().string();
}

std::vector<std::string> Operation::check(const Knobs& /*knobs*/) const {
  return {};
}

std::vector<Request> Operation::reads(const Call& call) const {
  std::vector<Request> requests;
  for (size_t i = 0; i < call.node.inputs.size(); ++i) {
    requests.push_back({static_cast<int>(i), call.frame});
  }
  return requests;
}

void Operation::identify(const Call& /*call*/, Identity& /*identity*/) const {}

std::optional<plates::Source> Operation::source(const Call& /*call*/) const {
  return std::nullopt;
}

std::optional<plates::ReadColor> Operation::color(const Call& /*call*/) const {
  return std::nullopt;
}

std::string Operation::notice(const Call& /*call*/) const {
  return {};
}

Extent Operation::extent(const Call& call, std::span<const Extent> inputs) const {
  return inputs.empty() ? Extent{call.project.format, {}} : inputs[0];
}

bool Operation::coverage(const Call& /*call*/, std::span<const Image> inputs) const {
  return inputs.empty() || inputs[0].coverage;
}

files::MetadataPtr Operation::metadata(const Call& call, std::span<const Image> inputs) const {
  if (inputs.empty()) return nullptr;
  const std::vector<Request> requests = reads(call);
  size_t main = 0;
  for (size_t i = inputs.size(); i-- > 0;) {
    if (requests[i].input != call.node.type->changes) continue;
    const bool nearer = requests[i].frame == call.frame || requests[main].frame != call.frame;
    if (requests[main].input != requests[i].input || nearer) main = i;
  }
  return inputs[main].metadata;
}

std::optional<writer::OutputFile> Operation::output(const Call& /*call*/) const {
  return std::nullopt;
}

bool Node::animated() const {
  return std::any_of(knobs.begin(), knobs.end(), [](const KnobValue& value) { return value.animated(); });
}

std::string Node::given_name() const {
  return view.empty() ? name : name.substr(0, name.size() - view.size() - 1);
}

Call Node::call_at(int64_t frame, const Project& project) const {
  return {*this, Knobs(type->knobs, knobs, static_cast<double>(frame), project.scale), frame, project};
}

}  // namespace host::node
