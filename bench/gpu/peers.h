#pragma once

#include "tests/support/picture.h"

#include <memory>

// Blurs of other libraries, on two threads: a Gaussian of the given sigma cut at r pixels, the edge
// pixels repeated. Making one prepares the picture as the library wants it; run() is what is timed.
namespace bench {

class OpenCvBlur {
 public:
  OpenCvBlur(const support::Picture& picture, int r, double sigma);
  ~OpenCvBlur();
  void run();
  support::Picture result() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// OpenImageIO's convolution, one axis after the other.
class OiioBlur {
 public:
  OiioBlur(const support::Picture& picture, int r, double sigma);
  ~OiioBlur();
  void run();
  support::Picture result() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// The command `vips gaussblur`: the median over `rounds` of what it takes beyond `vips copy` on the
// same files, and its picture. 0 seconds when there is no such command or it fails.
struct VipsBlur {
  double seconds = 0;
  support::Picture result;
};
VipsBlur vips_blur(const support::Picture& picture, int r, double sigma, int rounds);

}  // namespace bench
