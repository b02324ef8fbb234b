#include "model/switch/tap.h"

namespace jxmodel {

void Tap::put(const PacketBuffer& packet, bool leaving) {
  const MutexLock lock(mutex_);
  const size_t cost = sizeof(Seen) + PacketBuffer::kHeadroom + packet.size();
  if (bytes_ + cost > kMaxBytes) {
    ++lost_;
    return;
  }
  bytes_ += cost;
  queue_.push_back({packet.copy(), leaving});
  changed_.notifyOne();
}

void Tap::end() {
  const MutexLock lock(mutex_);
  ended_ = true;
  changed_.notifyAll();
}

Tap::Harvest Tap::take(std::chrono::milliseconds patience) {
  const MutexLock lock(mutex_);
  changed_.waitFor(mutex_, patience, [this]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_) {
    return ended_ || !queue_.empty();
  });
  Harvest harvest;
  harvest.packets.swap(queue_);
  harvest.lost = lost_;
  harvest.ended = ended_;
  bytes_ = 0;
  return harvest;
}

}  // namespace jxmodel
