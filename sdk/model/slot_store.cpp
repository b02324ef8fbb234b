#include "model/slot_store.h"

namespace jxmodel {
namespace {

constexpr size_t kChunkBytes = size_t{64} * 1024;

uint32_t chunkShift(size_t record_bytes) {
  uint32_t shift = 0;
  while ((record_bytes << (shift + 1)) <= kChunkBytes) ++shift;
  return shift;
}

}  // namespace

SlotStore::SlotStore(size_t record_bytes, uint32_t capacity)
    : record_bytes_((record_bytes + 7) & ~size_t{7}),
      capacity_(capacity),
      chunk_shift_(chunkShift(record_bytes_)),
      chunk_mask_((1u << chunk_shift_) - 1) {}

uint32_t SlotStore::peek() {
  if (free_ != kNoSlot) return free_;
  if (end_ == capacity_) return kNoSlot;
  if ((end_ >> chunk_shift_) == chunks_.size()) {
    chunks_.push_back(std::make_unique<uint8_t[]>(record_bytes_ << chunk_shift_));
  }
  return end_;
}

void SlotStore::take(uint32_t slot, uint32_t handle) {
  Record& taken = record(slot);
  if (slot == end_) {
    ++end_;
  } else {
    free_ = taken.next_free;
  }
  taken.handle = handle;
  ++count_;
}

void SlotStore::release(uint32_t slot) {
  Record& freed = record(slot);
  freed.handle = 0;
  freed.next_free = free_;
  free_ = slot;
  --count_;
}

}  // namespace jxmodel
