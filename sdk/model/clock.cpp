#include "model/clock.h"

#include <chrono>

namespace jxmodel {

Clock& Clock::instance() {
  static Clock clock;  // nothing to destroy: outlives every thread that uses it
  return clock;
}

uint64_t Clock::now() const {
  if (source() != JX_MODEL_CLOCK_REAL) return time_.load(std::memory_order_acquire);
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::nanoseconds(since).count());
}

void Clock::set(jx_model_clock_source_t source, uint64_t now) {
  time_.store(now, std::memory_order_release);
  source_.store(source, std::memory_order_release);
}

bool Clock::advance(uint64_t nanoseconds) {
  if (source() != JX_MODEL_CLOCK_STOPPED) return false;
  time_.fetch_add(nanoseconds, std::memory_order_acq_rel);
  return true;
}

void Clock::observe(uint64_t stamp) {
  if (source() != JX_MODEL_CLOCK_CAPTURE) return;
  uint64_t before = time_.load(std::memory_order_relaxed);
  while (before < stamp && !time_.compare_exchange_weak(before, stamp, std::memory_order_acq_rel)) {
  }
}

}  // namespace jxmodel

using jxmodel::Clock;

jx_status_t jx_model_clock_set(jx_model_clock_source_t source, uint64_t now_ns) {
  if (source < JX_MODEL_CLOCK_REAL || source > JX_MODEL_CLOCK_STOPPED) return JX_INVALID_ARGUMENTS;
  Clock::instance().set(source, now_ns);
  return JX_SUCCESS;
}

jx_status_t jx_model_clock_advance(uint64_t ns) {
  return Clock::instance().advance(ns) ? JX_SUCCESS : JX_NOT_SUPPORTED;
}

uint64_t jx_model_clock_now(void) { return Clock::instance().now(); }

jx_model_clock_source_t jx_model_clock_source(void) { return Clock::instance().source(); }
