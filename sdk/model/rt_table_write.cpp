// Writes of tables of virtual devices: checked, stored, reported, all under the device's mutex.
#include <algorithm>
#include <mutex>

#include "model/device.h"
#include "model/faults.h"
#include "model/rt_info.h"
#include "model/rt_table.h"
#include "model/update_reporter.h"

namespace jxmodel {

using Lock = std::lock_guard<std::mutex>;
using Member = SelectorTable::Member;

namespace {

jx_dev_target_t reported(const jx_rt_target_t& target) { return {target.dev_id, target.pipe_id}; }

}  // namespace

jx_status_t RtTable::checkWrite(const jx_rt_target_t& target, uint64_t flags) const {
  if (flags != 0) return JX_INVALID_ARGUMENTS;
  const jx_status_t status = checkTarget(target);
  if (status != JX_SUCCESS) return status;
  return device_.isVirtual() ? JX_SUCCESS : JX_NOT_SUPPORTED;
}

jx_status_t RtTable::boundActionOf(const RtTableData& data, BoundAction* action) const {
  if (data.action() == nullptr || !data.complete()) return JX_INVALID_ARGUMENTS;
  *action = {data.action(), data.params()};
  return JX_SUCCESS;
}

jx_status_t RtTable::resultOf(const RtTableData& data, MatchResult* result) const {
  if (ownsActions()) return boundActionOf(data, &result->action);
  if (data.member_id.has_value() == data.group_id.has_value()) return JX_INVALID_ARGUMENTS;
  if (data.member_id) {
    result->kind = MatchResult::Kind::kMember;
    result->slot = state_.member_state->members->findId(*data.member_id);
  } else {
    result->kind = MatchResult::Kind::kGroup;
    result->slot = state_.group_state->groups->findId(*data.group_id);
  }
  return result->slot == kNoSlot ? JX_OBJECT_NOT_FOUND : JX_SUCCESS;
}

jx_status_t RtTable::membersOf(const RtTableData& data, std::vector<Member>* members) const {
  if (!data.members) return data.members_active ? JX_INVALID_ARGUMENTS : JX_SUCCESS;
  if (data.members_active && data.members_active->size() != data.members->size()) {
    return JX_INVALID_ARGUMENTS;
  }
  for (size_t i = 0; i < data.members->size(); ++i) {
    const uint32_t slot = state_.member_state->members->findId((*data.members)[i]);
    if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
    members->push_back({slot, !data.members_active || (*data.members_active)[i]});
  }
  return JX_SUCCESS;
}

jx_status_t RtTable::addMatch(const UpdateReporter& reporter, const RtTableKey& key,
                              const RtTableData& data) const {
  MatchTable::Addition addition;
  addition.key = key.packed();
  addition.priority = key.priority();
  addition.ttl_ms = data.ttl_ms.value_or(0);
  jx_status_t status = resultOf(data, &addition.result);
  if (status != JX_SUCCESS) return status;
  uint32_t slot = kNoSlot;
  status = state_.match->add(addition, &slot);
  if (status == JX_SUCCESS) reporter.matchAdded(slot);
  return status;
}

jx_status_t RtTable::addMember(const UpdateReporter& reporter, const RtTableKey& key,
                               const RtTableData& data) const {
  BoundAction action;
  jx_status_t status = boundActionOf(data, &action);
  if (status != JX_SUCCESS) return status;
  uint32_t slot = kNoSlot;
  status = state_.members->add(0, key.number(), action, &slot);
  if (status == JX_SUCCESS) reporter.memberAdded(slot);
  return status;
}

jx_status_t RtTable::addGroup(const UpdateReporter& reporter, const RtTableKey& key,
                              const RtTableData& data) const {
  std::vector<Member> members;
  jx_status_t status = membersOf(data, &members);
  if (status != JX_SUCCESS) return status;
  uint32_t slot = kNoSlot;
  status = state_.groups->create(0, key.number(), data.max_members.value_or(0), members, &slot);
  if (status == JX_SUCCESS) reporter.groupCreated(slot);
  return status;
}

jx_status_t RtTable::tableEntryAdd(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableKey& key,
                                   const jxrt::JxRtTableData& data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryAdd");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  const RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_data == nullptr) return JX_INVALID_ARGUMENTS;
  const UpdateReporter reporter(state_, reported(target));
  const Lock lock(device_.mutex());
  if (state_.match) return addMatch(reporter, *own_key, *own_data);
  if (state_.members) return addMember(reporter, *own_key, *own_data);
  if (state_.groups) return addGroup(reporter, *own_key, *own_data);
  return JX_NOT_SUPPORTED;  // counters are there from the start
}

jx_status_t RtTable::modifyMatch(const UpdateReporter& reporter, uint32_t slot,
                                 const RtTableData& data) const {
  MatchResult result;
  const jx_status_t status = resultOf(data, &result);
  if (status != JX_SUCCESS) return status;
  state_.match->modify(slot, data.ttl_ms.value_or(state_.match->ttlOf(slot)), result);
  reporter.matchModified(slot);
  return JX_SUCCESS;
}

jx_status_t RtTable::modifyMember(const UpdateReporter& reporter, uint32_t slot,
                                  const RtTableData& data) const {
  BoundAction action;
  const jx_status_t status = boundActionOf(data, &action);
  if (status != JX_SUCCESS) return status;
  state_.members->modify(slot, action);
  reporter.memberModified(slot);
  return JX_SUCCESS;
}

jx_status_t RtTable::modifyGroup(const UpdateReporter& reporter, uint32_t slot,
                                 const RtTableData& data) const {
  const uint32_t max_members = state_.groups->group(slot).max_members;
  if (data.max_members.value_or(max_members) != max_members) return JX_NOT_SUPPORTED;
  std::vector<Member> wanted;
  jx_status_t status = membersOf(data, &wanted);
  if (status != JX_SUCCESS || !data.members) return status;
  status = state_.groups->checkMembers(max_members, wanted);
  if (status == JX_SUCCESS) remakeMembers(reporter, slot, wanted);
  return status;
}

/// Removes first, so that there is room for what is added. Nothing can fail: all was checked.
void RtTable::remakeMembers(const UpdateReporter& reporter, uint32_t slot,
                            const std::vector<Member>& wanted) const {
  const auto in = [](const std::vector<Member>& members, uint32_t member_slot) {
    return std::find_if(members.begin(), members.end(),
                        [member_slot](const Member& member) { return member.slot == member_slot; });
  };
  SelectorTable& groups = *state_.groups;
  const std::vector<Member> before = groups.group(slot).members;
  for (const Member& member : before) {
    if (in(wanted, member.slot) != wanted.end()) continue;
    groups.removeMember(slot, member.slot);
    reporter.groupMemberDeleted(slot, member.slot);
  }
  for (const Member& member : wanted) {
    const auto present = in(before, member.slot);
    if (present == before.end()) {
      groups.addMember(slot, member);
      reporter.groupMemberAdded(slot, member.slot, member.active);
    } else if (present->active != member.active) {
      groups.setActive(slot, member.slot, member.active);
      member.active ? reporter.groupMemberActivated(slot, member.slot)
                    : reporter.groupMemberDeactivated(slot, member.slot);
    }
  }
}

jx_status_t RtTable::tableEntryMod(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableKey& key,
                                   const jxrt::JxRtTableData& data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryMod");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  const RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_data == nullptr) return JX_INVALID_ARGUMENTS;
  if (description().type == JX_RT_TABLE_COUNTER) return JX_NOT_SUPPORTED;
  const UpdateReporter reporter(state_, reported(target));
  const Lock lock(device_.mutex());
  const uint32_t slot = slotOf(*own_key);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  if (state_.match) return modifyMatch(reporter, slot, *own_data);
  if (state_.members) return modifyMember(reporter, slot, *own_data);
  return modifyGroup(reporter, slot, *own_data);
}

jx_status_t RtTable::tableEntryMove(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                    uint64_t flags, const jxrt::JxRtTableKey& key) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryMove");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  if (own_key == nullptr) return JX_INVALID_ARGUMENTS;
  if (!state_.match || !description().has_priority) return JX_NOT_SUPPORTED;
  const UpdateReporter reporter(state_, reported(target));
  const Lock lock(device_.mutex());
  const uint32_t slot = slotOf(*own_key);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  state_.match->move(slot, own_key->priority());
  reporter.matchMoved(slot);
  return JX_SUCCESS;
}

