#include "model/tables/action_data_table.h"

#include <algorithm>

namespace jxmodel {

uint32_t maxParamBytes(const Program& program, const Table& table) {
  uint32_t most = 0;
  for (const uint32_t index : table.actions) {
    most = std::max(most, program.actions[index].param_bytes);
  }
  return most;
}

ActionDataTable::ActionDataTable(const Program&, const Table& table,
                                 std::optional<uint32_t> handle_base, Reclaimer* reclaimer)
    : reclaimer_(reclaimer), store_(sizeof(Member), table.size, reclaimer), handles_(handle_base) {}

ActionDataTable::~ActionDataTable() {
  for (uint32_t slot = 0; slot < end(); ++slot) {
    if (used(slot)) ActionRecord::destroy(member(slot).action.load(std::memory_order_relaxed));
  }
}

jx_status_t ActionDataTable::add(uint32_t handle, uint32_t member_id, const BoundAction& action,
                                 uint32_t* slot) {
  if (handles_.givesOut() && ids_.find(member_id) != kNoSlot) return JX_ALREADY_EXISTS;
  if (!handles_.givesOut() && handles_.slotOf(handle) != kNoSlot) return JX_ALREADY_EXISTS;
  const uint32_t free = store_.peek();
  if (free == kNoSlot) return JX_NOT_ENOUGH_SPACE;
  const uint32_t given = handles_.givesOut() ? handles_.handleOf(free) : handle;
  handles_.bind(given, free);
  ids_.add(member_id, free);
  store_.take(free, given);
  member(free).id = member_id;
  member(free).references = 0;
  member(free).action.store(ActionRecord::make(action), std::memory_order_release);
  *slot = free;
  return JX_SUCCESS;
}

void ActionDataTable::modify(uint32_t slot, const BoundAction& action) {
  const ActionRecord* const made = ActionRecord::make(action);
  ActionRecord::retire(reclaimer_, member(slot).action.exchange(made, std::memory_order_acq_rel));
}

jx_status_t ActionDataTable::remove(uint32_t slot) {
  if (member(slot).references != 0) return JX_ACTION_DATA_REFERENCED;
  handles_.unbind(handleOf(slot));
  ids_.remove(idOf(slot), slot);
  // Packets that found the member before see what it was.
  ActionRecord::retire(reclaimer_, member(slot).action.load(std::memory_order_relaxed));
  store_.release(slot);
  return JX_SUCCESS;
}

uint32_t ActionDataTable::findHandle(uint32_t handle) const {
  const uint32_t slot = handles_.slotOf(handle);
  return store_.used(slot) ? slot : kNoSlot;
}

}  // namespace jxmodel
