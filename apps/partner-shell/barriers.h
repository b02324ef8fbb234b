// Barriers: sent and waited for, one at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "partner.h"

namespace jexapps {

class Barriers {
 public:
  /// `partner` has to outlive this.
  explicit Barriers(Partner& partner) : partner_(partner) {}

  enum class Kind : uint8_t { kSingle, kDouble };
  enum class End : uint8_t { kAnswered, kTimedOut, kGivenUp };
  using Time = std::chrono::duration<double, std::milli>;

  struct Outcome {
    End end = End::kAnswered;
    uint64_t timestamp = 0;
    Time waited{0};  // from sending to the answer: the round trip
  };

  /// Sends a barrier that syncs `counters` (null: none) and waits for its answer, as long as
  /// `go_on` says so, which is asked now and then with the time that has passed.
  Outcome run(Kind kind, PartnerCounterTableHandle counters, std::chrono::milliseconds timeout,
              const std::function<bool(Time waited)>& go_on);

  /// Whether the agent may still have an answer to give: the last barrier has not been answered.
  bool anyPending() const { return pending_; }

 private:
  void awaitUnusedTimestamp();

  Partner& partner_;
  uint64_t last_ = 0;  // the latest time stamp that was sent
  bool pending_ = false;
};

}  // namespace jexapps
