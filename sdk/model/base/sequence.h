// Tells readers of a structure whether it changed while they read: a counter that is odd during a
// change.
//
// One writer at a time; any number of readers. All that is changed between the ends of a Change is
// stored with release order, and all that read() reads of it is loaded with acquire order. Then who
// reads anything of a change also sees the counter that the change began with, and no fences are
// needed.
#pragma once

#include <atomic>
#include <cstdint>

namespace jxmodel {

class Sequence {
 public:
  /// One change. A change within a change is part of it.
  class Change {
   public:
    explicit Change(Sequence& sequence) : sequence_(sequence), begun_(sequence.current()) {
      if (outermost()) sequence_.value_.store(begun_ + 1, std::memory_order_relaxed);
    }
    ~Change() {
      if (outermost()) sequence_.value_.store(begun_ + 2, std::memory_order_release);
    }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

   private:
    bool outermost() const { return (begun_ & 1) == 0; }
    Sequence& sequence_;
    uint64_t begun_;
  };

  /// Calls `body` until it has run while nothing changed, a few times at most. False if it never
  /// did: what it read may be of two states.
  template <typename Body>
  bool read(Body&& body) const {
    constexpr int kAttempts = 4;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
      const uint64_t begun = value_.load(std::memory_order_acquire);
      if ((begun & 1) != 0) continue;
      body();
      if (current() == begun) return true;
    }
    return false;
  }

 private:
  uint64_t current() const { return value_.load(std::memory_order_relaxed); }
  std::atomic<uint64_t> value_{0};
};

}  // namespace jxmodel
