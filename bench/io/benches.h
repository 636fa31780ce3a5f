#pragma once

#include "bench/report.h"

#include <filesystem>
#include <string>

// What bench_io measures, a file each.
void bench_half(bench::Report& report);
void bench_decode(bench::Report& report);
void bench_layers(bench::Report& report);
void bench_scheduler(bench::Report& report);

// A folder for the files of a benchmark, removed with it.
class Folder {
 public:
  Folder();
  ~Folder();
  // Slow waves, with noise in the lower bits of the colours or without.
  enum class Picture { smooth, grainy };
  // Writes an image of `layers` x RGBA halves, the grainy ones of which compress about as rendered pictures
  // do, and returns its path.
  std::string image(const std::string& compression, int width, int height, int layers,
                    Picture picture = Picture::grainy) const;

 private:
  std::filesystem::path path_;
};
