#include "host/render_farm/journal.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace host::render_farm {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::system_clock;

std::string time_text(Clock::time_point time) {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = ms / 1000;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, 40> text{};
  const size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text.data() + length, text.size() - length, ".%03dZ", static_cast<int>(ms % 1000));
  return text.data();
}

std::string host_name() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string text_of(const Entry& entry) {
  nlohmann::ordered_json line = {
      {"frame", entry.frame}, {"outcome", entry.outcome}, {"host", entry.host},
      {"task", entry.task},   {"start", entry.start},     {"end", entry.end},
      {"ms", entry.ms},       {"bytes", entry.bytes},     {"digest", entry.digest}};
  if (!entry.error.empty()) line["error"] = entry.error;
  return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

// A line as text_of writes it, without escapes: a million of them take a second, which a general parser does
// not keep to.
class Scanner {
 public:
  explicit Scanner(std::string_view line) : rest_(line) {}

  bool skip(std::string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }
  template <class Number>
  bool number(std::string_view name, Number& value) {
    if (!skip(name)) return false;
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
    if (error != std::errc()) return false;
    rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
    return true;
  }
  bool text(std::string_view name, std::string& value) {
    if (!skip(name)) return false;
    const size_t end = rest_.find('"');
    if (end == std::string_view::npos || rest_.find('\\') < end) return false;
    value.assign(rest_.substr(0, end));
    rest_.remove_prefix(end + 1);
    return true;
  }
  bool over() const {
    return rest_.empty();
  }

 private:
  std::string_view rest_;
};

bool scan(std::string_view line, Entry& entry) {
  Scanner scanner(line);
  entry.error.clear();
  const bool known = scanner.number(R"({"frame":)", entry.frame) &&
                     scanner.text(R"(,"outcome":")", entry.outcome) &&
                     scanner.text(R"(,"host":")", entry.host) && scanner.text(R"(,"task":")", entry.task) &&
                     scanner.text(R"(,"start":")", entry.start) && scanner.text(R"(,"end":")", entry.end) &&
                     scanner.number(R"(,"ms":)", entry.ms) && scanner.number(R"(,"bytes":)", entry.bytes) &&
                     scanner.text(R"(,"digest":")", entry.digest);
  if (!known || (!scanner.skip("}") && !(scanner.text(R"(,"error":")", entry.error) && scanner.skip("}"))))
    return false;
  return scanner.over();
}

bool parse(std::string_view line, Entry& entry) {
  if (scan(line, entry)) return true;
  const auto object = nlohmann::json::parse(line, nullptr, false);
  if (!object.is_object()) return false;
  try {
    entry = {object.at("frame"),         object.at("outcome"),
             object.value("host", ""),   object.value("task", ""),
             object.value("start", ""),  object.value("end", ""),
             object.value("ms", 0.0),    object.value("bytes", uint64_t{0}),
             object.value("digest", ""), object.value("error", "")};
    return true;
  } catch (const nlohmann::json::exception&) {
    return false;
  }
}

class Journalled final : public render::Progress {
 public:
  Journalled(render::Progress& shown, Journal& journal) : shown_(shown), journal_(journal) {
    const char* const task = std::getenv("QUORVEL_TASK");
    if (task) task_ = task;
  }
  void begin(int64_t frames, const std::string& renderer, bool software) override {
    shown_.begin(frames, renderer, software);
  }
  void notice(const std::string& text) override {
    shown_.notice(text);
  }
  void frame(const render::FrameReport& report) override {
    write(report);
    shown_.frame(report);
  }
  void end(render::Outcome outcome, const draw::Stats& stats) override {
    shown_.end(outcome, stats);
  }

 private:
  void write(const render::FrameReport& report) {
    const Clock::time_point now = Clock::now();
    const auto took =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double, std::milli>(report.ms));
    const char* const outcome = !report.error.empty() ? "failed" : report.skipped ? "kept" : "done";
    try {
      journal_.add({report.frame, outcome, host_, task_, time_text(now - took), time_text(now), report.ms,
                    report.bytes, report.digest, report.error});
    } catch (const std::runtime_error& error) {
      if (!std::exchange(told_, true)) shown_.notice(error.what());
    }
  }

  render::Progress& shown_;
  Journal& journal_;
  std::string host_ = host_name();
  std::string task_;
  bool told_ = false;
};

}  // namespace

Journal::Journal(const fs::path& path) : path_(path) {
  std::error_code ignored;
  if (path.has_parent_path()) fs::create_directories(path.parent_path(), ignored);
  descriptor_ = ::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (descriptor_ < 0) {
    throw std::runtime_error(path.string() + ": cannot be opened: " + std::generic_category().message(errno));
  }
}

Journal::~Journal() {
  ::close(descriptor_);
}

void Journal::add(const Entry& entry) {
  std::string line = text_of(entry);
  struct stat now {};
  char last = '\n';
  const bool some = ::fstat(descriptor_, &now) == 0 && now.st_size > 0;
  if (some && ::pread(descriptor_, &last, 1, now.st_size - 1) == 1 && last != '\n') line.insert(0, 1, '\n');
  const ssize_t written = ::write(descriptor_, line.data(), line.size());
  // What was kept loses nothing with a line.
  const bool synced = entry.outcome == "kept" || ::fdatasync(descriptor_) == 0;
  if (written != static_cast<ssize_t>(line.size()) || !synced) {
    const int code = written < 0 || written == static_cast<ssize_t>(line.size()) ? errno : ENOSPC;
    throw std::runtime_error(path_.string() +
                             ": cannot be written to: " + std::generic_category().message(code));
  }
}

void read_journal(const fs::path& path, const std::function<void(const Entry&)>& each) {
  std::ifstream stream(path);
  std::string line;
  Entry entry;
  while (std::getline(stream, line)) {
    // A last line without its end may be whole by accident, as a number that lost digits would be.
    if (!stream.eof() && parse(line, entry)) each(entry);
  }
}

std::unique_ptr<render::Progress> journalled(render::Progress& shown, Journal& journal) {
  return std::make_unique<Journalled>(shown, journal);
}

}  // namespace host::render_farm
