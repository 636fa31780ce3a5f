#include "host/gpu/timer.h"

#include "host/gpu/gl_functions.h"

namespace host::gpu {

Timer::Timer() {
  for (Query& query : queries_) gl.GenQueries(1, &query.name);
}

Timer::~Timer() {
  for (const Query& query : queries_) gl.DeleteQueries(1, &query.name);
}

void Timer::begin() {
  for (Query& query : queries_) {
    collect(query, false);
    if (query.in_flight) continue;
    open_ = &query;
    gl.BeginQuery(GL_TIME_ELAPSED, query.name);
    return;
  }
  ++missed_;
}

void Timer::end() {
  if (!open_) return;
  gl.EndQuery(GL_TIME_ELAPSED);
  open_->in_flight = true;
  open_ = nullptr;
}

void Timer::collect(Query& query, bool wait) {
  if (!query.in_flight) return;
  GLint available = 0;
  if (!wait) gl.GetQueryObjectiv(query.name, GL_QUERY_RESULT_AVAILABLE, &available);
  if (!wait && !available) return;
  GLuint64 nanoseconds = 0;
  gl.GetQueryObjectui64v(query.name, GL_QUERY_RESULT, &nanoseconds);
  known_ms_ += static_cast<double>(nanoseconds) * 1e-6;
  ++measured_;
  query.in_flight = false;
}

double Timer::total_ms(bool wait) {
  for (Query& query : queries_) collect(query, wait);
  if (measured_ == 0) return 0;
  return known_ms_ * static_cast<double>(measured_ + missed_) / static_cast<double>(measured_);
}

}  // namespace host::gpu
