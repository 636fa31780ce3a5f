#pragma once

#include <filesystem>
#include <string>

namespace bench {

// Half zip EXR plates for all programs alike: fg.0001.exr ... with soft edges that move from frame to
// frame, and bg.exr, opaque. Both have grain, so that they pack as real plates do.
void write_plates(const std::filesystem::path& folder, int width, int height, int frames);

// A half zip EXR of so many layers of four channels with grain: the main image, then l01, l02, ...
void write_layers(const std::filesystem::path& file, int width, int height, int layers);

// The name of a layer, counted from the main image, which has none.
std::string layer_name(int layer);

// A frame number as it stands in file names.
std::string padded(int frame);

// The largest difference between two images of one size; infinite where sizes differ.
double largest_difference(const std::filesystem::path& a, const std::filesystem::path& b);

}  // namespace bench
