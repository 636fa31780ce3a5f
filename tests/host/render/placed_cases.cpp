#include "tests/host/render/placed_cases.h"

#include "tests/host/render/scene.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace scene {

namespace {

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

// The columns of the lines of a table that are not empty.
std::vector<std::vector<std::string>> rows(const char* table, size_t columns) {
  std::vector<std::vector<std::string>> result;
  for (const std::string& line : split(table, '\n')) {
    if (line.empty()) continue;
    result.push_back(split(line, '|'));
    if (result.back().size() != columns) throw std::invalid_argument("no case: " + line);
  }
  return result;
}

std::vector<double> numbers(const std::string& text) {
  std::vector<double> result;
  std::istringstream stream(text);
  for (std::string word; stream >> word;) {
    const size_t slash = word.find('/');
    result.push_back(std::stod(word) / (slash == std::string::npos ? 1 : std::stod(word.substr(slash + 1))));
  }
  return result;
}

std::string word(const std::string& text) {
  std::string result;
  std::istringstream(text) >> result;
  return result;
}

// `values`: x, y, and a value for all channels or four.
void check_pixel(const host::render::HostImage& image, const std::vector<double>& values, double tolerance) {
  ASSERT_TRUE(values.size() == 3 || values.size() == 6);
  const auto found = pixel(image, static_cast<int64_t>(values[0]), static_cast<int64_t>(values[1]));
  for (size_t channel = 0; channel < 4; ++channel)
    EXPECT_NEAR(found[channel], values[std::min(2 + channel, values.size() - 1)], tolerance)
        << "channel " << channel << " at " << values[0] << ", " << values[1];
}

}  // namespace

void check_placed_cases(const char* table, int width, int height) {
  for (const auto& columns : rows(table, 7)) {
    SCOPED_TRACE(columns[0] + columns[2] + columns[3]);
    Scene shot(read_plate(word(columns[1]) + ".exr") + node("n", "p", word(columns[2]), columns[3]), width,
               height);
    const host::render::HostImage image = shot.image("n");
    const host::Format& format = image.extent.format;
    EXPECT_EQ((std::vector<double>{static_cast<double>(format.width), static_cast<double>(format.height)}),
              numbers(columns[4]));
    EXPECT_EQ(std::vector<double>(image.extent.window.begin(), image.extent.window.end()),
              numbers(columns[5]));
    for (const std::string& probe : split(columns[6], ',')) check_pixel(image, numbers(probe), 1e-5);
  }
}

void check_pixels(const std::string& before, const char* table, double tolerance, int size, double scale) {
  for (const auto& columns : rows(table, 5)) {
    SCOPED_TRACE(columns[0] + columns[1] + columns[3]);
    std::string nodes = before, input = columns[2];
    if (input.find_first_of("\"[{") == std::string::npos) {
      const std::vector<double> color = numbers(std::exchange(input, "\"p\""));
      Rgba rgba{};
      for (size_t i = 0; i < 4; ++i) rgba[i] = static_cast<float>(color[i]);
      nodes += constant("p", rgba);
    }
    nodes += node("n", input, word(columns[1]), columns[3]);
    host::render::RenderOptions options;
    options.scale = scale;
    Scene shot(nodes, size, size, options);
    std::vector<double> values = numbers(columns[4]);
    values.insert(values.begin(), {scale * size / 2, 1});
    check_pixel(shot.image("n"), values, tolerance);
  }
}

}  // namespace scene
