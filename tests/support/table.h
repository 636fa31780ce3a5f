#pragma once

#include <array>
#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace support {

// The cells of a table in a text: a row a line, with | between the cells. Blanks around cells and empty lines
// are left out; a line of any other number of cells is refused.
template <size_t columns>
std::vector<std::array<std::string, columns>> rows(const std::string& table) {
  std::vector<std::array<std::string, columns>> result;
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) continue;
    std::istringstream cells(line + '|');
    size_t count = 0;
    result.emplace_back();
    for (std::string cell; std::getline(cells, cell, '|'); ++count) {
      if (count == columns) throw std::invalid_argument("more cells than columns: " + line);
      cell.erase(cell.find_last_not_of(' ') + 1);
      result.back().at(count) = cell.erase(0, cell.find_first_not_of(' '));
    }
    if (count < columns) throw std::invalid_argument("fewer cells than columns: " + line);
  }
  return result;
}

}  // namespace support
