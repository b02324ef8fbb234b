#include "model/action_data_table.h"

#include <algorithm>
#include <cstring>

namespace jxmodel {

uint32_t maxParamBytes(const Program& program, const Table& table) {
  uint32_t most = 0;
  for (const uint32_t index : table.actions) {
    most = std::max(most, program.actions[index].param_bytes);
  }
  return most;
}

ActionDataTable::ActionDataTable(const Program& program, const Table& table,
                                 std::optional<uint32_t> handle_base)
    : store_(sizeof(Member) + maxParamBytes(program, table), table.size), handles_(handle_base) {}

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
  modify(free, action);
  *slot = free;
  return JX_SUCCESS;
}

void ActionDataTable::modify(uint32_t slot, const BoundAction& action) {
  member(slot).action = action.action;
  if (action.action->param_bytes == 0) return;
  std::memcpy(store_.at(slot) + sizeof(Member), action.params, action.action->param_bytes);
}

jx_status_t ActionDataTable::remove(uint32_t slot) {
  if (member(slot).references != 0) return JX_ACTION_DATA_REFERENCED;
  handles_.unbind(handleOf(slot));
  ids_.remove(idOf(slot), slot);
  store_.release(slot);
  return JX_SUCCESS;
}

uint32_t ActionDataTable::findHandle(uint32_t handle) const {
  const uint32_t slot = handles_.slotOf(handle);
  return store_.used(slot) ? slot : kNoSlot;
}

}  // namespace jxmodel
