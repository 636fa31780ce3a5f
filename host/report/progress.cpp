#include "host/report/progress.h"

#include "host/base/stopwatch.h"
#include "host/report/printable.h"
#include "host/report/stats_text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace host::report {
namespace {

std::string rendering_text(int64_t frames, const std::string& renderer, bool software) {
  return "rendering " + std::to_string(frames) + (frames == 1 ? " frame on " : " frames on ") + renderer +
         (software ? ": in software, no GPU is used\n" : "\n");
}

std::string seconds_text(double seconds) {
  char text[32];
  if (seconds < 10) {
    std::snprintf(text, sizeof text, "%.1f s", seconds);
  } else if (seconds < 100) {
    std::snprintf(text, sizeof text, "%.0f s", seconds);
  } else {
    const auto whole = std::llround(seconds);
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
  }
  return text;
}

// What one frame came to: "frame 3: out/shot.0003.exr (0.4 s, 5 computed, 9 reused)".
std::string frame_text(const render::FrameReport& report) {
  if (!report.error.empty()) return report.error + "\n";
  std::string text = "frame " + std::to_string(report.frame) + ": ";
  if (report.skipped) return text + "there already\n";
  for (size_t i = 0; i < report.files.size(); ++i) text += (i == 0 ? "" : ", ") + report.files[i];
  return text + " (" + seconds_text(report.ms / 1000) + ", " + std::to_string(report.computed) +
         " computed, " + std::to_string(report.cached) + " reused)\n";
}

std::string end_text(render::Outcome outcome, int64_t frames, const draw::Stats& stats) {
  std::string text = outcome == render::Outcome::interrupted ? "interrupted: " : "";
  text += std::to_string(stats.frames) + " of " + std::to_string(frames) + " frames written in " +
          seconds_text(stats.wall_ms / 1000);
  if (stats.failed > 0) text += ", " + std::to_string(stats.failed) + " failed";
  return text + "\n";
}

const char* outcome_name(render::Outcome outcome) {
  constexpr const char* names[] = {"done", "failed", "nothing", "memory", "interrupted"};
  return names[static_cast<size_t>(outcome)];
}

class Silent final : public render::Progress {
 public:
  Silent(std::ostream& out, bool notices) : out_(out), notices_(notices) {}
  void begin(int64_t /*frames*/, const std::string& /*renderer*/, bool /*software*/) override {}
  // Notices and failures are no progress: a person needs to know of them in any style.
  void notice(const std::string& text) override {
    if (notices_) out_ << text << std::endl;
  }
  void frame(const render::FrameReport& report) override {
    if (!report.error.empty()) out_ << frame_text(report) << std::flush;
  }
  void end(render::Outcome outcome, const draw::Stats& /*stats*/) override {
    if (outcome == render::Outcome::interrupted) out_ << "interrupted\n" << std::flush;
  }

 private:
  std::ostream& out_;
  bool notices_;
};

class Lines final : public render::Progress {
 public:
  explicit Lines(std::ostream& out) : out_(out) {}
  void begin(int64_t frames, const std::string& renderer, bool software) override {
    frames_ = frames;
    out_ << rendering_text(frames, renderer, software) << std::flush;
  }
  void notice(const std::string& text) override {
    out_ << text << std::endl;
  }
  void frame(const render::FrameReport& report) override {
    out_ << frame_text(report) << std::flush;
  }
  void end(render::Outcome outcome, const draw::Stats& stats) override {
    out_ << end_text(outcome, frames_, stats) << std::flush;
  }

 private:
  std::ostream& out_;
  int64_t frames_ = 0;
};

// One line that is drawn over again; everything else is printed above it.
class Bar final : public render::Progress {
 public:
  explicit Bar(std::ostream& out) : out_(out) {}

  void begin(int64_t frames, const std::string& renderer, bool software) override {
    frames_ = frames;
    out_ << rendering_text(frames, renderer, software);
    draw();
  }
  void notice(const std::string& text) override {
    control_ << clear_line;
    out_ << text << '\n';
    draw();
  }
  void frame(const render::FrameReport& report) override {
    ++finished_;
    // Frames that were there already say nothing of how long the others take.
    if (!report.skipped) ++rendered_;
    if (!report.error.empty()) {
      control_ << clear_line;
      out_ << frame_text(report);
    }
    draw();
  }
  void end(render::Outcome outcome, const draw::Stats& stats) override {
    control_ << clear_line;
    out_ << end_text(outcome, frames_, stats) << std::flush;
  }

 private:
  static constexpr const char* clear_line = "\r\033[K";
  static constexpr int64_t width = 30;

  void draw() {
    const int64_t filled = frames_ > 0 ? width * finished_ / frames_ : 0;
    control_ << clear_line;
    out_ << '[' << std::string(static_cast<size_t>(filled), '=')
         << std::string(static_cast<size_t>(width - filled), ' ') << "] " << finished_ << '/' << frames_;
    if (rendered_ > 0) {
      const double each = watch_.elapsed_ms() / 1000 / static_cast<double>(rendered_);
      out_ << "  " << seconds_text(each) << " a frame, "
           << seconds_text(each * static_cast<double>(frames_ - finished_)) << " left";
    }
    out_ << std::flush;
  }

  std::ostream& out_;
  std::ostream control_{bare_buffer(out_)};  // past what escapes control bytes
  int64_t frames_ = 0;
  int64_t finished_ = 0;
  int64_t rendered_ = 0;
  double total_ms_ = 0;
  Stopwatch watch_{total_ms_};
};

// One JSON object a line, for programs.
class Events final : public render::Progress {
 public:
  explicit Events(std::ostream& out) : out_(out) {}

  void begin(int64_t frames, const std::string& renderer, bool software) override {
    print({{"event", "begin"}, {"frames", frames}, {"renderer", renderer}, {"software", software}});
  }
  void notice(const std::string& text) override {
    print({{"event", "notice"}, {"text", text}});
  }
  void frame(const render::FrameReport& report) override {
    nlohmann::ordered_json event = {{"event", "frame"},
                                    {"frame", report.frame},
                                    {"files", report.files},
                                    {"skipped", report.skipped},
                                    {"computed", report.computed},
                                    {"cached", report.cached},
                                    {"ms", report.ms}};
    if (!report.error.empty()) event["error"] = report.error;
    print(event);
  }
  void end(render::Outcome outcome, const draw::Stats& stats) override {
    print({{"event", "end"},
           {"outcome", outcome_name(outcome)},
           {"stats", nlohmann::ordered_json::parse(stats_json(stats))}});
  }

 private:
  // Paths may hold bytes that are no UTF-8; a reader still gets valid JSON.
  void print(const nlohmann::ordered_json& event) {
    out_ << event.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << std::endl;
  }
  std::ostream& out_;
};

}  // namespace

std::unique_ptr<render::Progress> make_progress(ProgressStyle style, LogLevel level, std::ostream& out,
                                                bool terminal) {
  if (style == ProgressStyle::jsonl) return std::make_unique<Events>(out);
  if (style == ProgressStyle::none || level < LogLevel::info) {
    return std::make_unique<Silent>(out, level >= LogLevel::warning);
  }
  const bool bar = style == ProgressStyle::automatic && terminal && level == LogLevel::info;
  if (bar) return std::make_unique<Bar>(out);
  return std::make_unique<Lines>(out);
}

}  // namespace host::report
