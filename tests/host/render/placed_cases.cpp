#include "tests/host/render/placed_cases.h"

#include "tests/host/render/scene.h"
#include "tests/support/error.h"
#include "tests/support/table.h"

#include <algorithm>
#include <utility>

#include <gtest/gtest.h>

namespace scene {

namespace {

std::vector<double> numbers(const std::string& text) {
  std::vector<double> result;
  std::istringstream stream(text);
  for (std::string word; stream >> word;) {
    const size_t slash = word.find('/');
    result.push_back(std::stod(word) / (slash == std::string::npos ? 1 : std::stod(word.substr(slash + 1))));
  }
  return result;
}

// `values`: x, y, and a value for all channels or four.
void check_pixel(const scene::HostImage& image, const std::vector<double>& values, double tolerance) {
  ASSERT_TRUE(values.size() == 3 || values.size() == 6);
  const auto found = pixel(image, static_cast<int64_t>(values[0]), static_cast<int64_t>(values[1]));
  for (size_t channel = 0; channel < 4; ++channel)
    EXPECT_NEAR(found[channel], values[std::min(2 + channel, values.size() - 1)], tolerance)
        << "channel " << channel << " at " << values[0] << ", " << values[1];
}

}  // namespace

void check_placed_cases(const char* table, int width, int height) {
  for (const auto& [about, plate, type, knobs, format, window, probes] : support::rows<7>(table)) {
    SCOPED_TRACE(about + ": " + type + " " + knobs);
    Scene shot(read_plate(plate + ".exr") + node("n", "p", type, knobs), width, height);
    const scene::HostImage image = shot.image("n");
    const host::Extent& extent = image.extent;
    EXPECT_EQ(std::to_string(extent.format.width) + " " + std::to_string(extent.format.height), format);
    EXPECT_EQ(std::vector<double>(extent.window.begin(), extent.window.end()), numbers(window));
    std::istringstream stream(probes);
    for (std::string probe; std::getline(stream, probe, ',');) check_pixel(image, numbers(probe), 1e-5);
  }
}

void check_pixels(const std::string& before, const std::string& table, double tolerance, int size,
                  double scale) {
  for (auto [about, type, input, knobs, expected] : support::rows<5>(table)) {
    SCOPED_TRACE(about + ": " + type + " " + knobs);
    std::string nodes = before;
    if (input.find_first_of("\"[{") == std::string::npos) {
      const std::vector<double> color = numbers(std::exchange(input, "p"));
      Rgba rgba{};
      for (size_t i = 0; i < 4; ++i) rgba[i] = static_cast<float>(color.at(i));
      nodes += constant("p", rgba);
    }
    host::render::RenderOptions options;
    options.scale = scale;
    Scene shot(nodes + node("n", input, type, knobs), size, size, options);
    std::vector<double> values = numbers(expected);
    values.insert(values.begin(), {scale * size / 2, 1});
    check_pixel(shot.image("n"), values, tolerance);
  }
}

void check_refusals(const std::string& before, const char* table) {
  for (const auto& [type, input, knobs, message] : support::rows<4>(table)) {
    const std::string nodes = before + node("n", input, type, knobs);
    const std::string found = support::error_of([&] { Scene(nodes).image("n"); });
    const std::string part = message == "nothing" ? "" : message;
    EXPECT_NE(found.find(part), std::string::npos) << type << " " << knobs << ": " << found;
    EXPECT_EQ(found.empty(), part.empty()) << type << " " << knobs << ": " << found;
  }
}

}  // namespace scene
