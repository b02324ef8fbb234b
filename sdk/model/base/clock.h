// The clock of the model; see jxmodel/clock.h. Readers take no lock: they are packets.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "jxmodel/clock.h"
#include "model/base/mutex.h"

namespace jxmodel {

constexpr uint64_t kNsPerMs = 1'000'000;

/// Somebody who waits for a moment of the clock. Told by whoever moves the clock, on its thread.
class ClockListener {
 public:
  static constexpr uint64_t kNever = UINT64_MAX;

  /// The moment waited for; kNever for none.
  uint64_t alarm() const { return alarm_.load(); }
  /// The clock has reached the moment, or was set.
  virtual void timeCame() = 0;

 protected:
  ~ClockListener() = default;
  std::atomic<uint64_t> alarm_{kNever};
};

class Clock {
 public:
  /// The one of the process.
  static Clock& instance();

  /// Nanoseconds since 1970.
  uint64_t now() const;
  jx_model_clock_source_t source() const { return source_.load(std::memory_order_acquire); }

  void set(jx_model_clock_source_t source, uint64_t now);
  /// False if the clock does not stand still.
  bool advance(uint64_t nanoseconds);
  /// A packet with this time stamp came in: moves a clock that runs with captures, never back.
  void observe(uint64_t stamp);
  /// Where a clock that runs with captures and was set to 0 began: its first time stamp; else 0.
  /// What happened before, at the time 0, happened then.
  uint64_t began() const { return began_.load(std::memory_order_acquire); }

  /// The listener stays until it is taken away, which waits until it is not being told.
  void add(ClockListener* listener);
  void remove(ClockListener* listener);
  /// After a listener has set its alarm, without a lock that it takes when it is told. Nobody tells
  /// when the machine's time comes: the listener waits for that by itself.
  void alarmSet(uint64_t alarm);

 private:
  void tellDue(bool all);

  std::atomic<jx_model_clock_source_t> source_{JX_MODEL_CLOCK_REAL};
  std::atomic<uint64_t> time_{0};  // where the source is not the machine
  std::atomic<uint64_t> began_{0};
  std::atomic<uint64_t> next_alarm_{
      ClockListener::kNever};  // not after the first of the listeners'
  Mutex mutex_;
  std::vector<ClockListener*> listeners_ ABSL_GUARDED_BY(mutex_);
};

}  // namespace jxmodel
