// Placement operations on the tables of physical devices. What comes in is a partner's word: it
// is held against the description and the table's state before anything changes.
#include <cstring>
#include <vector>

#include "model/placement/plcmt_info.h"

namespace jxmodel {
namespace {

using Info = pipe_plcmt_info;

bool paramsWithinWidths(const Action& action, const uint8_t* params) {
  for (const Param& param : action.params) {
    if (!withinWidth(params + param.offset, param.width)) return false;
  }
  return true;
}

/// The action of the data, bound to the data's parameters; `owner` is the table whose action it is.
jx_status_t boundAction(const TableState& owner, const Placement& placement, BoundAction* bound) {
  const Action* const action = owner.actionById(placement.header.action_id);
  if (action == nullptr || placement.header.param_bytes != action->param_bytes ||
      !paramsWithinWidths(*action, placement.params)) {
    return JX_INVALID_ARGUMENTS;
  }
  *bound = {action, placement.params};
  return JX_SUCCESS;
}

jx_status_t checkTable(const TableState& state, const Placement& placement) {
  const bool same = placement.header.table_handle == state.table->handle;
  return same ? JX_SUCCESS : JX_INVALID_ARGUMENTS;
}

/// Finds what an entry of a table behind which others stand refers to: a member or a group.
jx_status_t referenceOf(const TableState& state, const Info& info, MatchResult* result) {
  const PlacementHeader& header = info.placement.header;
  const bool one = (info.adt_ent_hdl != 0) != (info.sel_grp_hdl != 0);
  if (!one || header.action_id != 0 || header.param_bytes != 0) return JX_INVALID_ARGUMENTS;
  if (info.adt_ent_hdl != 0) {
    result->kind = MatchResult::Kind::kMember;
    result->slot = state.member_state->members->findHandle(info.adt_ent_hdl);
  } else {
    if (state.group_state == nullptr) return JX_INVALID_ARGUMENTS;
    result->kind = MatchResult::Kind::kGroup;
    result->slot = state.group_state->groups->findHandle(info.sel_grp_hdl);
  }
  return result->slot == kNoSlot ? JX_OBJECT_NOT_FOUND : JX_SUCCESS;
}

/// Reads what an entry does.
jx_status_t resultOf(const TableState& state, const Info& info, MatchResult* result) {
  const jx_status_t status = checkTable(state, info.placement);
  if (status != JX_SUCCESS) return status;
  if (info.placement.header.ttl_ms != 0 && !state.table->idle_timeout) return JX_INVALID_ARGUMENTS;
  if (state.member_state != nullptr) return referenceOf(state, info, result);
  if (info.adt_ent_hdl != 0 || info.sel_grp_hdl != 0) return JX_INVALID_ARGUMENTS;
  const jx_status_t bound = boundAction(state, info.placement, &result->action);
  if (bound != JX_SUCCESS) return bound;
  const bool as_default = info.op == PlcmtOp::kMatSetDefault;
  return state.allows(*result->action.action, as_default) ? JX_SUCCESS : JX_INVALID_ARGUMENTS;
}

jx_status_t addMatch(TableState& state, const Info& info) {
  MatchTable& table = *state.match;
  MatchTable::Addition addition;
  addition.handle = info.handle;
  addition.key = info.placement.key;
  addition.priority = info.priority;
  addition.ttl_ms = info.placement.header.ttl_ms;
  if (info.handle == 0 || info.placement.header.key_bytes != table.codec().keyBytes() ||
      !table.codec().canonical(addition.key) ||
      (info.priority != 0 && !state.table->has_priority)) {
    return JX_INVALID_ARGUMENTS;
  }
  const jx_status_t status = resultOf(state, info, &addition.result);
  if (status != JX_SUCCESS) return status;
  uint32_t slot = kNoSlot;
  const jx_status_t added = table.add(addition, &slot);
  if (added == JX_SUCCESS && state.aging != nullptr) state.aging->written(slot);
  return added;
}

/// The entry that data with a key is about: the one of the handle, and the key has to be its own.
jx_status_t entryOf(const TableState& state, const Info& info, uint32_t* slot) {
  const MatchTable& table = *state.match;
  *slot = table.findHandle(info.handle);
  if (*slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  const uint32_t key_bytes = table.codec().keyBytes();
  const bool own = info.placement.header.key_bytes == key_bytes &&
                   std::memcmp(info.placement.key, table.keyOf(*slot), key_bytes) == 0;
  return own ? JX_SUCCESS : JX_INVALID_ARGUMENTS;
}

jx_status_t modifyMatch(TableState& state, const Info& info) {
  uint32_t slot = kNoSlot;
  jx_status_t status = entryOf(state, info, &slot);
  if (status != JX_SUCCESS) return status;
  MatchResult result;
  status = resultOf(state, info, &result);
  if (status != JX_SUCCESS) return status;
  state.match->modify(slot, info.placement.header.ttl_ms, result);
  if (state.aging != nullptr) state.aging->written(slot);
  return JX_SUCCESS;
}

jx_status_t moveMatch(TableState& state, const Info& info) {
  if (!state.table->has_priority) return JX_INVALID_ARGUMENTS;
  uint32_t slot = kNoSlot;
  jx_status_t status = entryOf(state, info, &slot);
  if (status != JX_SUCCESS) return status;
  // What the entry does goes with it and has to be sound, but a move does not change it.
  MatchResult unchanged;
  status = resultOf(state, info, &unchanged);
  if (status == JX_SUCCESS) state.match->move(slot, info.priority);
  return status;
}

jx_status_t deleteMatch(TableState& state, const Info& info) {
  const uint32_t slot = state.match->findHandle(info.handle);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  state.match->remove(slot);
  return JX_SUCCESS;
}

jx_status_t setDefault(TableState& state, const Info& info) {
  if (info.handle == 0) return JX_INVALID_ARGUMENTS;
  MatchResult result;
  const jx_status_t status = resultOf(state, info, &result);
  return status == JX_SUCCESS ? state.match->setDefault(info.handle, result) : status;
}

jx_status_t clearDefault(TableState& state, const Info& info) {
  const uint32_t slot = state.match->defaultEntry();
  if (slot == kNoSlot || state.match->handleOf(slot) != info.handle) return JX_OBJECT_NOT_FOUND;
  state.match->clearDefault();
  return JX_SUCCESS;
}

/// Whether the description leaves what the operation changes to partners.
bool changeable(const TableState& state, PlcmtOp op) {
  const bool of_default = op == PlcmtOp::kMatSetDefault || op == PlcmtOp::kMatClearDefault;
  return of_default ? !state.table->constant_default : state.takesEntries();
}

jx_status_t processMatch(TableState& state, const Info& info) {
  if (!changeable(state, info.op)) return JX_NOT_SUPPORTED;
  switch (info.op) {
    case PlcmtOp::kMatAdd:
      return addMatch(state, info);
    case PlcmtOp::kMatSetDefault:
      return setDefault(state, info);
    case PlcmtOp::kMatClearDefault:
      return clearDefault(state, info);
    case PlcmtOp::kMatDelete:
      return deleteMatch(state, info);
    case PlcmtOp::kMatModify:
      return modifyMatch(state, info);
    case PlcmtOp::kMatMove:
      return moveMatch(state, info);
    default:
      return JX_INVALID_ARGUMENTS;
  }
}

jx_status_t addMember(TableState& state, const Info& info) {
  if (info.handle == 0) return JX_INVALID_ARGUMENTS;
  BoundAction action;
  jx_status_t status = checkTable(state, info.placement);
  if (status == JX_SUCCESS) status = boundAction(state, info.placement, &action);
  if (status != JX_SUCCESS) return status;
  uint32_t slot = kNoSlot;
  return state.members->add(info.handle, info.placement.header.target_id, action, &slot);
}

jx_status_t modifyMember(TableState& state, const Info& info) {
  BoundAction action;
  jx_status_t status = checkTable(state, info.placement);
  if (status == JX_SUCCESS) status = boundAction(state, info.placement, &action);
  if (status != JX_SUCCESS) return status;
  const uint32_t slot = state.members->findHandle(info.handle);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  state.members->modify(slot, action);
  return JX_SUCCESS;
}

jx_status_t processMember(TableState& state, const Info& info) {
  switch (info.op) {
    case PlcmtOp::kAdtAdd:
      return addMember(state, info);
    case PlcmtOp::kAdtModify:
      return modifyMember(state, info);
    case PlcmtOp::kAdtDelete: {
      const uint32_t slot = state.members->findHandle(info.handle);
      return slot == kNoSlot ? JX_OBJECT_NOT_FOUND : state.members->remove(slot);
    }
    default:
      return JX_INVALID_ARGUMENTS;
  }
}

bool ofMemberTable(const TableState& state, pipe_tbl_hdl_t adt_tbl_hdl) {
  return state.member_state != nullptr && adt_tbl_hdl == state.member_state->table->handle;
}

jx_status_t readElements(const TableState& state, const Info& info,
                         std::vector<SelectorTable::Member>* members) {
  const ActionDataTable& table = *state.member_state->members;
  const auto* bytes = reinterpret_cast<const uint8_t*>(info.elements);
  for (uint32_t i = 0; i < info.num_elements; ++i, bytes += sizeof(pipe_sel_element)) {
    pipe_sel_element element;
    std::memcpy(&element, bytes, sizeof element);
    if (element.active > 1) return JX_INVALID_ARGUMENTS;
    const uint32_t slot = table.findHandle(element.adt_ent_hdl);
    if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
    members->push_back({slot, element.active == 1});
  }
  return JX_SUCCESS;
}

jx_status_t createGroup(TableState& state, const Info& info) {
  if (info.handle == 0 || !ofMemberTable(state, info.adt_tbl_hdl)) return JX_INVALID_ARGUMENTS;
  if (info.num_elements > state.table->max_members) return JX_NOT_ENOUGH_SPACE;
  std::vector<SelectorTable::Member> members;
  const jx_status_t status = readElements(state, info, &members);
  if (status != JX_SUCCESS) return status;
  uint32_t slot = kNoSlot;
  return state.groups->create(info.handle, info.group_id, info.max_members, members, &slot);
}

/// Data of a member that joins a group, or becomes the fallback.
jx_status_t checkMemberData(const TableState& state, const Placement& placement) {
  const jx_status_t status = checkTable(state, placement);
  BoundAction action;
  return status == JX_SUCCESS ? boundAction(*state.member_state, placement, &action) : status;
}

jx_status_t processGroupMember(TableState& state, const Info& info) {
  if (!ofMemberTable(state, info.adt_tbl_hdl)) return JX_INVALID_ARGUMENTS;
  if (info.op == PlcmtOp::kSelAdd) {
    if (info.active > 1) return JX_INVALID_ARGUMENTS;
    const jx_status_t status = checkMemberData(state, info.placement);
    if (status != JX_SUCCESS) return status;
  }
  SelectorTable& groups = *state.groups;
  const uint32_t group = groups.findHandle(info.handle);
  const uint32_t member = groups.memberTable().findHandle(info.adt_ent_hdl);
  if (group == kNoSlot || member == kNoSlot) return JX_OBJECT_NOT_FOUND;
  switch (info.op) {
    case PlcmtOp::kSelAdd:
      return groups.addMember(group, {member, info.active == 1});
    case PlcmtOp::kSelDelete:
      return groups.removeMember(group, member);
    default:
      return groups.setActive(group, member, info.op == PlcmtOp::kSelActivate);
  }
}

jx_status_t setFallback(TableState& state, const Info& info) {
  const jx_status_t status = checkMemberData(state, info.placement);
  if (status != JX_SUCCESS) return status;
  const uint32_t member = state.groups->memberTable().findHandle(info.adt_ent_hdl);
  if (member == kNoSlot) return JX_OBJECT_NOT_FOUND;
  state.groups->setFallback(member);
  return JX_SUCCESS;
}

jx_status_t processGroup(TableState& state, const Info& info) {
  switch (info.op) {
    case PlcmtOp::kSelCreate:
      return createGroup(state, info);
    case PlcmtOp::kSelDestroy: {
      const uint32_t slot = state.groups->findHandle(info.handle);
      return slot == kNoSlot ? JX_OBJECT_NOT_FOUND : state.groups->destroy(slot);
    }
    case PlcmtOp::kSelAdd:
    case PlcmtOp::kSelDelete:
    case PlcmtOp::kSelActivate:
    case PlcmtOp::kSelDeactivate:
      return processGroupMember(state, info);
    case PlcmtOp::kSelSetFallback:
      return setFallback(state, info);
    case PlcmtOp::kSelClearFallback:
      return state.groups->clearFallback();
    default:
      return JX_INVALID_ARGUMENTS;
  }
}

}  // namespace

jx_status_t processPlacement(TableState& state, const pipe_plcmt_info& info) {
  if (state.match) return processMatch(state, info);
  if (state.members) return processMember(state, info);
  if (state.groups) return processGroup(state, info);
  return JX_INVALID_ARGUMENTS;  // nothing is placed in counters
}

}  // namespace jxmodel
