#include "host/live/session/trace.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>

#include <nlohmann/json.hpp>

namespace host::live::session {
namespace {

using nlohmann::json;

constexpr std::array<const char*, 4> work_names = {"drawing", "decoding", "read-back", "encoding"};
constexpr int most_rows = 1000;  // of one kind

int64_t microseconds(Spans::Clock::duration time) {
  return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

json row_name(int row, const std::string& name) {
  return {{"ph", "M"}, {"pid", 1}, {"tid", row}, {"name", "thread_name"}, {"args", {{"name", name}}}};
}

}  // namespace

std::string chrome_trace(std::vector<Spans::Span> spans) {
  std::sort(spans.begin(), spans.end(), [](const auto& a, const auto& b) { return a.begin < b.begin; });
  json events = json::array();
  std::array<std::vector<Spans::Clock::time_point>, work_names.size()> ends;  // of each row's last stretch
  for (const Spans::Span& span : spans) {
    const auto work = static_cast<size_t>(span.work);
    auto& rows = ends[work];
    auto row = std::find_if(rows.begin(), rows.end(), [&](const auto& end) { return end <= span.begin; });
    if (row == rows.end()) row = rows.insert(rows.end(), span.end);
    *row = span.end;
    const int id = static_cast<int>(work) * most_rows + static_cast<int>(row - rows.begin());
    events.push_back({{"ph", "X"},
                      {"pid", 1},
                      {"tid", id},
                      {"name", span.name},
                      {"cat", work_names[work]},
                      {"ts", microseconds(span.begin - spans.front().begin)},
                      {"dur", microseconds(span.end - span.begin)}});
  }
  for (size_t work = 0; work < work_names.size(); ++work) {
    for (size_t row = 0; row < std::max<size_t>(1, ends[work].size()); ++row) {
      const std::string name = work_names[work];
      events.push_back(row_name(static_cast<int>(work) * most_rows + static_cast<int>(row),
                                row == 0 ? name : name + " " + std::to_string(row + 1)));
    }
  }
  return json{{"traceEvents", std::move(events)}, {"displayTimeUnit", "ms"}}.dump(
      -1, ' ', false, json::error_handler_t::replace);
}

}  // namespace host::live::session
