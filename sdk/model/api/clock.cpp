// The C interface of the clock: jxmodel/clock.h.
#include "jxmodel/clock.h"

#include "model/base/clock.h"

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
