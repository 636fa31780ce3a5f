#pragma once

#include <qv/io/layers.h>

#include <array>
#include <string>
#include <vector>

namespace qv::io {

// What load_layers is asked for, beside the file: its parameters.
struct LayerPlan {
  const std::vector<Read>& reads;
  const std::vector<std::array<Slot, 4>>& slots;
  int width = 0, height = 0;
  int threads = 0;
  const std::vector<float*>& outs;
};

// What is wrong with a plan in itself; empty when nothing is. Throws std::bad_alloc.
std::string plan_error(const LayerPlan& plan);

}  // namespace qv::io
