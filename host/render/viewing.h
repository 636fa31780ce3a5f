#pragma once

#include "host/draw/frame_image.h"
#include "host/draw/node_use.h"
#include "host/frame/frame_graph.h"
#include "host/render/renderer.h"

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace host::render {

// What an image took.
struct Taken {
  int64_t draws = 0;                // 0: all of it was cached
  std::vector<draw::NodeUse> uses;  // upstream first
};

// As draw::ImageDone.
using ShownDone = std::function<void(draw::FrameImage image, Taken taken, const std::string& error)>;

// Images that somebody looks at: any node at any frame, of the composition as it is at each call, and those
// that may be looked at next. What the places show stays pinned in the cache; what is prepared for later is
// not, and takes nothing from what is. GL thread only, as its renderer, which outlives it.
class Viewing {
 public:
  explicit Viewing(Renderer::State& renderer) : renderer_(renderer) {}
  Viewing(const Viewing&) = delete;
  Viewing& operator=(const Viewing&) = delete;

  // Draws an image for a place and starts its read-back; `done` is called on the ring's thread, or at once.
  // Files of the frames in `later`, the sooner the more urgent, are decoded meanwhile; what no frame wants
  // any more is not. Throws as Renderer::read, and ContextLost; `done` is not called then.
  void show(const std::string& place, const draw::ImageRequest& request, int64_t frame,
            std::span<const int64_t> later, ShownDone done);

  // The place shows nothing any more.
  void leave(const std::string& place);

  // As Renderer::read, and takes nothing from the places.
  draw::FrameImage read(const draw::ImageRequest& request, int64_t frame);

  // Draws an image and keeps it, but nothing that led to it unless the first of `later` asks for it. False
  // when there is no room but that of what is pinned. Throws as Renderer::read.
  bool prepare(const draw::ImageRequest& request, int64_t frame, std::span<const int64_t> later);

  // By what an image is known, and whether it can be had without drawing. key() throws FrameError; it costs
  // what the frame differs in from the last one that was asked about.
  int64_t key(const draw::ImageRequest& request, int64_t frame);
  bool cached(int64_t key) const;

  // Has images given up for memory in the order in which they are of use: the last of these first, after all
  // that is not among them. The first `kept` are pinned until the next image is shown.
  void prefer(const std::vector<int64_t>& nearest_first, size_t kept);

  // Files may have changed: asks the system about those of the next image, wherever that was asked before.
  void look_again();

  // What an image is made of. Throws FrameError.
  frame::FrameGraph graph(const draw::ImageRequest& request, int64_t frame);

  // Whether there is no room for another such image beside those that somebody holds.
  bool crowded(const draw::ImageRequest& request) const;

  // Nothing will be read in the next time: decodes end.
  void rest();

  // Bytes of images.
  uint64_t held() const;

 private:
  uint64_t draw(const std::string& place, const draw::ImageRequest& request, int64_t frame,
                std::span<const int64_t> later, ShownDone done);
  std::vector<int64_t> pinned(const std::string& but) const;

  Renderer::State& renderer_;
  std::map<std::string, std::vector<int64_t>> places_;  // keys of what each shows
};

}  // namespace host::render
