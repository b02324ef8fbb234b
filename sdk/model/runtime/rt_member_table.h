// Action-data tables: members, each an id with an action.
#pragma once

#include "model/runtime/rt_table.h"

namespace jxmodel {

class RtMemberTable final : public RtTable {
 public:
  RtMemberTable(const DeviceCore& device, const RtInfo& info, TableState& state)
      : RtTable(device, info, state, {{}, true}) {}

 private:
  uint32_t usage() const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return members().count();
  }
  uint32_t slotOf(const RtTableKey& key) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return members().findId(key.number());
  }
  uint32_t handleOf(uint32_t slot) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return members().handleOf(slot);
  }
  uint32_t usedFrom(uint64_t slot) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return firstUsed(members(), slot);
  }
  void readKey(uint32_t slot, RtTableKey* key) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  void readData(uint32_t slot, uint64_t flags, RtTableData* data) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  jx_status_t add(const UpdateReporter& reporter, const RtTableKey& key,
                  const RtTableData& data) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t modify(const UpdateReporter& reporter, uint32_t slot,
                     const RtTableData& data) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t remove(const UpdateReporter& reporter, uint32_t slot) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  ActionDataTable& members() const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return *state().members;
  }
};

}  // namespace jxmodel
