// Storage of one table's entries: records of one size in chunks, named by slots that are dense from
// 0 up. A slot keeps its record's address.
//
// Thread safety: the device's mutex is held over all calls but at() and record(), which readers in
// a ReadSection may call for slots that they found published. With a reclaimer a freed slot is used
// again after a grace period, until then its record stays as it is; without one, the slot that was
// freed last is used next.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "model/base/growing_array.h"
#include "model/base/read_copy_update.h"

namespace jxmodel {

/// No slot: of a reference that is not there, of a table that is full.
inline constexpr uint32_t kNoSlot = 0xFFFFFFFF;

/// What every record begins with.
struct Record {
  std::atomic<uint32_t> handle;  // 0 = the slot is free, or will be
  uint32_t next_free;            // of a free slot
};

class SlotStore {
 public:
  /// Records of `record_bytes`, at most `capacity` of them. Memory follows use.
  SlotStore(size_t record_bytes, uint32_t capacity, Reclaimer* reclaimer = nullptr);
  ~SlotStore();

  /// The slot that the next take() takes, kNoSlot if all are taken. Its record may be written
  /// already, all but the Record part: giving up after peek() costs nothing.
  uint32_t peek();
  /// Takes the slot that peek() gave, under a handle that is not 0.
  void take(uint32_t slot, uint32_t handle);
  void release(uint32_t slot);

  bool used(uint32_t slot) const { return slot < end_ && record(slot).handle != 0; }
  uint32_t count() const { return count_; }
  /// All used slots lie below.
  uint32_t end() const { return end_; }

  uint8_t* at(uint32_t slot) {
    return chunks_.get(slot >> chunk_shift_) + (slot & chunk_mask_) * record_bytes_;
  }
  const uint8_t* at(uint32_t slot) const { return const_cast<SlotStore*>(this)->at(slot); }
  Record& record(uint32_t slot) { return *reinterpret_cast<Record*>(at(slot)); }
  const Record& record(uint32_t slot) const { return *reinterpret_cast<const Record*>(at(slot)); }

 private:
  void putBack(uint32_t slot);

  size_t record_bytes_;  // a multiple of 8
  uint32_t capacity_;
  Reclaimer* reclaimer_;
  uint32_t chunk_shift_;  // log2 of the slots of a chunk
  uint32_t chunk_mask_;
  uint32_t count_ = 0;
  uint32_t end_ = 0;         // exceeds the capacity by freed slots that are not to be used yet
  uint32_t free_ = kNoSlot;  // head of the list of free slots below end_
  GrowingArray<uint8_t> chunks_;
};

}  // namespace jxmodel
