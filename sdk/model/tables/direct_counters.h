// Which counter of a counter table counts the hits of an entry: the one at its handle less 1,
// modulo the number of counters. The first entry that has an index keeps it to its end; one whose
// index is taken is not counted. So an index counts one entry at a time, and partners that share
// the table are all counted where their handles fall on different indices.
//
// Thread safety: the device's mutex is held over all calls.
#pragma once

#include <cstdint>
#include <vector>

#include "model/tables/counter_table.h"
#include "model/tables/slot_store.h"

namespace jxmodel {

class DirectCounters {
 public:
  /// `counters` has at least one pair and outlives this.
  explicit DirectCounters(CounterTable& counters)
      : counters_(counters), owners_(counters.size(), 0) {}

  /// Takes the index of a new entry and sets its pair to 0; kNoSlot if the index is taken.
  uint32_t take(uint32_t handle) {
    const uint32_t index = (handle - 1) % counters_.size();
    if (owners_[index] != 0) return kNoSlot;
    owners_[index] = handle;
    counters_.clear(index);
    return index;
  }
  /// Gives back what take() gave.
  void giveBack(uint32_t index) {
    if (index != kNoSlot) owners_[index] = 0;
  }

 private:
  CounterTable& counters_;
  std::vector<uint32_t> owners_;  // handles; 0: none
};

}  // namespace jxmodel
