#pragma once

#include "host/base/memory_use.h"
#include "host/base/notices.h"
#include "host/draw/limits.h"
#include "host/draw/read_back.h"
#include "host/draw/stats.h"
#include "host/node/image.h"
#include "host/render/progress.h"
#include "host/writer/image_writer.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace host::render {

// The part of the plane that a file shows of an image.
Box sent_area(const node::Image& image, const writer::OutputFile& file);

// What happens to a frame once it is drawn: read back through the ring, encoded by the writer,
// reported when its files stand. Later frames are drawn meanwhile; a full writer's queue holds back
// the ring, and a full ring the next send.
// GL thread only. Destruction waits for everything that was sent.
class Delivery {
 public:
  // All outlive it. use: whose Owner::ring and Owner::encoders its memory is.
  Delivery(const draw::Limits& limits, draw::BufferPool& buffers, Notices& notices, const MemoryUse& use);
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // Opens a frame's report; frames are numbered once each.
  void begin(int64_t frame);

  // Sends images of the open frame to a file, one a layer; they meet before the writer gets them.
  void send(int64_t frame, std::span<const node::Image> images, const writer::OutputFile& file);

  // Closes the report: nothing more will be sent for the frame. `drawn` brings what the renderer
  // knows of it; files, errors of writing and the time are added here.
  void end(const FrameReport& drawn);

  // Forgets the open frame, of which nothing has been sent.
  void drop(int64_t frame);

  // The reports that are complete, in the order of begin; each once.
  std::vector<FrameReport> take_finished();

  // Waits until every report is complete.
  void finish();

  // Adds what reading back and writing took.
  void add_to(draw::Stats& stats);

 private:
  struct Open {
    FrameReport report;
    int pending = 0;  // files on their way
    bool closed = false;
    std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
  };

  struct Meeting;

  Open& find(int64_t frame);
  void arrived(Meeting& meeting, size_t layer, draw::ReadBack pixels, const std::string& error);
  static void note_time(Open& open);
  void hand_over(writer::WriteJob job);
  void written(const writer::WriteResult& result);

  const draw::Limits& limits_;
  Notices& notices_;
  draw::BufferPool& buffers_;
  std::mutex mutex_;  // guards what follows, up to the writer
  std::deque<Open> open_;
  draw::Stats totals_;
  double read_back_ms_ = 0;  // GL thread alone, as is the next
  Account ring_;
  writer::ImageWriter writer_;
};

}  // namespace host::render
