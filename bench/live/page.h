#pragma once

#include "host/live/session/session.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bench_live {

using CompositionPtr = host::live::session::Session::CompositionPtr;

// A composition's text in which the last node's knob has this value: `count` gradings upon a picture, the
// last ones of which blur where `soft`.
std::string chain(int count, double value, int width = 64, int height = 64, bool soft = false);

CompositionPtr parsed(const std::string& text);

// What a page would do with a session, one thing after another.
class Page : public host::live::session::Listener {
 public:
  explicit Page(uint64_t memory = uint64_t{2} << 30);

  // Makes the composition the newest version.
  void edit(const CompositionPtr& composition);

  // Wishes one image in place of all others; its id.
  uint64_t wish(int64_t frame, double scale = 1, const std::optional<host::live::session::Ahead>& ahead = {});
  host::live::session::Drawn wait(uint64_t id);

  // Of all those told of so far.
  size_t images();

  // Bytes of images, as last told.
  uint64_t held();

  host::live::session::Session& session() {
    return *session_;
  }

  void drawn(const std::string& client, host::live::session::Drawn drawn) override;
  void cached(int64_t, const std::string&, double, std::vector<std::pair<int64_t, int64_t>>) override {}
  void memory(uint64_t held, uint64_t budget) override;
  void notice(const std::string&) override {}
  void device_lost(bool, const std::string&) override {}

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  host::live::session::Drawn last_;
  size_t images_ = 0;
  uint64_t held_ = 0;
  uint64_t id_ = 0;
  int64_t version_ = 0;
  std::unique_ptr<host::live::session::Session> session_;
};

// What a process holds.
struct Holdings {
  double megabytes = 0;
  double images = 0;  // of these, in textures and buffers
  int64_t threads = 0;
  int64_t handles = 0;
};

// Edits and frames for a while; what was held after the first quarter, when everything had been used once,
// and at the end.
std::pair<Holdings, Holdings> work_long(int edits, int frames);

}  // namespace bench_live
