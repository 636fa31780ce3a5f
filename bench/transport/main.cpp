#include <qv/transport/ring.h>

#include "bench/gpu/gl_context.h"
#include "bench/report.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

// A shot is drawn, read back and consumed: through the ring, by plain reads, and through one mapped
// pixel-pack buffer that is waited for. All three draw the same frames and must sum the same pixels.
namespace {

using support::GlContext;
namespace transport = qv::transport;

constexpr const char* vertex_text = R"(#version 420 core
void main() { gl_Position = vec4(4 * (gl_VertexID & 1) - 1, 2 * (gl_VertexID & 2) - 1, 0, 1); }
)";
// The frame's number moves the ramp, so that no two frames have one sum.
constexpr const char* fragment_text = R"(#version 420 core
uniform int frame;
layout(location = 0) out vec4 color;
void main() { color = vec4(gl_FragCoord.xy, gl_FragCoord.x * float(frame), float(frame) + 0.25); }
)";

struct Frame {
  int width, height;
  std::vector<float> pixels;
  uint64_t sum = 0;

  Frame(int w, int h) : width(w), height(h), pixels(4 * static_cast<size_t>(w) * static_cast<size_t>(h)) {}

  size_t bytes() const {
    return pixels.size() * sizeof(float);
  }
  // Reads every pixel, as what shows or stores the frame would.
  void consume() {
    uint64_t total = 0;
    for (const float value : pixels) {
      uint32_t bits = 0;
      std::memcpy(&bits, &value, sizeof bits);
      total += bits;
    }
    sum += total;
  }
};

class Scene {
 public:
  Scene(const GlContext& gl, int width, int height) : gl_(gl), width_(width), height_(height) {
    unsigned texture = 0, vertex_array = 0;
    gl.GenTextures(1, &texture);
    gl.BindTexture(GL_TEXTURE_2D, texture);
    gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, width, height, 0, GL_RGBA, GL_FLOAT, nullptr);
    gl.GenFramebuffers(1, &framebuffer_);
    gl.BindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
    gl.FramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
    gl.GenVertexArrays(1, &vertex_array);
    gl.BindVertexArray(vertex_array);
    gl.Viewport(0, 0, width, height);
    program_ = gl.CreateProgram();
    add(GL_VERTEX_SHADER, vertex_text);
    add(GL_FRAGMENT_SHADER, fragment_text);
    gl.LinkProgram(program_);
    gl.UseProgram(program_);
  }
  unsigned framebuffer() const {
    return framebuffer_;
  }
  void draw(int frame) const {
    gl_.ProgramUniform1i(program_, gl_.GetUniformLocation(program_, "frame"), frame);
    gl_.DrawArrays(GL_TRIANGLES, 0, 3);
  }
  void read(void* to) const {
    gl_.ReadPixels(0, 0, width_, height_, GL_RGBA, GL_FLOAT, to);
  }

 private:
  void add(unsigned kind, const char* text) const {
    const unsigned shader = gl_.CreateShader(kind);
    gl_.ShaderSource(shader, 1, &text, nullptr);
    gl_.CompileShader(shader);
    gl_.AttachShader(program_, shader);
  }

  const GlContext& gl_;
  int width_, height_;
  unsigned framebuffer_ = 0, program_ = 0;
};

class PackBuffer {
 public:
  PackBuffer(const GlContext& gl, size_t bytes) : gl_(gl) {
    constexpr unsigned access = GL_MAP_READ_BIT | GL_MAP_PERSISTENT_BIT | GL_MAP_COHERENT_BIT;
    const auto size = static_cast<GLsizeiptr>(bytes);
    gl.GenBuffers(1, &name_);
    gl.BindBuffer(GL_PIXEL_PACK_BUFFER, name_);
    gl.BufferStorage(GL_PIXEL_PACK_BUFFER, size, nullptr, access | GL_CLIENT_STORAGE_BIT);
    mapped_ = gl.MapBufferRange(GL_PIXEL_PACK_BUFFER, 0, size, access);
    gl.BindBuffer(GL_PIXEL_PACK_BUFFER, 0);
  }
  void read(const Scene& scene, Frame& frame) const {
    gl_.BindBuffer(GL_PIXEL_PACK_BUFFER, name_);
    scene.read(nullptr);
    gl_.BindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    gl_.Finish();
    std::memcpy(frame.pixels.data(), mapped_, frame.bytes());
  }

 private:
  const GlContext& gl_;
  unsigned name_ = 0;
  const void* mapped_ = nullptr;
};

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

