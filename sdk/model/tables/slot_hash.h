// Slots by a 32-bit hash of what they hold: open addressing in cells of 8 bytes, a hash and a slot.
// Who uses it says what is equal.
//
// One writer. Readers stand in a ReadSection; erasing and growing move cells, so a reader that may
// meet a writer checks a Sequence afterwards.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "model/base/read_copy_update.h"
#include "model/tables/slot_store.h"

namespace jxmodel {

class SlotHash {
 public:
  explicit SlotHash(Reclaimer* reclaimer);
  ~SlotHash();
  SlotHash(const SlotHash&) = delete;
  SlotHash& operator=(const SlotHash&) = delete;

  /// The slot with this hash that `same` accepts, kNoSlot if there is none.
  template <typename Same>
  uint32_t find(uint32_t hash, Same&& same) const {
    const Cells& cells = *cells_.load(std::memory_order_acquire);
    // A table that does not change has an empty cell; one that changes may seem full.
    for (uint32_t at = cells.home(hash), left = cells.count(); left-- > 0; at = cells.next(at)) {
      const uint64_t cell = cells.at[at].load(std::memory_order_acquire);
      if (cell == kEmpty) return kNoSlot;
      if (hashOf(cell) == hash && same(slotOf(cell))) return slotOf(cell);
    }
    return kNoSlot;
  }

  /// Fetches what find() will look at first.
  void prefetch(uint32_t hash) const {
    const Cells& cells = *cells_.load(std::memory_order_acquire);
    __builtin_prefetch(&cells.at[cells.home(hash)]);
  }

  void insert(uint32_t hash, uint32_t slot);
  /// These are there: `slot` under `hash`.
  void replace(uint32_t hash, uint32_t slot, uint32_t by);
  void erase(uint32_t hash, uint32_t slot);

 private:
  static constexpr uint64_t kEmpty = ~uint64_t{0};  // the slot of no cell is kNoSlot

  struct Cells {
    explicit Cells(uint32_t log2_count);
    uint32_t count() const { return mask + 1; }
    uint32_t home(uint32_t hash) const { return hash >> shift; }
    uint32_t next(uint32_t place) const { return (place + 1) & mask; }

    uint32_t shift;  // home cells are the first bits of the hash
    uint32_t mask;
    std::unique_ptr<std::atomic<uint64_t>[]> at;
  };

  static uint64_t cellOf(uint32_t hash, uint32_t slot) { return uint64_t{hash} << 32 | slot; }
  static uint32_t hashOf(uint64_t cell) { return static_cast<uint32_t>(cell >> 32); }
  static uint32_t slotOf(uint64_t cell) { return static_cast<uint32_t>(cell); }

  static void put(Cells& cells, uint64_t cell);
  static uint32_t placeOf(const Cells& cells, uint64_t cell);
  void grow();
  Cells& own() { return *cells_.load(std::memory_order_relaxed); }

  Reclaimer* reclaimer_;
  std::atomic<Cells*> cells_;
  uint32_t used_ = 0;
};

}  // namespace jxmodel
