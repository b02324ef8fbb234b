// Finds out whether the agent loop takes requests, by sending it some.
//
// The probe is a partner of the agent like any other: it registers, under process id 0, which no
// partner has, and sends barriers, one at a time. Its reverse path stays inside the process. A
// barrier that comes back has gone through the socket that partners use and through the loop. It
// waits for at most one request of each other partner, since the loop takes from all in turn.
#pragma once

#include <chrono>
#include <cstdint>

namespace slice_agent {

/// Sockets of the messaging library that a probe takes, the loop's end of its reverse path
/// included.
inline constexpr int kProbeSockets = 3;

/// Used by one thread at a time.
class LoopProbe {
 public:
  /// Registers with the loop, which has to serve already. Throws StartError.
  LoopProbe();
  LoopProbe(const LoopProbe&) = delete;
  LoopProbe& operator=(const LoopProbe&) = delete;
  // Never destroyed: the loop has no way to end a registration.

  /// Whether the loop answers within about `patience`. Time in which the process is stopped does
  /// not count. After an answer that was missed the next call waits for that one.
  bool answersWithin(std::chrono::milliseconds patience);
  /// Waits, and takes from the reverse path what comes meanwhile.
  void rest(std::chrono::milliseconds time);

 private:
  using Clock = std::chrono::steady_clock;

  bool ask();
  bool answeredWithin(std::chrono::milliseconds time);
  void takeUntil(Clock::time_point end);

  int requests_ = -1;
  int replies_ = -1;
  uint64_t asked_ = 0;    // time stamp of the last barrier
  bool waiting_ = false;  // for its answer
};

/// Longest time from a standstill of the loop until the control server says so: one interval
/// between two barriers, and the patience for an answer.
inline constexpr std::chrono::seconds kProbeInterval{1};
inline constexpr std::chrono::seconds kProbePatience{3};

/// Starts a thread that tells the control server, for as long as the process lives, whether the
/// loop takes requests. Returns when the loop has answered once, or after kProbePatience. Throws
/// StartError.
void startLoopProbe();

}  // namespace slice_agent
