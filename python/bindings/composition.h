#pragma once

#include "host/shot/composition.h"

#include <memory>
#include <string>
#include <utility>

namespace bindings {

// `_quorvel.Composition`: a checked composition as the renderer takes it, made of what a
// quorvel.Composition says at the time. Immutable, so threads and renderers may share it.
class CompiledComposition {
 public:
  explicit CompiledComposition(host::shot::Composition composition)
      : shared_(std::make_shared<const host::shot::Composition>(std::move(composition))) {}

  const std::shared_ptr<const host::shot::Composition>& shared() const {
    return shared_;
  }
  const host::shot::Composition& operator*() const {
    return *shared_;
  }

 private:
  std::shared_ptr<const host::shot::Composition> shared_;
};

// A name that no node has; says which may have been meant.
class UnknownNode : public host::shot::CompositionError {
 public:
  UnknownNode(const host::shot::Composition& composition, const std::string& name);
};

}  // namespace bindings
