#include "host/report/prediction_text.h"

#include <cmath>
#include <cstdint>

namespace host::report {
namespace {

std::string mebibytes(uint64_t bytes) {
  return std::to_string(static_cast<int64_t>(std::ceil(static_cast<double>(bytes) / 1048576))) + " MiB";
}

}  // namespace

std::string prediction_text(const render::Prediction& prediction) {
  const Holdings& images = prediction.images;
  const std::string device = mebibytes(images.of(Owner::device)) + " on the device";
  std::string text = "memory\n  at most  " + mebibytes(prediction.bytes()) + "\n  of it    base " +
                     mebibytes(prediction.base);
  if (!prediction.device_apart) text += ", " + device;
  text += ", decoded " + mebibytes(images.of(Owner::decoded)) + ", ring " +
          mebibytes(images.of(Owner::ring)) + ", on the way to files " + mebibytes(images.of(Owner::sent)) +
          ", in encoders " + mebibytes(images.of(Owner::encoders)) + "\n";
  if (prediction.device_apart) text += "  beside   " + device + "\n";
  return text;
}

}  // namespace host::report