jx_status_t RtTable::remove(const UpdateReporter& reporter, uint32_t slot) const {
  const uint32_t handle = handleOf(slot);
  if (state_.match) {
    state_.match->remove(slot);
    reporter.matchDeleted(handle);
    return JX_SUCCESS;
  }
  if (state_.members) {
    const jx_status_t status = state_.members->remove(slot);
    if (status == JX_SUCCESS) reporter.memberDeleted(handle);
    return status;
  }
  const jx_status_t status = state_.groups->destroy(slot);
  if (status == JX_SUCCESS) reporter.groupDestroyed(handle);
  return status;
}

jx_status_t RtTable::tableEntryDel(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableKey& key) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryDel");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  if (own_key == nullptr) return JX_INVALID_ARGUMENTS;
  if (description().type == JX_RT_TABLE_COUNTER) return JX_NOT_SUPPORTED;
  const UpdateReporter reporter(state_, reported(target));
  const Lock lock(device_.mutex());
  const uint32_t slot = slotOf(*own_key);
  return slot == kNoSlot ? JX_OBJECT_NOT_FOUND : remove(reporter, slot);
}

jx_status_t RtTable::tableDefaultEntrySet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                          uint64_t flags, const jxrt::JxRtTableData& data) const {
  JXMODEL_ENTRY("JxRtTable::tableDefaultEntrySet");
  jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableData* const own_data = own(data);
  if (own_data == nullptr) return JX_INVALID_ARGUMENTS;
  if (!state_.match) return JX_NOT_SUPPORTED;
  if (own_data->ttl_ms) return JX_INVALID_ARGUMENTS;  // a default entry does not age
  const Lock lock(device_.mutex());
  MatchResult result;
  status = resultOf(*own_data, &result);
  if (status != JX_SUCCESS) return status;
  status = state_.match->setDefault(0, result);
  if (status == JX_SUCCESS) UpdateReporter(state_, reported(target)).defaultSet();
  return status;
}

