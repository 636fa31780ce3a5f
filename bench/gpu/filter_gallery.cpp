// filter_gallery FILE: draws one picture, runs every filter on it with the driver of this machine
// and writes a contact sheet, so that a person can judge what no number tells.

#include "bench/gpu/filter_rig.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

namespace {

using support::FilterRig;
using support::Picture;

constexpr int width = 480, height = 360, gap = 8, caption = 34;

struct Color {
  double r = 0, g = 0, b = 0;
};

double noise(double x, double y) {
  const double v = std::sin(x * 127.1 + y * 311.7) * 43758.5453;
  return v - std::floor(v);
}

Color scaled(const Color& c, double f) {
  return {c.r * f, c.g * f, c.b * f};
}

bool inside(double x, double y, double cx, double cy, double half_w, double half_h) {
  return std::fabs(x - cx) <= half_w && std::fabs(y - cy) <= half_h;
}

// Lamps on a wire between the tower and the house, thirty times brighter than white.
bool string_of_lamps(double x, double y, Color& c) {
  if (x < 1.42 || x > 3.3) return false;
  const auto wire = [](double at) { return 0.78 + 0.32 * (at - 1.42) + 0.28 * (at - 1.42) * (3.3 - at); };
  constexpr std::array<Color, 3> tints = {Color{1, 0.55, 0.2}, Color{1, 0.8, 0.5}, Color{0.5, 0.75, 1}};
  for (int i = 0; i < 8; ++i) {
    const double at = 1.6 + 0.21 * i;
    if (std::hypot(x - at, y - wire(at) - 0.03) > 0.022) continue;
    c = scaled(tints[static_cast<size_t>(i % 3)], 30);
    return true;
  }
  if (std::fabs(y - wire(x)) > 0.005) return false;
  c = {0.02, 0.02, 0.03};
  return true;
}

bool lighthouse(double x, double y, Color& c) {
  const double cx = 1.2, top = 0.72, foot = 2.6;
  if (y > top && y < foot) {
    const double half = 0.16 + 0.13 * (y - top) / (foot - top), across = (x - cx) / half;
    if (std::fabs(across) < 1) {
      const double round = 0.25 + 0.75 * std::sqrt(1 - across * across) * (0.75 + 0.25 * across);
      const double course = std::floor(y * 26), brick = std::floor(x * 13 + 0.5 * std::fmod(course, 2));
      const bool joint = y * 26 - course < 0.12 || x * 13 + 0.5 * std::fmod(course, 2) - brick < 0.07;
      const bool red = static_cast<int>((y - top) / 0.38) % 2 == 1;
      c = scaled(red ? Color{0.62, 0.1, 0.07} : Color{0.85, 0.82, 0.75},
                 round * (joint ? 0.6 : 0.85 + 0.15 * noise(course, brick)));
      if (inside(x, y, cx, 1.3, 0.04, 0.07) || inside(x, y, cx, 2.0, 0.04, 0.07)) c = {3.2, 1.9, 0.7};
      return true;
    }
  }
  if (inside(x, y, cx, 0.7, 0.25, 0.03)) return c = {0.05, 0.05, 0.06}, true;
  if (inside(x, y, cx, 0.56, 0.13, 0.11)) {
    const bool bar = std::fabs(std::remainder(x - cx, 0.065)) < 0.007;
    c = bar ? Color{0.04, 0.04, 0.05}
            : scaled({14, 9.5, 4}, std::max(0.15, 1 - 7 * std::hypot(x - cx, y - 0.57)));
    return true;
  }
  const double dome = std::hypot((x - cx) / 0.17, (y - 0.45) / 0.15);
  if (y < 0.45 && dome < 1) return c = scaled({0.5, 0.08, 0.06}, 1.1 - 0.8 * dome), true;
  return inside(x, y, cx, 0.24, 0.008, 0.08) ? (c = {0.04, 0.04, 0.05}, true) : false;
}

bool house(double x, double y, Color& c) {
  if (y > 1.72 && y < 1.72 + 0.42 && std::fabs(x - 2.95) < 0.1 + 0.62 * (y - 1.72) / 0.42) {
    const bool line = std::fmod(y * 30, 1) < 0.2;
    return c = scaled({0.2, 0.13, 0.12},
                      line ? 0.5 : 0.8 + 0.4 * noise(std::floor(x * 24), std::floor(y * 30))),
           true;
  }
  if (!inside(x, y, 2.95, 2.36, 0.6, 0.26)) return false;
  c = scaled({0.5, 0.46, 0.4}, std::fmod(y * 18, 1) < 0.14 ? 0.55 : 0.8);
  for (const double at : {2.55, 2.95, 3.35})
    if (inside(x, y, at, 2.33, 0.1, 0.12))
      c = std::fabs(x - at) < 0.01 || std::fabs(y - 2.33) < 0.01 ? Color{0.1, 0.08, 0.06}
                                                                 : Color{2.6, 1.6, 0.6};
  return true;
}

bool ground_and_tree(double x, double y, Color& c) {
  const double edge =
      2.5 + 0.07 * std::sin(2.3 * x + 1) + 0.02 * std::sin(11 * x) + 0.05 * noise(std::floor(x * 110), 3);
  if (y > edge) {
    const double blade = noise(std::floor(x * 110), std::floor(y * 14));
    return c = scaled({0.16, 0.24, 0.09}, (0.4 + 0.9 * blade) * (1.4 - 0.35 * (y - 2.4))), true;
  }
  const double down = (y - 1.1) / 1.5, tier = std::fmod(down * 7, 1);
  const double half =
      (0.05 + 0.36 * down) * (0.55 + 0.45 * tier) - 0.05 * noise(std::floor(y * 90), x > 0.42 ? 1 : 2);
  if (down < 0 || down > 1 || std::fabs(x - 0.42) > half) return false;
  return c = scaled({0.06, 0.17, 0.12}, 0.5 + noise(std::floor(x * 80), std::floor(y * 80))), true;
}

// The foreground of a coast at dusk, its sky left open: 16 samples a pixel, premultiplied.
Picture cut_out() {
  Picture result(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int s = 0; s < 16; ++s) {
        const double u = (x + (s % 4 + 0.5) / 4) / 120, v = (y + (s / 4 + 0.5) / 4) / 120;
        Color c;
        if (!string_of_lamps(u, v, c) && !ground_and_tree(u, v, c) && !house(u, v, c) && !lighthouse(u, v, c))
          continue;
        const double rgba[4] = {c.r, c.g, c.b, 1};
        for (int i = 0; i < 4; ++i) result.at(x, y, i) += static_cast<float>(rgba[i] / 16);
      }
  return result;
}

// The picture as far as a matte that lies within its own lets it through: "erode" makes mattes.
Picture held_out(const Picture& picture, const Picture& matte) {
  Picture result = picture;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < 4; ++c)
        result.at(x, y, c) *= std::min(1.0F, matte.at(x, y, 3) / std::max(1e-6F, picture.at(x, y, 3)));
  return result;
}

