#include "host/render/delivery.h"

#include <qv/transport/ring.h>

#include "host/base/stopwatch.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace host::render {
namespace {

// Where memory is too short for the path, words that need none of it are all there is to say.
files::WriteResult failed(int64_t frame, const std::string& path, const std::string& why) {
  files::WriteResult result;
  result.frame = frame;
  try {
    result.error = path + ": " + why;
  } catch (const std::bad_alloc&) {
    result.error = "out of memory";
  }
  return result;
}

}  // namespace

Delivery::Delivery(int threads, BufferPool& buffers, Notices& notices)
    : notices_(notices),
      buffers_(buffers),
      writer_(threads, threads, [this](const files::WriteResult& result) { written(result); }) {}

Delivery::~Delivery() {
  finish();
}

Delivery::Open& Delivery::find(int64_t frame) {
  return *std::find_if(open_.begin(), open_.end(),
                       [frame](const Open& open) { return open.report.frame == frame; });
}

void Delivery::note_time(Open& open) {
  open.report.ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - open.begun).count();
}

void Delivery::begin(int64_t frame) {
  const std::lock_guard lock(mutex_);
  open_.emplace_back().report.frame = frame;
}

void Delivery::send(int64_t frame, const node::Image& image, const files::OutputFile& file) {
  {
    const std::lock_guard lock(mutex_);
    ++find(frame).pending;
  }
  const Format format = image.extent.format;
  const Box area = file.overscan && image.texture ? image.extent.window : format_box(format);
  const Stopwatch watch(read_back_ms_);
  const bool coverage = image.coverage;
  // The ring lets no exception through: one that left here would be a frame that nobody misses.
  const auto arrived = [this, frame, file, format, coverage, metadata = image.metadata](ReadBack pixels) {
    if (!pixels.rgba) {
      written(failed(frame, file.path, "the image could not be read back from the device"));
      return;
    }
    try {
      hand_over({frame, file, {format, pixels.window}, std::move(pixels.rgba), coverage, metadata});
    } catch (const std::exception& error) {
      written(failed(frame, file.path, error.what()));
    }
  };
  try {
    read_back(image, area, buffers_, arrived);
  } catch (const std::exception& error) {
    written(failed(frame, file.path, error.what()));
  }
}

void Delivery::hand_over(files::WriteJob job) {
  double waited = 0;
  {
    const Stopwatch queue_watch(waited);
    writer_.put(std::move(job));
  }
  const std::lock_guard lock(mutex_);
  totals_.wait_write_ms += waited;
}

void Delivery::end(const FrameReport& drawn) {
  const std::lock_guard lock(mutex_);
  Open& open = find(drawn.frame);
  open.closed = true;
  open.report.skipped = drawn.skipped;
  open.report.computed = drawn.computed;
  open.report.cached = drawn.cached;
  open.report.digest = drawn.digest;
  if (!drawn.error.empty()) open.report.error = drawn.error;
  note_time(open);
}

void Delivery::drop(int64_t frame) {
  const std::lock_guard lock(mutex_);
  std::erase_if(open_, [frame](const Open& open) { return open.report.frame == frame; });
}

void Delivery::written(const files::WriteResult& result) {
  notices_.add(result.notice);
  const std::lock_guard lock(mutex_);
  Open& open = find(result.frame);
  totals_.encode_ms += result.encode_ms;
  if (result.error.empty()) {
    open.report.files.push_back(result.path);
    open.report.bytes += result.bytes;
    totals_.bytes_written += result.bytes;
    ++totals_.files_written;
  } else if (open.report.error.empty()) {
    open.report.error = result.error;
  }
  --open.pending;
  note_time(open);
}

std::vector<FrameReport> Delivery::take_finished() {
  const std::lock_guard lock(mutex_);
  std::vector<FrameReport> finished;
  while (!open_.empty() && open_.front().closed && open_.front().pending == 0) {
    finished.push_back(std::move(open_.front().report));
    open_.pop_front();
  }
  return finished;
}

void Delivery::finish() {
  // The ring hands over to the writer, so it has to be empty first.
  qv::transport::wait_all();
  writer_.finish();
}

void Delivery::add_to(Stats& stats) {
  const std::lock_guard lock(mutex_);
  stats.read_back_ms += std::exchange(read_back_ms_, 0);
  stats.wait_write_ms += totals_.wait_write_ms;
  stats.encode_ms += totals_.encode_ms;
  stats.files_written += totals_.files_written;
  stats.bytes_written += totals_.bytes_written;
  totals_ = {};
}

}  // namespace host::render
