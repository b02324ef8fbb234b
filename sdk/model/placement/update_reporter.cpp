#include "model/placement/update_reporter.h"

#include <vector>

namespace jxmodel {
namespace {

/// The block that callbacks of this thread are given. Callbacks do not nest.
PlacementBuffer& buffer() {
  thread_local PlacementBuffer block;
  return block;
}

}  // namespace

void UpdateReporter::report(pipe_mat_update_type type, pipe_mat_update_params* params) const {
  const auto& callback = state_.on_match;
  callback.function(target_, state_.table->handle, type, params, callback.cookie);
}

void UpdateReporter::report(pipe_adt_update_type type, pipe_adt_update_params* params) const {
  const auto& callback = state_.on_member;
  callback.function(target_, state_.table->handle, type, params, callback.cookie);
}

void UpdateReporter::report(pipe_sel_update_type type, pipe_sel_update_params* params) const {
  const auto& callback = state_.on_group;
  callback.function(target_, state_.table->handle, type, params, callback.cookie);
}

pipe_mat_action_words UpdateReporter::actionWords(uint32_t slot, uint32_t key_bytes) const {
  const MatchResult result = state_.match->resultOf(slot);
  pipe_mat_action_words words{};
  words.key_size = key_bytes;
  switch (result.kind) {
    case MatchResult::Kind::kAction:
      words.act_fn_hdl = result.action.action->id;
      words.param_size = result.action.action->param_bytes;
      break;
    case MatchResult::Kind::kMember:
      words.adt_ent_hdl = state_.member_state->members->handleOf(result.slot);
      words.adt_tbl_hdl = state_.member_state->table->handle;
      break;
    case MatchResult::Kind::kGroup:
      words.sel_grp_hdl = state_.group_state->groups->handleOf(result.slot);
      words.sel_tbl_hdl = state_.group_state->table->handle;
      break;
  }
  return words;
}

const void* UpdateReporter::matchData(uint32_t slot, PlacementKind kind) const {
  const MatchTable& table = *state_.match;
  const MatchResult result = table.resultOf(slot);
  PlacementHeader header{};
  header.kind = kind;
  header.table_handle = state_.table->handle;
  header.ttl_ms = table.ttlOf(slot);
  uint32_t param_bytes = 0;
  switch (result.kind) {
    case MatchResult::Kind::kAction:
      header.action_id = result.action.action->id;
      param_bytes = result.action.action->param_bytes;
      break;
    case MatchResult::Kind::kMember:
      header.target_id = state_.member_state->members->idOf(result.slot);
      break;
    case MatchResult::Kind::kGroup:
      header.target_id = state_.group_state->groups->group(result.slot).id;
      break;
  }
  const uint32_t key_bytes = kind == PlacementKind::kMatch ? table.codec().keyBytes() : 0;
  return buffer().write(header, table.keyOf(slot), key_bytes, result.action.params, param_bytes);
}

const void* UpdateReporter::memberData(const ActionDataTable& members, uint32_t slot,
                                       PlacementKind kind) const {
  const BoundAction action = members.actionOf(slot);
  PlacementHeader header{};
  header.kind = kind;
  header.table_handle = state_.table->handle;
  header.action_id = action.action->id;
  header.target_id = members.idOf(slot);
  return buffer().write(header, nullptr, 0, action.params, action.action->param_bytes);
}

void UpdateReporter::matchAdded(uint32_t slot) const {
  if (state_.on_match.function == nullptr) return;
  const MatchTable& table = *state_.match;
  pipe_mat_update_params params{};
  params.add.ent_hdl = table.handleOf(slot);
  params.add.ttl_ms = table.ttlOf(slot);
  params.add.priority = table.priorityOf(slot);
  params.add.act = actionWords(slot, table.codec().keyBytes());
  params.add.data = matchData(slot, PlacementKind::kMatch);
  report(PIPE_MAT_UPDATE_ADD, &params);
}

void UpdateReporter::matchModified(uint32_t slot) const {
  if (state_.on_match.function == nullptr) return;
  const MatchTable& table = *state_.match;
  pipe_mat_update_params params{};
  params.mod.ent_hdl = table.handleOf(slot);
  params.mod.act = actionWords(slot, table.codec().keyBytes());
  params.mod.data = matchData(slot, PlacementKind::kMatch);
  report(PIPE_MAT_UPDATE_MOD, &params);
}

void UpdateReporter::matchMoved(uint32_t slot) const {
  if (state_.on_match.function == nullptr) return;
  const MatchTable& table = *state_.match;
  pipe_mat_update_params params{};
  params.mov.ent_hdl = table.handleOf(slot);
  params.mov.priority = table.priorityOf(slot);
  params.mov.act = actionWords(slot, table.codec().keyBytes());
  params.mov.data = matchData(slot, PlacementKind::kMatch);
  report(PIPE_MAT_UPDATE_MOV, &params);
}

void UpdateReporter::matchDeleted(uint32_t handle) const {
  if (state_.on_match.function == nullptr) return;
  pipe_mat_update_params params{};
  params.del.ent_hdl = handle;
  report(PIPE_MAT_UPDATE_DEL, &params);
}

void UpdateReporter::defaultSet() const {
  if (state_.on_match.function == nullptr) return;
  const uint32_t slot = state_.match->defaultEntry();
  pipe_mat_update_params params{};
  params.set_dflt.ent_hdl = state_.match->handleOf(slot);
  params.set_dflt.act = actionWords(slot, 0);
  params.set_dflt.data = matchData(slot, PlacementKind::kMatchDefault);
  report(PIPE_MAT_UPDATE_SET_DFLT, &params);
}

void UpdateReporter::defaultCleared(uint32_t handle) const {
  if (state_.on_match.function == nullptr) return;
  pipe_mat_update_params params{};
  params.clr_dflt.ent_hdl = handle;
  report(PIPE_MAT_UPDATE_CLR_DFLT, &params);
}

void UpdateReporter::memberAdded(uint32_t slot) const {
  if (state_.on_member.function == nullptr) return;
  pipe_adt_update_params params{};
  params.add.ent_hdl = state_.members->handleOf(slot);
  params.add.data = memberData(*state_.members, slot, PlacementKind::kMember);
  report(PIPE_ADT_UPDATE_ADD, &params);
}

void UpdateReporter::memberModified(uint32_t slot) const {
  if (state_.on_member.function == nullptr) return;
  pipe_adt_update_params params{};
  params.mod.ent_hdl = state_.members->handleOf(slot);
  params.mod.data = memberData(*state_.members, slot, PlacementKind::kMember);
  report(PIPE_ADT_UPDATE_MOD, &params);
}

void UpdateReporter::memberDeleted(uint32_t handle) const {
  if (state_.on_member.function == nullptr) return;
  pipe_adt_update_params params{};
  params.del.ent_hdl = handle;
  report(PIPE_ADT_UPDATE_DEL, &params);
}

void UpdateReporter::groupCreated(uint32_t slot) const {
  if (state_.on_group.function == nullptr) return;
  const SelectorTable::Group& group = state_.groups->group(slot);
  const ActionDataTable& members = state_.groups->memberTable();
  std::vector<pipe_sel_element> elements;
  elements.reserve(group.members.size());
  for (const SelectorTable::Member& member : group.members) {
    elements.push_back({members.handleOf(member.slot), member.active ? 1u : 0u});
  }
  pipe_sel_update_params params{};
  params.grp_create.grp_hdl = group.handle;
  params.grp_create.group_id = group.id;
  params.grp_create.max_members = group.max_members;
  params.grp_create.adt_tbl_hdl = state_.member_state->table->handle;
  params.grp_create.num_elements = static_cast<uint32_t>(elements.size());
  params.grp_create.elements = elements.data();
  report(PIPE_SEL_UPDATE_GROUP_CREATE, &params);
}

void UpdateReporter::groupDestroyed(uint32_t handle) const {
  if (state_.on_group.function == nullptr) return;
  pipe_sel_update_params params{};
  params.grp_destroy.grp_hdl = handle;
  report(PIPE_SEL_UPDATE_GROUP_DESTROY, &params);
}

pipe_sel_member_params UpdateReporter::memberParams(uint32_t slot, uint32_t member,
                                                    bool active) const {
  return {state_.groups->handleOf(slot), state_.groups->memberTable().handleOf(member),
          state_.member_state->table->handle, active ? 1u : 0u};
}

void UpdateReporter::groupMemberAdded(uint32_t slot, uint32_t member, bool active) const {
  if (state_.on_group.function == nullptr) return;
  const pipe_sel_member_params common = memberParams(slot, member, active);
  pipe_sel_update_params params{};
  params.add.grp_hdl = common.grp_hdl;
  params.add.adt_ent_hdl = common.adt_ent_hdl;
  params.add.adt_tbl_hdl = common.adt_tbl_hdl;
  params.add.active = common.active;
  params.add.data = memberData(state_.groups->memberTable(), member, PlacementKind::kGroupMember);
  report(PIPE_SEL_UPDATE_ADD, &params);
}

void UpdateReporter::groupMemberDeleted(uint32_t slot, uint32_t member) const {
  if (state_.on_group.function == nullptr) return;
  pipe_sel_update_params params{};
  params.del = memberParams(slot, member, false);
  report(PIPE_SEL_UPDATE_DEL, &params);
}

void UpdateReporter::groupMemberActivated(uint32_t slot, uint32_t member) const {
  if (state_.on_group.function == nullptr) return;
  pipe_sel_update_params params{};
  params.activate = memberParams(slot, member, true);
  report(PIPE_SEL_UPDATE_ACTIVATE, &params);
}

void UpdateReporter::groupMemberDeactivated(uint32_t slot, uint32_t member) const {
  if (state_.on_group.function == nullptr) return;
  pipe_sel_update_params params{};
  params.deactivate = memberParams(slot, member, false);
  report(PIPE_SEL_UPDATE_DEACTIVATE, &params);
}

void UpdateReporter::fallbackSet(uint32_t member) const {
  if (state_.on_group.function == nullptr) return;
  const ActionDataTable& members = state_.groups->memberTable();
  pipe_sel_update_params params{};
  params.set_fallback.adt_ent_hdl = members.handleOf(member);
  params.set_fallback.data = memberData(members, member, PlacementKind::kFallback);
  report(PIPE_SEL_UPDATE_SET_FALLBACK, &params);
}

void UpdateReporter::fallbackCleared() const {
  if (state_.on_group.function == nullptr) return;
  pipe_sel_update_params params{};
  report(PIPE_SEL_UPDATE_CLR_FALLBACK, &params);
}

}  // namespace jxmodel
