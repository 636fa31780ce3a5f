#include "bench/host/encode.h"

#include "host/writer/image_writer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <Imath/half.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfOutputFile.h>
#include <OpenEXR/ImfStdIO.h>
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <sys/resource.h>

namespace bench {
namespace {

constexpr int width = 1920, height = 1080, frames = 4;

using Pixels = std::shared_ptr<const float[]>;

// Slow waves in the colours, an ellipse in alpha; grain as in bench/io's pictures.
Pixels paint(bool grainy) {
  const std::shared_ptr<float[]> pixels(new float[size_t{4} * width * height]);
  std::mt19937 random(1);
  float* at = pixels.get();
  for (int y = 0; y < height; ++y) {
    const float down = std::cos(static_cast<float>(y) * 0.004F);
    for (int x = 0; x < width; ++x) {
      const float u = static_cast<float>(2 * x - width) / static_cast<float>(width);
      const float v = static_cast<float>(2 * y - height) / static_cast<float>(height);
      for (int c = 0; c < 3; ++c) {
        const float grain = grainy ? static_cast<float>(random() >> 22U) * 1e-5F : 0;
        *at++ = 0.5F + 0.4F * down * std::sin(static_cast<float>(x * (c + 1)) * 0.002F) + grain;
      }
      *at++ = u * u + v * v < 0.6F ? 1.0F : 0.0F;
    }
  }
  return pixels;
}

// Written to a link to nowhere: an .exr by its name, and no disk.
void by_host(const Pixels& pixels, const std::filesystem::path& nowhere, int threads) {
  host::writer::ImageWriter writer(threads, threads, [](const host::writer::WriteResult&) {});
  for (int frame = 0; frame < frames; ++frame) {
    host::writer::WriteJob job;
    job.file.path = nowhere.string();
    job.file.compression = "zip";
    job.extent = {{width, height, 1.0}, {0, 0, width, height}};
    job.rgba = pixels;
    writer.put(std::move(job));
  }
  writer.finish();
}

void by_oiio(const Pixels& pixels, int threads) {
  OIIO::attribute("exr_threads", threads == 1 ? -1 : threads);
  for (int frame = 0; frame < frames; ++frame) {
    OIIO::ImageSpec spec(width, height, 4, OIIO::TypeHalf);
    spec.attribute("compression", "zip");
    std::vector<unsigned char> content;
    OIIO::Filesystem::IOVecOutput sink(content);
    const auto output = OIIO::ImageOutput::create("openexr");
    output->set_ioproxy(&sink);
    output->open("memory.exr", spec);
    for (int y = 0; y < height; y += 256)
      output->write_scanlines(y, std::min(y + 256, height), 0, OIIO::TypeFloat,
                              pixels.get() + size_t{4} * width * static_cast<size_t>(y));
    output->close();
  }
}

void by_openexr(const Pixels& pixels, int threads) {
  std::vector<half> halves(size_t{4} * width * height);
  for (int frame = 0; frame < frames; ++frame) {
    std::copy_n(pixels.get(), halves.size(), halves.begin());
    Imf::Header header(width, height);
    Imf::FrameBuffer buffer;
    for (int c = 0; c < 4; ++c) {
      const std::string name(1, "RGBA"[c]);
      header.channels().insert(name, Imf::Channel(Imf::HALF));
      buffer.insert(name, Imf::Slice(Imf::HALF, reinterpret_cast<char*>(halves.data() + c), 4 * sizeof(half),
                                     width * 4 * sizeof(half)));
    }
    Imf::StdOSStream stream;
    Imf::OutputFile file(stream, header, threads == 1 ? 0 : threads);
    file.setFrameBuffer(buffer);
    file.writePixels(height);
  }
}

double processor_seconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Spent {
  double processor = 0, wall = 0;  // ms a frame
};

// In turn, round after round; the least of each.
std::vector<Spent> spent_by(int rounds, const std::vector<std::function<void()>>& writers) {
  std::vector<Spent> least(writers.size(), {1e9, 1e9});
  for (int round = -1; round < rounds; ++round) {
    for (size_t i = 0; i < writers.size(); ++i) {
      const auto begin = std::chrono::steady_clock::now();
      const double before = processor_seconds();
      writers[i]();
      const double processor = processor_seconds() - before;
      const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begin;
      if (round < 0) continue;
      least[i].processor = std::min(least[i].processor, processor * 1000 / frames);
      least[i].wall = std::min(least[i].wall, wall.count() * 1000 / frames);
    }
  }
  return least;
}

}  // namespace

void encode_frames(Report& report, const std::filesystem::path& folder) {
  if (!report.wants("encode")) return;
  const std::filesystem::path nowhere = folder / "nowhere.exr";
  std::filesystem::create_symlink("/dev/null", nowhere);
  for (const bool grainy : {false, true}) {
    const Pixels pixels = paint(grainy);
    for (const int threads : {1, 2}) {
      const std::vector<Spent> spent =
          spent_by(report.quick() ? 1 : 5, {
                                               [&] { by_host(pixels, nowhere, threads); },
                                               [&] { by_oiio(pixels, threads); },
                                               [&] { by_openexr(pixels, threads); },
                                           });
      const std::string name = std::string("encode HD half zip ") + (grainy ? "grainy" : "smooth") + ", " +
                               std::to_string(threads) + (threads == 1 ? " thread, " : " threads, ");
      report.row(name + "processor", "ms/frame", Better::less, spent[0].processor,
                 {{"OpenImageIO", spent[1].processor}, {"OpenEXR", spent[2].processor}}, 1.6);
      report.row(name + "wall", "ms/frame", Better::less, spent[0].wall,
                 {{"OpenImageIO", spent[1].wall}, {"OpenEXR", spent[2].wall}});
    }
  }
}

}  // namespace bench
