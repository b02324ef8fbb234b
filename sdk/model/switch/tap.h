// What somebody sees of the packets at one port: copies, queued between the thread that moves
// packets and the one that looks.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "model/base/mutex.h"
#include "model/port/packet_buffer.h"

namespace jxmodel {

enum class TapDirection : uint8_t { kBoth, kIn, kOut };

/// Thread safety: any thread may call anything.
class Tap {
 public:
  struct Seen {
    PacketBuffer packet;
    bool leaving = false;  // as sent, after the tables; otherwise as received, before them
  };
  struct Harvest {
    std::vector<Seen> packets;
    uint64_t lost = 0;   // in all: packets that found the queue full
    bool ended = false;  // no packet will follow these
  };

  Tap(uint32_t port, TapDirection direction) : port_(port), direction_(direction) {}

  bool wants(uint32_t port, bool leaving) const {
    return port == port_ &&
           (direction_ == TapDirection::kBoth || leaving == (direction_ == TapDirection::kOut));
  }
  /// Never waits for who looks: a packet that finds the queue full is counted as lost.
  void put(const PacketBuffer& packet, bool leaving);
  void end();

  /// Takes what has gathered; waits up to `patience` for a first packet, or for the end.
  Harvest take(std::chrono::milliseconds patience);

 private:
  static constexpr size_t kMaxBytes = 64 << 20;  // in the queue

  const uint32_t port_;
  const TapDirection direction_;
  Mutex mutex_;
  Condition changed_;
  std::vector<Seen> queue_ ABSL_GUARDED_BY(mutex_);
  size_t bytes_ ABSL_GUARDED_BY(mutex_) = 0;
  uint64_t lost_ ABSL_GUARDED_BY(mutex_) = 0;
  bool ended_ ABSL_GUARDED_BY(mutex_) = false;
};

}  // namespace jxmodel
