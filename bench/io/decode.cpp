#include <qv/io/decode.h>
#include <qv/io/half.h>

#include "bench/io/benches.h"

#include <cstring>
#include <memory>

#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfThreading.h>

namespace {

constexpr int width = 4096, height = 2160;
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
  Imf::InputFile input(path.c_str(), threads == 1 ? 0 : threads);
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

namespace {

struct Case {
  const char* codec;
  Folder::Picture picture;
  double one_thread, two_threads;  // limits
};

void measure(bench::Report& report, const Case& each, const std::string& path, int threads) {
  // The pool that OpenEXR keeps for the process, which both peers use: -1 is none.
  OIIO::attribute("exr_threads", threads == 1 ? -1 : threads);
  const auto expected = by_read_image(path, threads);
  const auto result = ours(path, threads);
  const std::string label = std::string("decode 4096x2160 half, ") + each.codec + ", " +
                            (each.picture == Folder::Picture::smooth ? "smooth" : "grainy");
  report.require(result.status == 2 && std::memcmp(result.pixels.get(), expected.get(), values * 4) == 0,
                 label);
  const auto timings = bench::time_in_turn(
      report.quick() ? 3 : 7, {[&] { ours(path, threads); }, [&] { by_read_image(path, threads); },
                               [&] { by_openexr(path, threads); }});
  const std::string name = label + (threads == 1 ? ", 1 thread" : ", 2 threads");
  report.row(name, "ms", bench::Better::less, timings[0].median * 1e3,
             {{"OpenImageIO", timings[1].median * 1e3}}, threads == 1 ? each.one_thread : each.two_threads);
  report.row(name + ", to OpenEXR", "ms", bench::Better::less, timings[0].median * 1e3,
             {{"Imf::InputFile", timings[2].median * 1e3}});
}

}  // namespace

void bench_decode(bench::Report& report) {
  const Folder folder;
  using Picture = Folder::Picture;
  for (const Case& each : {Case{"zip", Picture::smooth, 3.8, 3.6}, Case{"zip", Picture::grainy, 2.6, 2.5},
                           Case{"zips", Picture::grainy, 1.5, 1.5}, Case{"rle", Picture::smooth, 2.5, 2.5},
                           Case{"none", Picture::grainy, 2.5, 2.5}, Case{"piz", Picture::grainy, 0, 0},
                           Case{"dwab", Picture::grainy, 0, 0}}) {
    if (report.quick() && std::strcmp(each.codec, "zip") != 0) continue;
    const std::string path = folder.image(each.codec, width, height, 1, each.picture);
    for (const int threads : {1, 2}) measure(report, each, path, threads);
  }
}
