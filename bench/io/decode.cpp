#include <qv/io/decode.h>
#include <qv/io/half.h>

#include "bench/io/benches.h"

#include <cstring>
#include <memory>

#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfThreading.h>

namespace {

constexpr int width = 3840, height = 2160;
constexpr size_t values = size_t{width} * height * 4;

std::unique_ptr<float[]> by_read_image(const std::string& path, int threads) {
  OIIO::ImageSpec config(OIIO::TypeUnknown);
  config.attribute("oiio:threads", threads);
  const auto input = OIIO::ImageInput::open(path, &config);
  input->threads(threads);
  std::unique_ptr<float[]> pixels(new float[values]);
  input->read_image(0, 0, 0, 4, OIIO::TypeFloat, pixels.get());
  return pixels;
}

// OpenEXR itself, as half and widened by the fast routine.
std::unique_ptr<float[]> by_openexr(const std::string& path, int threads) {
  Imf::InputFile input(path.c_str(), threads);
  std::unique_ptr<uint16_t[]> halves(new uint16_t[values]);
  std::unique_ptr<float[]> pixels(new float[values]);
  Imf::FrameBuffer frame;
  const char* names[] = {"R", "G", "B", "A"};
  for (int c = 0; c < 4; ++c)
    frame.insert(names[c],
                 Imf::Slice(Imf::HALF, reinterpret_cast<char*>(halves.get() + c), 8, size_t{8} * width));
  input.setFrameBuffer(frame);
  input.readPixels(0, height - 1);
  qv::io::half_to_float(halves.get(), pixels.get(), values);
  return pixels;
}

qv::io::DecodeResult ours(const std::string& path, int threads) {
  qv::io::DecodeResult result;
  qv::io::decode_plain(path, threads, result);
  return result;
}

}  // namespace

void bench_decode(bench::Report& report) {
  const Folder folder;
  Imf::setGlobalThreadCount(2);
  for (const char* codec : {"zip", "zips", "piz", "dwab", "none"}) {
    if (report.quick() && std::strcmp(codec, "zip") != 0) continue;
    const std::string path = folder.image(codec, width, height, 1);
    const auto result = ours(path, 2);
    report.require(
        result.status == 2 && std::memcmp(result.pixels.get(), by_read_image(path, 2).get(), values * 4) == 0,
        std::string("decode_plain and read_image, ") + codec);
    const auto timings =
        bench::time_in_turn(report.quick() ? 2 : 4, {[&] { ours(path, 2); }, [&] { by_read_image(path, 2); },
                                                     [&] { by_openexr(path, 2); }, [&] { ours(path, 1); },
                                                     [&] { by_read_image(path, 1); }});
    const std::string label = std::string("decode 3840x2160 half, ") + codec;
    report.row(label + ", 2 threads", "ms", bench::Better::less, timings[0].least * 1e3,
               {{"read_image", timings[1].least * 1e3}}, 1);
    report.row(label + ", 2 threads, to OpenEXR", "ms", bench::Better::less, timings[0].least * 1e3,
               {{"Imf::InputFile", timings[2].least * 1e3}});
    report.row(label + ", 1 thread", "ms", bench::Better::less, timings[3].least * 1e3,
               {{"read_image", timings[4].least * 1e3}}, 1);
  }
}
