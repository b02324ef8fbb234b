// Waiting for a condition, with a deadline: tests never sleep for a time that "should be enough".
#pragma once

#include <sched.h>

#include <chrono>
#include <thread>

namespace jextest {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

/// The longest that anything awaited may take before the test gives up. It decides nothing but when
/// a hang is called a hang, so it is longer than a busy machine needs for anything, and shorter
/// than the time limit of ctest, so that a test can still say what it waits for.
inline constexpr std::chrono::seconds kPatience{240};

/// Whether `condition` came true before the deadline. It is asked at least once.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds patience = kPatience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace jextest
