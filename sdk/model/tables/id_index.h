// The writers' own numbers of members and groups, and their way to slots. Several slots may have
// one number, when writers share a table.
#pragma once

#include <cstdint>
#include <set>
#include <utility>

#include "model/tables/slot_store.h"

namespace jxmodel {

class IdIndex {
 public:
  void add(uint32_t id, uint32_t slot) { slots_.emplace(id, slot); }
  void remove(uint32_t id, uint32_t slot) { slots_.erase({id, slot}); }
  /// The lowest slot with this number, kNoSlot if there is none.
  uint32_t find(uint32_t id) const {
    const auto found = slots_.lower_bound({id, 0});
    return found == slots_.end() || found->first != id ? kNoSlot : found->second;
  }

 private:
  std::set<std::pair<uint32_t, uint32_t>> slots_;
};

}  // namespace jxmodel
