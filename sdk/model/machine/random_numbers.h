// Random numbers that a seed repeats.
#pragma once

#include <atomic>
#include <cstdint>

namespace jxmodel {

/// Thread safety: any thread may call anything.
class RandomNumbers {
 public:
  RandomNumbers() = default;
  RandomNumbers(const RandomNumbers& other) : state_(other.state_.load()) {}

  void seed(uint64_t seed) { state_.store(seed, std::memory_order_relaxed); }

  /// Any 64-bit number. The state is a count, which is scrambled; so threads need no lock.
  uint64_t next() {
    uint64_t bits = state_.fetch_add(kStep, std::memory_order_relaxed) + kStep;
    bits = (bits ^ bits >> 30) * 0xBF58'476D'1CE4'E5B9;
    bits = (bits ^ bits >> 27) * 0x94D0'49BB'1331'11EB;
    return bits ^ bits >> 31;
  }
  /// A number from 0 to `last`, each as likely as any other.
  uint64_t upTo(uint64_t last) {
    if (last == UINT64_MAX) return next();
    const uint64_t count = last + 1;
    const uint64_t unfair = -count % count;  // numbers below it would favour the lowest
    for (;;) {
      const uint64_t number = next();
      if (number >= unfair) return number % count;
    }
  }

 private:
  static constexpr uint64_t kStep = 0x9E37'79B9'7F4A'7C15;
  std::atomic<uint64_t> state_{1};
};

}  // namespace jxmodel
