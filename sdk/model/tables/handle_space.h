// The handles of one table's entries (or groups), and the way back to their slots.
//
// A virtual device gives handles out itself, from a base on, so that a handle is its slot plus
// the base. On a physical device they come from outside and are looked up.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <optional>

#include "model/tables/slot_store.h"

namespace jxmodel {

class HandleSpace {
 public:
  /// `base`: the first handle given out; empty where handles come from outside.
  explicit HandleSpace(std::optional<uint32_t> base) : base_(base) {}

  bool givesOut() const { return base_.has_value(); }
  /// The handle of a slot, where handles are given out.
  uint32_t handleOf(uint32_t slot) const { return *base_ + slot; }

  /// Ties a handle from outside to a slot; false if it is tied already.
  bool bind(uint32_t handle, uint32_t slot) {
    return base_ || slots_.try_emplace(handle, slot).second;
  }
  void unbind(uint32_t handle) {
    if (!base_) slots_.erase(handle);
  }
  /// The slot that a handle may have, kNoSlot if it is none's. Where handles are given out, the
  /// slot may be free or out of range.
  uint32_t slotOf(uint32_t handle) const {
    if (base_) return handle - *base_;
    const auto found = slots_.find(handle);
    return found == slots_.end() ? kNoSlot : found->second;
  }

 private:
  std::optional<uint32_t> base_;
  absl::flat_hash_map<uint32_t, uint32_t> slots_;
};

}  // namespace jxmodel
