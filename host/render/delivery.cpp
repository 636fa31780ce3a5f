#include "host/render/delivery.h"

#include <qv/transport/ring.h>

#include "host/base/stopwatch.h"
#include "host/writer/container.h"
#include "host/writer/exr_parts.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

namespace host::render {
namespace {

// Where memory is too short for the path, words that need none of it are all there is to say.
writer::WriteResult failed(int64_t frame, const std::string& path, const std::string& why) {
  writer::WriteResult result;
  result.frame = frame;
  try {
    result.error = path + ": " + why;
  } catch (const std::bad_alloc&) {
    result.error = "out of memory";
  }
  return result;
}

}  // namespace

Box sent_area(const node::Image& image, const writer::OutputFile& file) {
  return file.overscan && image.has_pixels() ? image.extent.window : format_box(image.extent.format);
}

Delivery::Delivery(const draw::Limits& limits, draw::BufferPool& buffers, Notices& notices,
                   const MemoryUse& use)
    : limits_(limits),
      notices_(notices),
      buffers_(buffers),
      ring_(use, Owner::ring),
      writer_(
          limits.threads, limits.threads, [this](const writer::WriteResult& result) { written(result); },
          use) {}

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

// The images of one file, which come one after the other. What is there when the last has come goes on.
struct Delivery::Meeting {
  int64_t frame = 0;
  writer::OutputFile file;
  Format format;
  files::MetadataPtr metadata;
  std::vector<writer::Picture> pictures;
  std::mutex mutex;  // guards what follows
  size_t missing = 0;
  std::string error;
};

void Delivery::send(int64_t frame, std::span<const node::Image> images, const writer::OutputFile& file) {
  const Format format = images[0].extent.format;
  const Stopwatch watch(read_back_ms_);
  auto meeting = std::make_shared<Meeting>();
  meeting->frame = frame;
  meeting->file = file;
  meeting->format = format;
  meeting->metadata = images[0].metadata;
  meeting->missing = images.size();
  for (const node::Image& image : images)
    meeting->pictures.push_back({{format, image.extent.window}, nullptr, image.coverage});
  {
    const std::lock_guard lock(mutex_);
    ++find(frame).pending;
  }
  const draw::SentLimit limit = limits_.sent(writer::packed_by_all(file.path));
  for (size_t i = 0; i < images.size(); ++i) {
    try {
      // Of one file all are on their way together, or none would ever come back.
      draw::read_back(images[i], sent_area(images[i], file), draw::Outside::left_out, buffers_,
                      i > 0 ? draw::unlimited : limit, [this, meeting, i](draw::ReadBack pixels) {
                        arrived(*meeting, i, std::move(pixels),
                                "the image could not be read back from the device");
                      });
    } catch (const std::exception& error) {
      arrived(*meeting, i, {}, error.what());
    }
  }
  ring_.set(qv::transport::stats().held);
}

// On the ring's thread, or where there was nothing to read on the GL thread. The ring lets no exception
// through: one that left here would be a frame that nobody misses.
void Delivery::arrived(Meeting& meeting, size_t layer, draw::ReadBack pixels, const std::string& error) {
  std::vector<writer::Picture>& pictures = meeting.pictures;
  try {
    const std::lock_guard lock(meeting.mutex);
    if (!pixels.rgba && meeting.error.empty()) {
      const std::string name = pictures.size() > 1 ? writer::layer_at(meeting.file, layer).name : "";
      meeting.error = name.empty() ? error : "layer \"" + name + "\": " + error;
    }
    pictures[layer].extent.window = pixels.window;
    pictures[layer].rgba = std::move(pixels.rgba);
    if (--meeting.missing > 0) return;
  } catch (const std::bad_alloc&) {
    const std::lock_guard lock(meeting.mutex);
    if (--meeting.missing > 0) return;
  }
  const bool whole = std::all_of(pictures.begin(), pictures.end(),
                                 [](const writer::Picture& picture) { return picture.rgba != nullptr; });
  try {
    if (!whole) throw std::runtime_error(meeting.error.empty() ? "out of memory" : meeting.error);
    writer::WriteJob job{meeting.frame,
                         meeting.file,
                         pictures[0].extent,
                         pictures[0].rgba,
                         pictures[0].coverage,
                         meeting.metadata,
                         {}};
    job.further.assign(pictures.begin() + 1, pictures.end());
    pictures.clear();
    hand_over(std::move(job));
  } catch (const std::exception& failure) {
    written(failed(meeting.frame, meeting.file.path, failure.what()));
  }
}

void Delivery::hand_over(writer::WriteJob job) {
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

void Delivery::written(const writer::WriteResult& result) {
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

void Delivery::add_to(draw::Stats& stats) {
  const std::lock_guard lock(mutex_);
  stats.read_back_ms += std::exchange(read_back_ms_, 0);
  stats.wait_write_ms += totals_.wait_write_ms;
  stats.encode_ms += totals_.encode_ms;
  stats.files_written += totals_.files_written;
  stats.bytes_written += totals_.bytes_written;
  totals_ = {};
}

}  // namespace host::render
