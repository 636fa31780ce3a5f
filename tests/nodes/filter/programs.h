#pragma once

#include <qv/nodes/filter/plan.h>

#include <vector>

// The fake driver with a program for every fragment file, as a host would register them.
namespace programs {

// Image 1 is the first input, 2 the second; both 64 x 48. Their names are none that GL hands out.
inline const std::vector<qv::nodes::filter::Tex> inputs{{501, 0, 51, 64, 48}, {502, 0, 52, 64, 48}};

// What a filter of that size is drawn into.
qv::nodes::filter::Tex target(int w = 64, int h = 48);

// Resets the fake driver, loads the entry points, registers all programs and empties the pool of
// any earlier context.
void start();

}  // namespace programs
