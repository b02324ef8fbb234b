#include "model/tables/slot_store.h"

namespace jxmodel {
namespace {

constexpr size_t kChunkBytes = size_t{64} * 1024;

uint32_t chunkShift(size_t record_bytes) {
  uint32_t shift = 0;
  while ((record_bytes << (shift + 1)) <= kChunkBytes) ++shift;
  return shift;
}

}  // namespace

SlotStore::SlotStore(size_t record_bytes, uint32_t capacity, Reclaimer* reclaimer)
    : record_bytes_((record_bytes + 7) & ~size_t{7}),
      capacity_(capacity),
      reclaimer_(reclaimer),
      chunk_shift_(chunkShift(record_bytes_)),
      chunk_mask_((1u << chunk_shift_) - 1),
      chunks_(reclaimer) {}

SlotStore::~SlotStore() {
  for (size_t i = 0; i < chunks_.size(); ++i) delete[] chunks_.get(i);
}

uint32_t SlotStore::peek() {
  if (count_ == capacity_) return kNoSlot;
  if (free_ != kNoSlot) return free_;
  if ((end_ >> chunk_shift_) == chunks_.size()) {
    chunks_.append(new uint8_t[record_bytes_ << chunk_shift_]());
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
  taken.handle.store(handle, std::memory_order_release);
  ++count_;
}

void SlotStore::release(uint32_t slot) {
  record(slot).handle.store(0, std::memory_order_release);
  --count_;
  const auto put_back = [](void* store, uint64_t value) {
    static_cast<SlotStore*>(store)->putBack(static_cast<uint32_t>(value));
  };
  defer(reclaimer_, put_back, this, slot);
}

void SlotStore::putBack(uint32_t slot) {
  record(slot).next_free = free_;
  free_ = slot;
}

}  // namespace jxmodel
