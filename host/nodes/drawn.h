#pragma once

#include "host/node/node.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace host::nodes {

// A draw that makes a result: a program and what it reads. A view of the images given.
struct Drawing {
  std::string program;  // a file, or the name that `text` goes by
  std::vector<node::Uniform> uniforms;
  std::vector<node::Input> images;
  std::function<std::string()> text = nullptr;  // of a program made at run time
};

// An operation that is one draw, in which every pixel stands for itself. It says what it would draw,
// so that what stands around a node (around.h) can become part of that draw. Its program writes
// o_color in main() and nowhere else, and gives transparent black outside the result's extent.
class Drawn : public node::Operation {
 public:
  // None where nothing changes: the result is the input that the node changes.
  virtual std::optional<Drawing> drawing(const node::Call& call, std::span<const node::Image> inputs,
                                         node::RenderContext& context) const = 0;

  node::Image render(const node::Call& call, std::span<const node::Image> inputs, const Extent& extent,
                     node::RenderContext& context) const final;
};

}  // namespace host::nodes
