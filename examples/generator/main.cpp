#include "examples/generator/picture.h"
#include "examples/generator/studio.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <OpenImageIO/imageio.h>

// quorvel_plates FOLDER: paints the plates of the examples, the same bytes on every run.
//   greenscreen.####.exr  a furry creature in front of a green screen, with grain; layer "depth"
//   background.exr        hills at dusk; layer "depth"
//   title.exr             a word on nothing
//   studio.left.exr       glazed balls as a renderer leaves them, a part a pass, for the left eye
//   studio.right.exr      and for the right
namespace {

struct Options {
  std::string folder;
  int width = 960;
  int height = 540;
  int frames = 24;
};

enum class Channels { rgba, rgba_and_depth };

void write(const plates::Picture& picture, const std::filesystem::path& file, Channels channels) {
  OIIO::ImageSpec spec(picture.width(), picture.height(), 5, OIIO::TypeHalf);
  spec.channelnames = {"R", "G", "B", "A", "depth.Z"};
  spec.attribute("compression", "zip");
  // Five channels stand in memory whatever is written of them.
  if (channels == Channels::rgba) {
    spec.nchannels = 4;
    spec.channelnames.resize(4);
  }
  constexpr auto stride = static_cast<OIIO::stride_t>(5 * sizeof(float));
  const auto output = OIIO::ImageOutput::create(file.string());
  if (!output || !output->open(file.string(), spec) ||
      !output->write_image(OIIO::TypeFloat, picture.texels().data(), stride) || !output->close()) {
    throw std::runtime_error(file.string() + ": " + (output ? output->geterror() : OIIO::geterror()));
  }
}

// A file of several parts, each a pass.
void write(const std::vector<plates::Pass>& passes, int width, int height,
           const std::filesystem::path& file) {
  std::vector<OIIO::ImageSpec> specs;
  specs.reserve(passes.size());
  for (const plates::Pass& pass : passes) {
    const auto channels = static_cast<int>(pass.channels.size());
    OIIO::ImageSpec& spec =
        specs.emplace_back(width, height, channels, pass.half ? OIIO::TypeHalf : OIIO::TypeFloat);
    spec.channelnames = pass.channels;
    spec.attribute("oiio:subimagename", pass.name);
    spec.attribute("compression", "zip");
  }
  const auto output = OIIO::ImageOutput::create(file.string());
  bool good = output && output->open(file.string(), static_cast<int>(specs.size()), specs.data());
  for (size_t i = 0; good && i < passes.size(); ++i) {
    good = (i == 0 || output->open(file.string(), specs[i], OIIO::ImageOutput::AppendSubimage)) &&
           output->write_image(OIIO::TypeFloat, passes[i].values.data());
  }
  if (!good || !output->close()) {
    throw std::runtime_error(file.string() + ": " + (output ? output->geterror() : OIIO::geterror()));
  }
}

void paint_all(const Options& options) {
  const std::filesystem::path folder(options.folder);
  std::filesystem::create_directories(folder);
  for (int frame = 1; frame <= options.frames; ++frame) {
    plates::Picture picture(options.width, options.height);
    plates::paint_creature(picture, static_cast<float>(frame - 1) / static_cast<float>(options.frames));
    plates::add_grain(picture, static_cast<uint64_t>(frame), 0.012F);
    char name[40];
    std::snprintf(name, sizeof name, "greenscreen.%04d.exr", frame);
    write(picture, folder / name, Channels::rgba_and_depth);
  }
  plates::Picture background(options.width, options.height);
  plates::paint_landscape(background);
  write(background, folder / "background.exr", Channels::rgba_and_depth);
  plates::Picture title(options.width, options.height);
  plates::paint_title(title);
  write(title, folder / "title.exr", Channels::rgba);
  constexpr float between_eyes = 0.14F;
  for (const auto& [view, side] : {std::pair("left", -0.5F), std::pair("right", 0.5F)}) {
    write(plates::trace_studio(options.width, options.height, side * between_eyes), options.width,
          options.height, folder / (std::string("studio.") + view + ".exr"));
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"Paints the plates of the example compositions.", "quorvel_plates"};
  app.add_option("folder", options.folder, "Where the files go")->required();
  app.add_option("--width", options.width, "Pixels")->check(CLI::Range(16, 16384))->capture_default_str();
  app.add_option("--height", options.height, "Pixels")->check(CLI::Range(16, 16384))->capture_default_str();
  app.add_option("--frames", options.frames, "Of the green screen")
      ->check(CLI::Range(1, 9999))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  try {
    paint_all(options);
  } catch (const std::exception& error) {
    std::cerr << "quorvel_plates: " << error.what() << '\n';
    return 1;
  }
}
