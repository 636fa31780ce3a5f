#include "tests/host/render/placed_cases.h"

#include "tests/host/render/transform_plates.h"

#include <algorithm>
#include <sstream>
#include <string>
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

template <class Number>
std::vector<Number> numbers(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<Number>(stream), {}};
}

std::string word(const std::string& text) {
  std::string result;
  std::istringstream(text) >> result;
  return result;
}

void check_pixel(const host::render::HostImage& image, const std::string& probe) {
  const std::vector<double> values = numbers<double>(probe);
  ASSERT_TRUE(values.size() == 3 || values.size() == 6) << probe;
  const auto found = pixel(image, static_cast<int64_t>(values[0]), static_cast<int64_t>(values[1]));
  for (size_t channel = 0; channel < 4; ++channel)
    EXPECT_NEAR(found[channel], values[std::min(2 + channel, values.size() - 1)], 1e-5) << "pixel" << probe;
}

}  // namespace

int check_placed_cases(const char* table, int width, int height) {
  int checked = 0;
  for (const std::string& line : split(table, '\n')) {
    const std::vector<std::string> columns = split(line, '|');
    if (columns.size() != 7) continue;
    SCOPED_TRACE(line);
    Scene shot(read_plate(word(columns[1]) + ".exr") + node("n", "p", word(columns[2]), columns[3]), width,
               height);
    const host::render::HostImage image = shot.image("n");
    const host::Format& format = image.extent.format;
    EXPECT_EQ((std::vector<int64_t>{format.width, format.height}), numbers<int64_t>(columns[4]));
    EXPECT_EQ(std::vector<int64_t>(image.extent.window.begin(), image.extent.window.end()),
              numbers<int64_t>(columns[5]));
    for (const std::string& probe : split(columns[6], ',')) check_pixel(image, probe);
    ++checked;
  }
  return checked;
}

}  // namespace scene