enum Way { ring, plain, one_buffer };

class Shot {
 public:
  Shot(const GlContext& gl, int width, int height, int count)
      : scene_(gl, width, height),
        pack_(gl, Frame(width, height).bytes()),
        count_(count),
        frames_(3, Frame(width, height)) {}

  // Draws, reads and consumes every frame; returns the sum of all their pixels.
  uint64_t run(Way way) {
    const std::clock_t spent = std::clock();
    for (Frame& frame : frames_) frame.sum = 0;
    for (int k = 0; k < count_; ++k) {
      scene_.draw(k);
      Frame& frame = frames_[static_cast<size_t>(k) % frames_.size()];
      const double before = now();
      read(way, frame);
      held[way].push_back(now() - before);
      if (way != ring) frame.consume();
    }
    transport::wait_all();
    processor[way].push_back(static_cast<double>(std::clock() - spent) / CLOCKS_PER_SEC / count_);
    uint64_t sum = 0;
    for (const Frame& frame : frames_) sum += frame.sum;
    return sum;
  }
  // Seconds of every read on the render thread; seconds a frame of all processors, a run each.
  std::array<std::vector<double>, 3> held, processor;

 private:
  void read(Way way, Frame& frame) const {
    if (way == plain) return scene_.read(frame.pixels.data());
    if (way == one_buffer) return pack_.read(scene_, frame);
    // Three slots, three frames: whoever gets a slot finds the frame of that turn consumed.
    transport::start(scene_.framebuffer(), scene_.framebuffer(), 0, 0, frame.width, frame.height, 4,
                     frame.pixels.data(), nullptr, 0, [&frame] { frame.consume(); });
  }

  Scene scene_;
  PackBuffer pack_;
  int count_;
  std::vector<Frame> frames_;
};

double median_ms(std::vector<double> seconds) {
  std::nth_element(seconds.begin(), seconds.begin() + static_cast<ptrdiff_t>(seconds.size() / 2),
                   seconds.end());
  return seconds[seconds.size() / 2] * 1000;
}

}  // namespace

int main(int argc, char** argv) {
  bench::Report report("transport", argc, argv);
  std::string why;
  const GlContext* gl = GlContext::get(&why);
  if (!gl || !transport::init(&why)) {
    std::fprintf(stderr, "bench transport: %s\n", why.c_str());
    return 2;
  }
  constexpr int count = 30;
  const int width = report.quick() ? 960 : 3840, height = report.quick() ? 540 : 2160;
  Shot shot(*gl, width, height, count);
  const uint64_t sum = shot.run(plain);
  report.require(shot.run(one_buffer) == sum && shot.run(ring) == sum, "sum of all pixels");
  shot.held = shot.processor = {};

  const auto times = bench::time_in_turn(
      5, {[&] { shot.run(ring); }, [&] { shot.run(plain); }, [&] { shot.run(one_buffer); }});
  const auto ms = [&](double seconds) { return seconds * 1000 / count; };
  const double ours = ms(times[ring].median);
  const std::string image = std::to_string(width) + "x" + std::to_string(height) + " RGBA float";
  const std::pair<std::string, double> peers[] = {{"plain read", ms(times[plain].median)},
                                                  {"one buffer, waited for", ms(times[one_buffer].median)}};
  // A driver in software copies inside the read itself: there the ring gains by overlap alone.
  report.row(image + " drawn, read, consumed", "ms/frame", bench::Better::less, ours, {peers[0]}, 1 / 1.1);
  report.row("the same", "ms/frame", bench::Better::less, ours, {peers[1]}, 1);
  report.row(
      "a read holds the render thread", "ms", bench::Better::less, median_ms(shot.held[ring]),
      {{peers[0].first, median_ms(shot.held[plain])}, {peers[1].first, median_ms(shot.held[one_buffer])}});
  // One copy from the mapping to the frame, as behind the single buffer, and no other work.
  report.row("processor time of all threads", "ms/frame", bench::Better::less,
             median_ms(shot.processor[ring]), {{peers[1].first, median_ms(shot.processor[one_buffer])}}, 0.9);
  report.note(gl->renderer);
  for (const Way way : {ring, plain, one_buffer}) {
    char text[100];
    std::snprintf(text, sizeof text, "%s: %.1f to %.1f ms/frame",
                  way == ring ? "ring" : peers[way - 1].first.c_str(), ms(times[way].least),
                  ms(times[way].most));
    report.note(text);
  }
  transport::close();
  return report.finish();
}
