#include <qv/nodes/filter/ops.h>

#include "bench/gpu/filter_rig.h"
#include "bench/gpu/peers.h"
#include "bench/gpu/rows.h"

#include <algorithm>
#include <cmath>

namespace bench {

namespace {

namespace filter = qv::nodes::filter;
using support::FilterRig;
using support::Picture;

// A picture on the driver, twice over for the filters that read two, and the target.
struct Stage {
  explicit Stage(const Picture& picture) : target(rig.upload(picture)) {
    inputs = {rig.upload(picture), rig.upload(picture)};
  }
  ~Stage() {
    for (const filter::Tex& tex : inputs) rig.release(tex);
    rig.release(target);
  }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  // Runs a filter to its end; the disc filters make their own table of sums.
  std::function<void()> run(const std::string& op, std::vector<double> params) {
    rig.prepare(op);
    const size_t count = op == "edgeblur" ? 2 : 1;
    return [this, op, params = std::move(params), count] {
      filter::run_op(op, std::span(inputs).first(count), params, target, 0);
      rig.finish();
    };
  }

  FilterRig& rig = FilterRig::get();
  std::vector<filter::Tex> inputs;
  filter::Tex target;
};

double largest_difference(const Picture& a, const Picture& b, int border) {
  double result = 0;
  for (int y = border; y < a.h - border; ++y)
    for (int x = border; x < a.w - border; ++x)
      for (int c = 0; c < 4; ++c)
        result = std::max(result, std::fabs(double(a.at(x, y, c)) - double(b.at(x, y, c))));
  return result;
}

// A Gaussian of 33 taps, in float, on two threads: the peers get the very weights of size 11.
void blur_beside_peers(Report& report) {
  const Picture picture = report.quick() ? support::photograph(640, 360) : support::photograph(1920, 1080);
  const int r = 16;
  const double size = 11;
  Stage stage(picture);
  const auto ours = stage.run("blur", {size, size, 3, 0, 0, 0, double(picture.w), double(picture.h)});
  ours();
  const Picture result = stage.rig.download(stage.target);
  OpenCvBlur cv(picture, r, size / 2);
  OiioBlur oiio(picture, r, size / 2);
  cv.run();
  oiio.run();
  report.require(largest_difference(result, cv.result(), 0) < 1e-3, "the blur of OpenCV");
  report.require(largest_difference(result, oiio.result(), r) < 1e-3, "the blur of OpenImageIO");

  const auto times = time_in_turn(report.quick() ? 3 : 5, {ours, [&] { cv.run(); }, [&] { oiio.run(); }});
  const double ms = times[0].median * 1e3;
  report.row("blur, 33 taps each way, beside OpenImageIO", "ms", Better::less, ms,
             {{"OpenImageIO", times[2].median * 1e3}}, 3);
  std::vector<std::pair<std::string, double>> peers = {{"OpenCV", times[1].median * 1e3}};
  const VipsBlur vips = vips_blur(picture, r, size / 2, report.quick() ? 3 : 5);
  if (vips.seconds > 0) {
    report.require(largest_difference(result, vips.result, r) < 1e-3, "the blur of vips");
    peers.emplace_back("vips", vips.seconds * 1e3);
  } else {
    report.note("vips: no such command, or it failed");
  }
  report.row("blur, 33 taps each way", "ms", Better::less, ms, peers);
}

// The work of a disc grows with its radius by sums, with the square pixel by pixel.
void disc_by_radius(Report& report) {
  const Picture picture = support::photograph(640, 360);
  Stage stage(picture);
  const auto times = time_in_turn(
      report.quick() ? 3 : 5,
      {stage.run("disc", {12, 12, 0}), stage.run("disc", {48, 48, 0}), stage.run("disc", {12, 12, 1})});
  report.row("disc blur, radius 12", "ms", Better::less, times[0].median * 1e3,
             {{"pixel by pixel", times[2].median * 1e3}});
  report.row("disc blur, radius 48 / radius 12", "times", Better::less, times[1].median / times[0].median,
             {{"the square", 16}}, 2.5);
}

// What a graphics card makes of each filter, and how near it comes to the card's memory: the bytes
// that its passes must at least read and write, beside those of a copy in the same time.
void gigapixels(Report& report) {
  const double w = 3840, h = 2160;
  const Picture picture = support::photograph(3840, 2160);
  Stage stage(picture);
  struct Case {
    const char* name;
    const char* op;
    std::vector<double> params;
  };
  const std::vector<Case> cases = {
      {"copy", "dilate", {0}},
      {"blur, size 11", "blur", {11, 11, 3, 0, 0, 0, w, h}},
      {"blur, size 100, limit 25", "blur", {100, 100, 3, 25, 0, 0, w, h}},
      {"glow, size 20", "glow", {20, 20, 3, 0, 0, 0, w, h, 1, 1, 1, 1, 1, 1, 0}},
      {"sharpen, size 3", "sharpen", {3, 3, 3, 0, 0, 0, w, h, 1, -1, 1}},
      {"dilate, 8.5", "dilate", {8.5}},
      {"filter_erode, 8, box", "filter_erode", {8, 0}},
      {"erode, 3", "erode", {3, 0, 0, 0, 0, w, h}},
      {"edgeblur, size 5", "edgeblur", {5, 5, 3, 0, 0, 0, w, h, 3, 1, 1, 1, 1, 1}},
      {"disc, radius 16", "disc", {16, 16, 0}},
  };
  double copy_rate = 0;
  for (const Case& each : cases) {
    const auto run = stage.run(each.op, each.params);
    const uint64_t before = filter::stats().draws;
    run();
    const auto passes = static_cast<double>(filter::stats().draws - before);
    const double seconds = time_in_turn(9, {run})[0].median;
    const double rate = passes * w * h * 32 / seconds;
    if (copy_rate == 0) copy_rate = rate;
    report.row(std::string(each.name) + ", 3840x2160", "Gpx/s", Better::more, w * h / seconds * 1e-9);
    report.note("  " + std::to_string(static_cast<int>(passes)) + " passes, " +
                std::to_string(static_cast<int>(rate * 1e-9)) + " GB/s, " +
                std::to_string(static_cast<int>(100 * rate / copy_rate)) + " % of a copy's");
  }
}

}  // namespace

void filter_rows(Report& report) {
  if (report.wants("blur")) blur_beside_peers(report);
  if (report.wants("disc")) disc_by_radius(report);
  if (!report.wants("gigapixels")) return;
  if (support::GlContext::get(nullptr)->software) {
    report.note("gigapixels: not measured, this driver draws on the processor");
  } else {
    gigapixels(report);
  }
}

}  // namespace bench
