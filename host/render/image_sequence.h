#pragma once

#include "host/draw/frame_image.h"
#include "host/draw/upcoming.h"
#include "host/frame/keyed_frame.h"
#include "host/render/renderer.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace host::render {

struct Subject;

// A node's images for one frame after another: files of the frames ahead are decoded meanwhile, and results
// stay cached as long as one of those frames asks for them. GL thread only, as its renderer, which outlives
// it.
class ImageSequence {
 public:
  ImageSequence(std::shared_ptr<Subject> subject, const draw::ImageRequest& request,
                std::vector<int64_t> frames);
  ~ImageSequence();
  ImageSequence(const ImageSequence&) = delete;
  ImageSequence& operator=(const ImageSequence&) = delete;

  // Draws the next frame and starts its read-back; `done` is called on the ring's thread, or at once. False
  // when there is none left. Throws as Renderer::read does, of that frame.
  bool draw_next(draw::ImageDone done);

 private:
  std::shared_ptr<Subject> subject_;
  draw::ImageRequest request_;
  frame::FrameKeys keys_;
  draw::UpcomingFrames upcoming_;
};

}  // namespace host::render
