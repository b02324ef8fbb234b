#include "model/runtime/rt_member_table.h"

namespace jxmodel {

void RtMemberTable::readKey(uint32_t slot, RtTableKey* key) const {
  key->assignNumber(members().idOf(slot));
}

void RtMemberTable::readData(uint32_t slot, uint64_t, RtTableData* data) const {
  const BoundAction action = members().actionOf(slot);
  data->assignAction(action.action, action.params);
}

jx_status_t RtMemberTable::add(const UpdateReporter& reporter, const RtTableKey& key,
                               const RtTableData& data) const {
  BoundAction action;
  jx_status_t status = boundActionOf(data, &action);
  if (status != JX_SUCCESS) return status;
  uint32_t slot = kNoSlot;
  status = members().add(0, key.number(), action, &slot);
  if (status == JX_SUCCESS) reporter.memberAdded(slot);
  return status;
}

jx_status_t RtMemberTable::modify(const UpdateReporter& reporter, uint32_t slot,
                                  const RtTableData& data) const {
  BoundAction action;
  const jx_status_t status = boundActionOf(data, &action);
  if (status != JX_SUCCESS) return status;
  members().modify(slot, action);
  reporter.memberModified(slot);
  return JX_SUCCESS;
}

jx_status_t RtMemberTable::remove(const UpdateReporter& reporter, uint32_t slot) const {
  const uint32_t handle = members().handleOf(slot);
  const jx_status_t status = members().remove(slot);
  if (status == JX_SUCCESS) reporter.memberDeleted(handle);
  return status;
}

}  // namespace jxmodel
