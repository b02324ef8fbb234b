// The clock of the model; see jxmodel/clock.h. Readers take no lock: they are packets.
#pragma once

#include <atomic>
#include <cstdint>

#include "jxmodel/clock.h"

namespace jxmodel {

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

 private:
  std::atomic<jx_model_clock_source_t> source_{JX_MODEL_CLOCK_REAL};
  std::atomic<uint64_t> time_{0};  // where the source is not the machine
};

}  // namespace jxmodel
