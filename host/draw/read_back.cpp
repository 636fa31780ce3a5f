#include "host/draw/read_back.h"

#include <qv/io/half.h>
#include <qv/transport/ring.h>

#include "host/gpu/gl_functions.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace host::draw {
namespace {

constexpr int channels = 4;

size_t floats_of(const Box& box) {
  return static_cast<size_t>(box_width(box)) * static_cast<size_t>(box_height(box)) * channels;
}

// Lays out rows that stand packed at the beginning of a buffer as they lie in a larger box, and clears the
// rest. From the last row on, so that none is written over before it has moved.
void spread(float* pixels, const Box& packed, const Box& box) {
  const size_t row = static_cast<size_t>(box_width(packed)) * channels;
  const size_t stride = static_cast<size_t>(box_width(box)) * channels;
  const size_t left = static_cast<size_t>(packed[0] - box[0]) * channels;
  const auto above = static_cast<size_t>(box[3] - packed[3]);
  const auto rows = static_cast<size_t>(box_height(packed));
  float* clear_to = pixels + floats_of(box);
  for (size_t i = rows; i-- > 0;) {
    float* const place = pixels + (above + i) * stride + left;
    std::memmove(place, pixels + i * row, row * sizeof(float));
    std::fill(place + row, clear_to, 0.0F);
    clear_to = place;
  }
  std::fill(pixels, clear_to, 0.0F);
}

// Copies the rows of a part of an image's window out of it, as floats.
void pack(const decode::Pixels& pixels, const Box& box, const Box& part, float* packed) {
  const size_t row = static_cast<size_t>(box_width(part)) * channels;
  const size_t stride = static_cast<size_t>(box_width(box)) * channels;
  size_t at =
      static_cast<size_t>(box[3] - part[3]) * stride + static_cast<size_t>(part[0] - box[0]) * channels;
  for (int64_t i = 0; i < box_height(part); ++i, at += stride, packed += row) {
    if (pixels.half) {
      qv::io::half_to_float(pixels.halves.get() + at, packed, row);
    } else {
      std::copy_n(pixels.rgba.get() + at, row, packed);
    }
  }
}

// Alive until the ring has run the last callback.
struct Transfer {
  ReadBack result;  // its window is that of the buffer
  Box filled{};     // what comes of it from the device, at the buffer's beginning
  std::shared_ptr<float[]> pixels;
  std::function<void(ReadBack)> done;
  bool good = true;  // as far as strips have arrived; the ring's thread alone

  void finish(bool whole) {
    if (whole) {
      if (filled != result.window) spread(pixels.get(), filled, result.window);
      result.rgba = pixels;
    }
    pixels.reset();
    done(std::move(result));
  }

  // On the ring's thread, strip after strip.
  void arrive(bool last) {
    good = good && !qv::transport::failed(qv::transport::current_ticket());
    if (last) finish(good);
  }
};

// What is read of a framebuffer, (x, y) its corner.
struct Part {
  uint32_t framebuffer = 0;
  int x = 0, y = 0, width = 0, height = 0;
};

// Sends it through the ring in strips; returns the last one's ticket.
uint64_t start(const std::shared_ptr<Transfer>& transfer, const Part& part, uint64_t strip_bytes) {
  const size_t row_floats = static_cast<size_t>(part.width) * channels;
  const uint64_t fitting = std::max<uint64_t>(1, strip_bytes / (row_floats * sizeof(float)));
  const int rows = static_cast<int>(std::min<uint64_t>(fitting, static_cast<uint64_t>(part.height)));
  uint64_t ticket = 0;
  for (int row = 0; row < part.height; row += rows) {
    const int count = std::min(rows, part.height - row);
    const bool last = row + count == part.height;
    float* const to = transfer->pixels.get() + static_cast<size_t>(row) * row_floats;
    const uint64_t next =
        qv::transport::start(part.framebuffer, 0, part.x, part.y + row, part.width, count, channels, to,
                             nullptr, 0, [transfer, last] { transfer->arrive(last); });
    if (next == 0) {
      qv::transport::wait(ticket);  // which still fills the buffer
      transfer->finish(false);
      return 0;
    }
    ticket = next;
  }
  return ticket;
}

// Binds a framebuffer for drawing as well while it is read. Asked whether a draw into a texture is
// still on its way, llvmpipe believes the first scene that knows the texture: one that read it,
// before it was used again, hides the later one that draws into it. What is bound for drawing it
// waits for without asking. Elsewhere this costs a call.
class BoundForDrawing {
 public:
  explicit BoundForDrawing(uint32_t framebuffer) {
    gpu::gl.BindFramebuffer(GL_FRAMEBUFFER, framebuffer);
  }
  ~BoundForDrawing() {
    gpu::gl.BindFramebuffer(GL_FRAMEBUFFER, 0);
  }
  BoundForDrawing(const BoundForDrawing&) = delete;
  BoundForDrawing& operator=(const BoundForDrawing&) = delete;
};

}  // namespace

