#include "model/base/clock.h"

#include <algorithm>
#include <chrono>

namespace jxmodel {

Clock& Clock::instance() {
  static auto* const clock = new Clock;  // outlives every thread that uses it
  return *clock;
}

uint64_t Clock::now() const {
  if (source() != JX_MODEL_CLOCK_REAL) return time_.load(std::memory_order_acquire);
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::nanoseconds(since).count());
}

void Clock::set(jx_model_clock_source_t source, uint64_t now) {
  time_.store(now);
  began_.store(0);
  source_.store(source);
  tellDue(true);
}

bool Clock::advance(uint64_t nanoseconds) {
  if (source() != JX_MODEL_CLOCK_STOPPED) return false;
  const uint64_t now = time_.fetch_add(nanoseconds) + nanoseconds;
  if (next_alarm_.load() <= now) tellDue(false);
  return true;
}

void Clock::observe(uint64_t stamp) {
  if (source() != JX_MODEL_CLOCK_CAPTURE) return;
  uint64_t before = time_.load(std::memory_order_relaxed);
  while (before < stamp) {
    if (before == 0) {
      uint64_t none = 0;
      began_.compare_exchange_strong(none, stamp);
    }
    // Sequentially consistent, as is setting an alarm: one of the two sees the other.
    if (!time_.compare_exchange_weak(before, stamp)) continue;
    if (next_alarm_.load() <= stamp) tellDue(false);
    return;
  }
}

void Clock::add(ClockListener* listener) {
  const MutexLock lock(mutex_);
  listeners_.push_back(listener);
}

void Clock::remove(ClockListener* listener) {
  const MutexLock lock(mutex_);
  listeners_.erase(std::remove(listeners_.begin(), listeners_.end(), listener), listeners_.end());
}

void Clock::alarmSet(uint64_t alarm) {
  uint64_t first = next_alarm_.load();
  while (alarm < first && !next_alarm_.compare_exchange_weak(first, alarm)) {
  }
}

void Clock::tellDue(bool all) {
  const MutexLock lock(mutex_);
  // An alarm that is set from now on either lowers this again or is seen below.
  next_alarm_.store(ClockListener::kNever);
  const uint64_t time = now();
  for (ClockListener* const listener : listeners_) {
    const uint64_t alarm = listener->alarm();
    alarmSet(alarm);
    if (all || alarm <= time) listener->timeCame();
  }
}

}  // namespace jxmodel