// Lays the picture over an evening sky and brings it to a screen's range.
void show(const Picture& picture, OIIO::ImageBuf& sheet, int left, int top) {
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const double v = y / double(height);
      const double sky[3] = {0.05 + 0.6 * v * v, 0.1 + 0.26 * v * v, 0.24 + 0.08 * v};
      float pixel[3] = {};
      for (int c = 0; c < 3; ++c) {
        const double seen = double(picture.at(x, y, c)) + (1 - double(picture.at(x, y, 3))) * sky[c];
        const double shown = 1 - std::exp(-1.1 * std::max(seen, 0.0));
        pixel[c] =
            static_cast<float>(shown <= 0.0031308 ? 12.92 * shown : 1.055 * std::pow(shown, 1 / 2.4) - 0.055);
      }
      sheet.setpixel(left + x, top + y, pixel);
    }
}

struct Frame {
  const char* caption;
  const char* op;
  std::vector<double> params;
};

}  // namespace

int main(int argc, char** argv) {
  std::string why = "give the name of the file to write";
  if (argc != 2 || !support::GlContext::get(&why))
    return std::fprintf(stderr, "filter_gallery: %s\n", why.c_str()), 1;
  const double w = width, h = height;
  const std::vector<Frame> frames = {
      {"source", "", {}},
      {"blur  size 9, Gaussian", "blur", {9, 9, 3, 0, 0, 0, w, h}},
      {"glow  size 45, tolerance 1", "glow", {45, 45, 3, 25, 0, 0, w, h, 1, 1, 0.85, 0.7, 0.9, 1.2, 0}},
      {"sharpen  size 3, amount 1", "sharpen", {3, 3, 3, 0, 0, 0, w, h, 1, -0.2, 0.2}},
      {"dilate  2.5", "dilate", {2.5}},
      {"filter_erode  3, triangle", "filter_erode", {3, 1}},
      {"erode  -4, soft 2: held out by the matte", "erode", {-4, 2, 0, 0, 0, w, h}},
      {"edgeblur  size 7", "edgeblur", {7, 7, 3, 0, 0, 0, w, h, 3, 3, 1, 1, 1, 1}},
      {"disc  radius 11", "disc", {11, 11, 0}},
  };
  const Picture source = cut_out();
  OIIO::ImageBuf sheet(
      OIIO::ImageSpec(3 * width + 4 * gap, 3 * (height + caption) + gap, 3, OIIO::TypeDesc::FLOAT));
  OIIO::ImageBufAlgo::fill(sheet, {0.09F, 0.09F, 0.09F});
  for (size_t i = 0; i < frames.size(); ++i) {
    const Frame& frame = frames[i];
    Picture picture = source;
    const std::vector<Picture> inputs = {source, source};
    const size_t used = std::string(frame.op) == "edgeblur" ? 2 : 1;
    if (i > 0 && FilterRig::get().run(frame.op, std::span(inputs).first(used), frame.params, picture) != 1)
      return std::fprintf(stderr, "filter_gallery: %s was not drawn\n", frame.op), 1;
    if (frame.op == std::string("erode")) picture = held_out(source, picture);
    const int left = gap + static_cast<int>(i % 3) * (width + gap),
              top = static_cast<int>(i / 3) * (height + caption) + caption;
    show(picture, sheet, left, top);
    // Without a font on the machine the sheet has no captions; the order is that of the manual.
    OIIO::ImageBufAlgo::render_text(sheet, left + 2, top - 11, frame.caption, 20, "DejaVuSans",
                                    {0.8F, 0.8F, 0.8F});
  }
  if (!sheet.write(argv[1], OIIO::TypeDesc::UINT8))
    return std::fprintf(stderr, "filter_gallery: %s\n", sheet.geterror().c_str()), 1;
  return 0;
}
