#pragma once

#include <string>

namespace scene {

// Tables of nodes and their pixels, as support::rows takes them. Numbers may be fractions, as 1/3.

// Renders one node behind a plate for each line and checks where its pixels lie. The columns: what it is
// about, the plate's name, the node's type, the inside of its knobs, width and height of the format, the
// window, and pixels "x y value" or "x y red green blue alpha" with commas between them. The composition
// has the format of the plates.
void check_placed_cases(const char* table, int width, int height);

// Renders a node for each line behind the nodes in `before` and checks the pixel
// right of the middle in the second row. The columns: what it is about, the node's type, its inputs or
// the colour of the constant that it reads, the inside of its knobs, and one value or four.
void check_pixels(const std::string& before, const std::string& table, double tolerance = 1e-6, int size = 2,
                  double scale = 1);

// Renders a node for each line behind the nodes in `before` and checks what it is refused with. The columns:
// the node's type, its inputs, the inside of its knobs, and a part of the message, or "nothing" where all is
// good.
void check_refusals(const std::string& before, const char* table);

}  // namespace scene
