#include "bench/gpu/peers.h"

#include "bench/report.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <opencv2/imgproc.hpp>
#include <unistd.h>

namespace bench {

using support::Picture;

namespace {

OIIO::ImageBuf buffer_of(const Picture& picture) {
  OIIO::ImageBuf result(OIIO::ImageSpec(picture.w, picture.h, 4, OIIO::TypeDesc::FLOAT));
  result.set_pixels(OIIO::ROI::All(), OIIO::TypeDesc::FLOAT, picture.rgba.data());
  return result;
}

Picture picture_of(const OIIO::ImageBuf& image) {
  Picture result(image.spec().width, image.spec().height);
  image.get_pixels(OIIO::ROI::All(), OIIO::TypeDesc::FLOAT, result.rgba.data());
  return result;
}

}  // namespace

struct OpenCvBlur::State {
  cv::Mat in, out;
  int taps;
  double sigma;
};

OpenCvBlur::OpenCvBlur(const Picture& picture, int r, double sigma) : state_(new State) {
  cv::setNumThreads(2);
  state_->in = cv::Mat(picture.h, picture.w, CV_32FC4, const_cast<float*>(picture.rgba.data())).clone();
  state_->taps = 2 * r + 1;
  state_->sigma = sigma;
}

OpenCvBlur::~OpenCvBlur() = default;

void OpenCvBlur::run() {
  cv::GaussianBlur(state_->in, state_->out, {state_->taps, state_->taps}, state_->sigma, state_->sigma,
                   cv::BORDER_REPLICATE);
}

Picture OpenCvBlur::result() const {
  Picture result(state_->out.cols, state_->out.rows);
  std::copy_n(state_->out.ptr<float>(), result.rgba.size(), result.rgba.begin());
  return result;
}

struct OiioBlur::State {
  OIIO::ImageBuf in, down, out, column, row;
};

OiioBlur::OiioBlur(const Picture& picture, int r, double sigma) : state_(new State) {
  state_->in = buffer_of(picture);
  std::vector<float> weights;
  for (int k = -r; k <= r; ++k) weights.push_back(static_cast<float>(std::exp(-k * k / (2 * sigma * sigma))));
  const auto kernel = [&weights](int w, int h) {
    OIIO::ImageSpec shape(w, h, 1, OIIO::TypeDesc::FLOAT);
    shape.x = -(w / 2);
    shape.y = -(h / 2);
    OIIO::ImageBuf result(shape);
    result.set_pixels(OIIO::ROI::All(), OIIO::TypeDesc::FLOAT, weights.data());
    return result;
  };
  state_->column = kernel(1, 2 * r + 1);
  state_->row = kernel(2 * r + 1, 1);
}

OiioBlur::~OiioBlur() = default;

void OiioBlur::run() {
  OIIO::ImageBufAlgo::convolve(state_->down, state_->in, state_->column, true, {}, 2);
  OIIO::ImageBufAlgo::convolve(state_->out, state_->down, state_->row, true, {}, 2);
}

Picture OiioBlur::result() const {
  return picture_of(state_->out);
}

VipsBlur vips_blur(const Picture& picture, int r, double sigma, int rounds) {
  const auto folder = std::filesystem::temp_directory_path() / ("qv_bench_vips_" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  const auto file = [&folder](const char* name) { return (folder / name).string(); };
  const auto bytes = static_cast<std::streamsize>(picture.rgba.size() * sizeof(float));
  std::ofstream(file("in.raw"), std::ios::binary)
      .write(reinterpret_cast<const char*>(picture.rgba.data()), bytes);
  bool good = true;
  const auto call = [&good](const std::string& arguments) {
    good = good && std::system(("VIPS_CONCURRENCY=2 vips " + arguments + " >/dev/null 2>&1").c_str()) == 0;
  };
  call("rawload " + file("in.raw") + " " + file("in.v") + " " + std::to_string(picture.w) + " " +
       std::to_string(picture.h) + " 4 --format float");
  // Between the weight of the last tap and that of the next.
  const double least = std::exp(-(r + 0.25) * (r + 0.25) / (2 * sigma * sigma));
  const std::string blur = "gaussblur " + file("in.v") + " " + file("out.v") + " " + std::to_string(sigma) +
                           " --precision float --min-ampl " + std::to_string(least);
  const std::string copy = "copy " + file("in.v") + " " + file("copy.v");
  const auto times = time_in_turn(rounds, {[&] { call(copy); }, [&] { call(blur); }});
  call("rawsave " + file("out.v") + " " + file("out.raw"));
  VipsBlur result;
  result.result = Picture(picture.w, picture.h);
  std::ifstream raw(file("out.raw"), std::ios::binary);
  good = good && raw.read(reinterpret_cast<char*>(result.result.rgba.data()), bytes);
  if (good) result.seconds = times[1].median - times[0].median;
  std::filesystem::remove_all(folder);
  return result;
}

}  // namespace bench
