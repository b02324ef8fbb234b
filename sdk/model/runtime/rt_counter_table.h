// Counter tables: as many entries as the table has, there from the start.
#pragma once

#include "model/runtime/rt_table.h"

namespace jxmodel {

class RtCounterTable final : public RtTable {
 public:
  RtCounterTable(const DeviceCore& device, const RtInfo& info, TableState& state);

 private:
  /// Packets go on counting anyway.
  bool readsWithoutLock() const override { return true; }
  bool hasWrites() const override { return false; }
  uint32_t usage() const override { return description().size; }
  uint32_t slotOf(const RtTableKey& key) const override;
  uint32_t handleOf(uint32_t slot) const override { return slot; }
  uint32_t usedFrom(uint64_t slot) const override;
  void readKey(uint32_t slot, RtTableKey* key) const override { key->assignNumber(slot); }
  void readData(uint32_t slot, uint64_t flags, RtTableData* data) const override;

  void startSync(const RtTableOperations::CounterSync& sync,
                 std::chrono::milliseconds delay) const override;
};

}  // namespace jxmodel
