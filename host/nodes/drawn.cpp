#include "host/nodes/drawn.h"

namespace host::nodes {

node::Image Drawn::render(const node::Call& call, std::span<const node::Image> inputs, const Extent& extent,
                          node::RenderContext& context) const {
  const std::optional<Drawing> wanted = drawing(call, inputs, context);
  if (!wanted) return inputs[static_cast<size_t>(call.node.type->changes)];
  node::Image result = context.make(extent);
  const programs::Program& program = wanted->text
                                         ? context.shaders().get_generated(wanted->program, wanted->text)
                                         : context.shaders().get(wanted->program);
  context.draw(program, result, wanted->uniforms, wanted->images);
  return result;
}

}  // namespace host::nodes
