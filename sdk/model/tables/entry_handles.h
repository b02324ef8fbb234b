// The handles of one match table's entries. Where handles come from outside, and in most tables of
// a virtual device, this is a HandleSpace: a handle is its slot plus the base.
//
// Two kinds of table need more where handles are given out:
//  1. A table with initial entries. Both devices make those by themselves, so they have the handles
//     1, 2, 3 ... whatever the base is. A handle of these is never given out: those that are begin
//     at the base plus the number of initial entries. Partners with any bases thus meet neither an
//     initial entry nor, where one was deleted, each other under its handle.
//  2. A table whose hits are counted per entry. The handles of its entries, less 1, differ modulo
//     the table's size as long as the base is 1, or there are no initial entries: each entry has a
//     counter of its own (see DirectCounters). The default entry, which is not counted, has a
//     handle beyond those of all entries.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "model/program/program.h"
#include "model/tables/handle_space.h"

namespace jxmodel {

class EntryHandles {
 public:
  /// `base`: as HandleSpace.
  EntryHandles(const Table& table, std::optional<uint32_t> base)
      : base_(base),
        initial_(static_cast<uint32_t>(table.initial_entries.size())),
        size_(table.size),
        numbered_(base && (initial_ != 0 || table.direct_counter)),
        space_(numbered_ ? std::nullopt : base),
        next_(initial_) {}

  /// The handle of an initial entry, by its position.
  static uint32_t ofInitial(size_t position) { return static_cast<uint32_t>(position) + 1; }

  bool givesOut() const { return base_.has_value(); }
  /// The handle that an entry at `slot` gets, where handles are given out; bind() comes next.
  uint32_t next(uint32_t slot) const {
    if (!numbered_) return space_.handleOf(slot);
    return free_.empty() ? *base_ + next_ : free_.back();
  }
  /// The same for the default entry.
  uint32_t nextDefault(uint32_t slot) const {
    return numbered_ ? *base_ + size_ + initial_ : space_.handleOf(slot);
  }

  /// Ties a handle to a slot; false if it is tied already.
  bool bind(uint32_t handle, uint32_t slot) {
    if (!space_.bind(handle, slot)) return false;
    if (numbered_ && handle > initial_ && handle != nextDefault(slot)) take();
    return true;
  }
  void unbind(uint32_t handle) {
    space_.unbind(handle);
    if (!numbered_ || handle == nextDefault(0)) return;
    // The room of an initial entry goes on under another handle with the same counter.
    free_.push_back(handle > initial_ ? handle : *base_ + size_ + handle - ofInitial(0));
  }
  /// As HandleSpace.
  uint32_t slotOf(uint32_t handle) const { return space_.slotOf(handle); }

 private:
  void take() {
    if (free_.empty()) {
      ++next_;
    } else {
      free_.pop_back();
    }
  }

  std::optional<uint32_t> base_;
  uint32_t initial_;
  uint32_t size_;
  bool numbered_;  // one of the two kinds: handles are given out by number, not by slot
  HandleSpace space_;
  uint32_t next_;               // the number of the next new handle
  std::vector<uint32_t> free_;  // handles that were given back
};

}  // namespace jxmodel
