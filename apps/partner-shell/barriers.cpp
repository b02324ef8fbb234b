#include "barriers.h"

#include <thread>

namespace jexapps {
namespace {

using Clock = std::chrono::steady_clock;

// Most answers come at once; who waits longer is not in a hurry.
constexpr std::chrono::microseconds kFirstPause{50};
constexpr std::chrono::microseconds kLongPause{1000};
constexpr std::chrono::milliseconds kAnsweredAtOnce{20};

}  // namespace

// A barrier is named by its millisecond. Two in one would share their name, and the answer to the
// first would pass for the second's.
void Barriers::awaitUnusedTimestamp() {
  while (partner_.now() <= last_) std::this_thread::sleep_for(kFirstPause);
}

Barriers::Outcome Barriers::run(Kind kind, PartnerCounterTableHandle counters,
                                std::chrono::milliseconds timeout,
                                const std::function<bool(Time waited)>& go_on) {
  awaitUnusedTimestamp();
  Outcome outcome;
  const auto begin = Clock::now();
  last_ =
      kind == Kind::kDouble ? partner_.sendDoubleBarrier(counters) : partner_.sendBarrier(counters);
  outcome.timestamp = last_;
  for (;;) {
    pending_ = partner_.lastBarrier() != last_;
    outcome.waited = Clock::now() - begin;
    if (!pending_) return outcome;
    if (!go_on(outcome.waited)) outcome.end = End::kGivenUp;
    if (outcome.waited >= timeout) outcome.end = End::kTimedOut;
    if (outcome.end != End::kAnswered) return outcome;
    std::this_thread::sleep_for(outcome.waited < kAnsweredAtOnce ? kFirstPause : kLongPause);
  }
}

}  // namespace jexapps
