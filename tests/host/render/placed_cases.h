#pragma once

namespace scene {

// Renders one node behind a plate for each line of a table and checks where its pixels lie. The columns
// are separated by |: what it is about, the plate's name, the node's type, the inside of its knobs, width
// and height of the format, the window, and pixels "x y value" or "x y red green blue alpha" with commas
// between them. The composition has the format of the plates. Returns how many lines were such cases.
int check_placed_cases(const char* table, int width, int height);

}  // namespace scene
