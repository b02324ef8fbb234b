#include "model/switch/tap.h"

namespace jxmodel {

void Tap::put(const PacketBuffer& packet, bool leaving) {
  const std::lock_guard lock(mutex_);
  const size_t cost = sizeof(Seen) + PacketBuffer::kHeadroom + packet.size();
  if (bytes_ + cost > kMaxBytes) {
    ++lost_;
    return;
  }
  bytes_ += cost;
  queue_.push_back({packet.copy(), leaving});
  changed_.notify_one();
}

void Tap::end() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

Tap::Harvest Tap::take(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [this] { return ended_ || !queue_.empty(); });
  Harvest harvest;
  harvest.packets.swap(queue_);
  harvest.lost = lost_;
  harvest.ended = ended_;
  bytes_ = 0;
  return harvest;
}

}  // namespace jxmodel