BufferPool::BufferPool(size_t most_kept, uint64_t strip_bytes, MemoryUse use)
    : strip_bytes_(strip_bytes), state_(std::make_shared<State>(std::move(use))) {
  state_->kept.reserve(std::max<size_t>(2, most_kept));
}

// The three of State are called with its mutex held.
void BufferPool::State::tell() {
  account.set(out_bytes - passing_bytes + kept.size() * floats * sizeof(float));
}

std::unique_ptr<float[]> BufferPool::State::take(size_t wanted) {
  if (floats != wanted) kept.clear();
  floats = wanted;
  std::unique_ptr<float[]> buffer;
  if (kept.empty()) {
    buffer.reset(new float[wanted]);
  } else {
    buffer = std::move(kept.back());
    kept.pop_back();
  }
  ++out;
  out_bytes += wanted * sizeof(float);
  tell();
  return buffer;
}

void BufferPool::State::give_back(std::unique_ptr<float[]> buffer, size_t size) {
  --out;
  out_bytes -= size * sizeof(float);
  if (size == floats && kept.size() < kept.capacity()) kept.push_back(std::move(buffer));
  tell();
  back.notify_one();
}

std::shared_ptr<float[]> BufferPool::acquire(size_t floats, const SentLimit& limit) {
  std::unique_lock lock(state_->mutex);
  state_->back.wait(lock, [&] { return limit.room(state_->out, state_->out_bytes, floats * sizeof(float)); });
  // Where there is no room for the holder, its deleter is called.
  float* const buffer = state_->take(floats).release();
  lock.unlock();
  return {buffer, [floats, state = state_](float* returned) {
            const std::lock_guard held(state->mutex);
            state->give_back(std::unique_ptr<float[]>(returned), floats);
          }};
}

std::shared_ptr<const float[]> BufferPool::pass(std::shared_ptr<const node::Decoded> decoded, size_t floats,
                                                const SentLimit& limit) {
  const uint64_t bytes = floats * sizeof(float);
  std::unique_lock lock(state_->mutex);
  state_->back.wait(lock, [&] { return limit.room(state_->out, state_->out_bytes, bytes); });
  ++state_->out;
  state_->out_bytes += bytes;
  state_->passing_bytes += bytes;
  lock.unlock();
  const float* const pixels = decoded->pixels.rgba.get();
  return {pixels, [bytes, decoded = std::move(decoded), state = state_](const float*) mutable {
            decoded.reset();
            const std::lock_guard held(state->mutex);
            --state->out;
            state->out_bytes -= bytes;
            state->passing_bytes -= bytes;
            state->back.notify_one();
          }};
}

void BufferPool::note_read(uint64_t bytes) {
  const std::lock_guard lock(state_->mutex);
  state_->bytes_read += bytes;
}

uint64_t BufferPool::bytes_read() const {
  const std::lock_guard lock(state_->mutex);
  return state_->bytes_read;
}

Box read_window(const node::Image& image, const Box& area) {
  return image.has_pixels() ? intersection(image.extent.window, area) : Box{};
}

uint64_t read_back(const node::Image& image, const Box& area, Outside outside, BufferPool& buffers,
                   const SentLimit& limit, std::function<void(ReadBack)> done) {
  const Box window = read_window(image, area);
  if (is_empty(window) && outside == Outside::left_out) {
    done({{area[0], area[1], area[0] + 1, area[1] + 1}, std::shared_ptr<const float[]>(new float[4]())});
    return 0;
  }
  const auto transfer = std::make_shared<Transfer>();
  transfer->result.window = outside == Outside::left_out ? window : area;
  const bool floats = image.decoded && !image.decoded->pixels.half;
  if (floats && transfer->result.window == image.extent.window) {
    done({image.extent.window, buffers.pass(image.decoded, floats_of(window), limit)});
    return 0;
  }
  transfer->filled = window;
  transfer->pixels = buffers.acquire(floats_of(transfer->result.window), limit);
  transfer->done = std::move(done);
  if (is_empty(window)) {
    transfer->finish(true);
    return 0;
  }
  if (image.decoded) {
    pack(image.decoded->pixels, image.extent.window, window, transfer->pixels.get());
    transfer->finish(true);
    return 0;
  }
  buffers.note_read(floats_of(window) * sizeof(float));
  const Part part{image.texture->framebuffer, static_cast<int>(window[0] - image.extent.window[0]),
                  static_cast<int>(image.extent.window[3] - window[3]), static_cast<int>(box_width(window)),
                  static_cast<int>(box_height(window))};
  const BoundForDrawing bound(part.framebuffer);
  return start(transfer, part, buffers.strip_bytes());
}

}  // namespace host::draw
