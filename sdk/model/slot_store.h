// Storage of one table's entries: records of one size in chunks, named by slots that are dense from
// 0 up. A slot keeps its record's address; the slot that was freed last is used next.
//
// Not synchronised: the device's mutex is held.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace jxmodel {

/// No slot: of a reference that is not there, of a table that is full.
inline constexpr uint32_t kNoSlot = 0xFFFFFFFF;

/// What every record begins with.
struct Record {
  uint32_t handle;     // 0 = the slot is free
  uint32_t next_free;  // of a free slot
};

class SlotStore {
 public:
  /// Records of `record_bytes`, at most `capacity` of them. Memory follows use.
  SlotStore(size_t record_bytes, uint32_t capacity);

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
    return chunks_[slot >> chunk_shift_].get() + (slot & chunk_mask_) * record_bytes_;
  }
  const uint8_t* at(uint32_t slot) const { return const_cast<SlotStore*>(this)->at(slot); }
  Record& record(uint32_t slot) { return *reinterpret_cast<Record*>(at(slot)); }
  const Record& record(uint32_t slot) const { return *reinterpret_cast<const Record*>(at(slot)); }

 private:
  size_t record_bytes_;  // a multiple of 8
  uint32_t capacity_;
  uint32_t chunk_shift_;  // log2 of the slots of a chunk
  uint32_t chunk_mask_;
  uint32_t count_ = 0;
  uint32_t end_ = 0;
  uint32_t free_ = kNoSlot;  // head of the list of free slots below end_
  std::vector<std::unique_ptr<uint8_t[]>> chunks_;
};

}  // namespace jxmodel
