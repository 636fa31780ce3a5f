#include "bench/live/page.h"

#include "host/shot/composition.h"

namespace bench_live {

std::string chain(int count, double value, int width, int height, bool soft) {
  std::string nodes = R"({"name": "n0", "type": "checkerboard"})";
  for (int i = 1; i < count; ++i) {
    const std::string name = "n" + std::to_string(i);
    const std::string above = "n" + std::to_string(i - 1);
    const bool last = i + 1 == count;
    const double gain = last ? value : 1 + i * 1e-3;
    nodes += R"(, {"name": ")" + name + R"(", "inputs": ")" + above + "\", ";
    if (soft && i % 3 == 0) {
      nodes += R"("type": "blur", "knobs": {"size": )" + std::to_string(4 + (last ? value : 0)) + "}}";
    } else {
      nodes += R"("type": "grade", "knobs": {"gain": )" + std::to_string(gain) +
               R"(, "offset": {"keys": [[1, 0], [2000, 0.5]]}}})";
    }
  }
  return R"({"format": {"width": )" + std::to_string(width) + R"(, "height": )" + std::to_string(height) +
         R"(}, "frames": "1-2000", "nodes": [)" + nodes + "]}";
}

CompositionPtr parsed(const std::string& text) {
  return std::make_shared<const host::shot::Composition>(host::shot::parse_composition(text, "bench.json"));
}

Page::Page(uint64_t memory) {
  host::render::RendererOptions options;
  options.memory = memory;
  const host::gpu::DeviceChoice device{host::gpu::DeviceChoice::Kind::software, 0};
  session_ = std::make_unique<host::live::session::Session>(options, device, *this);
}

void Page::edit(const CompositionPtr& composition) {
  session_->set_composition(++version_, composition);
}

uint64_t Page::wish(int64_t frame, double scale, const std::optional<host::live::session::Ahead>& ahead) {
  host::live::session::Wish wish;
  wish.id = ++id_;
  wish.frame = frame;
  wish.scale = scale;
  session_->wish("page", {wish}, ahead);
  return id_;
}

host::live::session::Drawn Page::wait(uint64_t id) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return last_.wish.id == id; });
  return last_;
}

size_t Page::images() {
  const std::lock_guard lock(mutex_);
  return images_;
}

uint64_t Page::held() {
  const std::lock_guard lock(mutex_);
  return held_;
}

void Page::memory(uint64_t held, uint64_t /*budget*/) {
  const std::lock_guard lock(mutex_);
  held_ = held;
}

void Page::drawn(const std::string& /*client*/, host::live::session::Drawn drawn) {
  const std::lock_guard lock(mutex_);
  last_ = std::move(drawn);
  ++images_;
  changed_.notify_all();
}

}  // namespace bench_live
