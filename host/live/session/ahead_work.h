#pragma once

#include "host/live/session/ahead.h"
#include "host/live/session/session.h"
#include "host/render/viewing.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host::live::session {

// Draws frames before they are asked for, nearest first, as far as there is room without giving up a nearer
// one. On the thread for drawing alone.
class AheadWork {
 public:
  // What is drawn; ahead.node is a node's name.
  struct Subject {
    int64_t version = 0;
    Ahead ahead;
  };

  // Looks at some frames, and draws one. False when nothing is left to do. Throws Interrupted once the
  // request's `stop` is raised.
  bool step(render::Viewing& viewing, const draw::ImageRequest& request, const Subject& subject);

  // There may be room again.
  void retry() {
    full_ = false;
  }

  const Subject& subject() const {
    return subject_;
  }

  // The frames of the subject that can be had without drawing, where that is news since the last call.
  std::optional<std::vector<std::pair<int64_t, int64_t>>> news(const render::Viewing& viewing);

 private:
  void take_over(const Subject& subject);
  void look(render::Viewing& viewing, const draw::ImageRequest& request);

  Subject subject_;
  Timeline timeline_;
  bool full_ = false;
  bool told_ = false;
  std::vector<std::pair<int64_t, int64_t>> last_told_;
};

}  // namespace host::live::session