jx_status_t RtTable::tableDefaultEntryClear(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                            uint64_t flags) const {
  JXMODEL_ENTRY("JxRtTable::tableDefaultEntryClear");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  if (!state_.match) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  const uint32_t slot = state_.match->defaultEntry();
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  const uint32_t handle = state_.match->handleOf(slot);
  state_.match->clearDefault();
  UpdateReporter(state_, reported(target)).defaultCleared(handle);
  return JX_SUCCESS;
}

jx_status_t RtTable::findPair(uint32_t group_id, uint32_t member_id, uint32_t* group,
                              uint32_t* member) const {
  *group = state_.groups->findId(group_id);
  *member = state_.groups->memberTable().findId(member_id);
  return *group == kNoSlot || *member == kNoSlot ? JX_OBJECT_NOT_FOUND : JX_SUCCESS;
}

jx_status_t RtTable::groupMemberAdd(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                    uint32_t group_id, uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::groupMemberAdd");
  jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  if (!state_.groups) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  uint32_t group = kNoSlot, member = kNoSlot;
  status = findPair(group_id, member_id, &group, &member);
  if (status != JX_SUCCESS) return status;
  status = state_.groups->addMember(group, {member, true});
  if (status != JX_SUCCESS) return status;
  UpdateReporter(state_, reported(target)).groupMemberAdded(group, member, true);
  return JX_SUCCESS;
}

jx_status_t RtTable::groupMemberDel(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                    uint32_t group_id, uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::groupMemberDel");
  jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  if (!state_.groups) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  uint32_t group = kNoSlot, member = kNoSlot;
  status = findPair(group_id, member_id, &group, &member);
  if (status != JX_SUCCESS) return status;
  status = state_.groups->removeMember(group, member);
  if (status != JX_SUCCESS) return status;
  UpdateReporter(state_, reported(target)).groupMemberDeleted(group, member);
  return JX_SUCCESS;
}

jx_status_t RtTable::setActive(const jx_rt_target_t& target, uint32_t group_id, uint32_t member_id,
                               bool active) const {
  jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  if (!state_.groups) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  uint32_t group = kNoSlot, member = kNoSlot;
  status = findPair(group_id, member_id, &group, &member);
  if (status != JX_SUCCESS) return status;
  status = state_.groups->setActive(group, member, active);
  if (status != JX_SUCCESS) return status;
  const UpdateReporter reporter(state_, reported(target));
  active ? reporter.groupMemberActivated(group, member)
         : reporter.groupMemberDeactivated(group, member);
  return JX_SUCCESS;
}

jx_status_t RtTable::groupMemberActivate(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         uint32_t group_id, uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::groupMemberActivate");
  return setActive(target, group_id, member_id, true);
}

jx_status_t RtTable::groupMemberDeactivate(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                           uint32_t group_id, uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::groupMemberDeactivate");
  return setActive(target, group_id, member_id, false);
}

jx_status_t RtTable::fallbackSet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                 uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::fallbackSet");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  if (!state_.groups) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  const uint32_t member = state_.groups->memberTable().findId(member_id);
  if (member == kNoSlot) return JX_OBJECT_NOT_FOUND;
  state_.groups->setFallback(member);
  UpdateReporter(state_, reported(target)).fallbackSet(member);
  return JX_SUCCESS;
}

jx_status_t RtTable::fallbackClear(const jxrt::JxRtSession&, const jx_rt_target_t& target) const {
  JXMODEL_ENTRY("JxRtTable::fallbackClear");
  jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  if (!state_.groups) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  status = state_.groups->clearFallback();
  if (status == JX_SUCCESS) UpdateReporter(state_, reported(target)).fallbackCleared();
  return status;
}

jx_status_t RtTable::matUpdateCbRegister(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         pipe_mat_update_cb callback, void* cookie) const {
  JXMODEL_ENTRY("JxRtTable::matUpdateCbRegister");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  if (!state_.match) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  state_.on_match = {callback, cookie};
  return JX_SUCCESS;
}

jx_status_t RtTable::adtUpdateCbRegister(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         pipe_adt_update_cb callback, void* cookie) const {
  JXMODEL_ENTRY("JxRtTable::adtUpdateCbRegister");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  if (!state_.members) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  state_.on_member = {callback, cookie};
  return JX_SUCCESS;
}

jx_status_t RtTable::selUpdateCbRegister(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         pipe_sel_update_cb callback, void* cookie) const {
  JXMODEL_ENTRY("JxRtTable::selUpdateCbRegister");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  if (!state_.groups) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  state_.on_group = {callback, cookie};
  return JX_SUCCESS;
}

}  // namespace jxmodel
