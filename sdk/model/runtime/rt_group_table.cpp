#include "model/runtime/rt_group_table.h"

#include <algorithm>

namespace jxmodel {

RtGroupTable::RtGroupTable(const DeviceCore& device, const RtInfo& info, TableState& state)
    : RtTable(device, info, state,
              {{{kFieldMaxMembers, JX_RT_FIELD_MAX_MEMBERS, 32},
                {kFieldMembers, JX_RT_FIELD_MEMBERS, 32},
                {kFieldMembersActive, JX_RT_FIELD_MEMBERS_ACTIVE, 1}},
               false}) {}

void RtGroupTable::readKey(uint32_t slot, RtTableKey* key) const {
  key->assignNumber(groups().group(slot).id);
}

void RtGroupTable::readData(uint32_t slot, uint64_t, RtTableData* data) const {
  const SelectorTable::Group& group = groups().group(slot);
  data->max_members = group.max_members;
  data->members.emplace();
  data->members_active.emplace();
  for (const Member& member : group.members) {
    data->members->push_back(groups().memberTable().idOf(member.slot));
    data->members_active->push_back(member.active);
  }
}

jx_status_t RtGroupTable::membersOf(const RtTableData& data, std::vector<Member>* members) const {
  if (!data.members) return data.members_active ? JX_INVALID_ARGUMENTS : JX_SUCCESS;
  if (data.members_active && data.members_active->size() != data.members->size()) {
    return JX_INVALID_ARGUMENTS;
  }
  for (size_t i = 0; i < data.members->size(); ++i) {
    const uint32_t slot = state().member_state->members->findId((*data.members)[i]);
    if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
    members->push_back({slot, !data.members_active || (*data.members_active)[i]});
  }
  return JX_SUCCESS;
}

jx_status_t RtGroupTable::add(const UpdateReporter& reporter, const RtTableKey& key,
                              const RtTableData& data) const {
  std::vector<Member> members;
  jx_status_t status = membersOf(data, &members);
  if (status != JX_SUCCESS) return status;
  uint32_t slot = kNoSlot;
  status = groups().create(0, key.number(), data.max_members.value_or(0), members, &slot);
  if (status == JX_SUCCESS) reporter.groupCreated(slot);
  return status;
}

jx_status_t RtGroupTable::modify(const UpdateReporter& reporter, uint32_t slot,
                                 const RtTableData& data) const {
  const uint32_t max_members = groups().group(slot).max_members;
  if (data.max_members.value_or(max_members) != max_members) return JX_NOT_SUPPORTED;
  std::vector<Member> wanted;
  jx_status_t status = membersOf(data, &wanted);
  if (status != JX_SUCCESS || !data.members) return status;
  status = groups().checkMembers(max_members, wanted);
  if (status == JX_SUCCESS) remakeMembers(reporter, slot, wanted);
  return status;
}

/// Removes first, so that there is room for what is added. Nothing can fail: all was checked.
void RtGroupTable::remakeMembers(const UpdateReporter& reporter, uint32_t slot,
                                 const std::vector<Member>& wanted) const {
  const auto in = [](const std::vector<Member>& members, uint32_t member_slot) {
    return std::find_if(members.begin(), members.end(),
                        [member_slot](const Member& member) { return member.slot == member_slot; });
  };
  SelectorTable& groups = this->groups();
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

jx_status_t RtGroupTable::remove(const UpdateReporter& reporter, uint32_t slot) const {
  const uint32_t handle = groups().handleOf(slot);
  const jx_status_t status = groups().destroy(slot);
  if (status == JX_SUCCESS) reporter.groupDestroyed(handle);
  return status;
}

jx_status_t RtGroupTable::findPair(uint32_t group_id, uint32_t member_id, uint32_t* group,
                                   uint32_t* member) const {
  *group = groups().findId(group_id);
  *member = groups().memberTable().findId(member_id);
  return *group == kNoSlot || *member == kNoSlot ? JX_OBJECT_NOT_FOUND : JX_SUCCESS;
}

jx_status_t RtGroupTable::addGroupMember(const UpdateReporter& reporter, uint32_t group_id,
                                         uint32_t member_id) const {
  uint32_t group = kNoSlot, member = kNoSlot;
  jx_status_t status = findPair(group_id, member_id, &group, &member);
  if (status == JX_SUCCESS) status = groups().addMember(group, {member, true});
  if (status == JX_SUCCESS) reporter.groupMemberAdded(group, member, true);
  return status;
}

jx_status_t RtGroupTable::deleteGroupMember(const UpdateReporter& reporter, uint32_t group_id,
                                            uint32_t member_id) const {
  uint32_t group = kNoSlot, member = kNoSlot;
  jx_status_t status = findPair(group_id, member_id, &group, &member);
  if (status == JX_SUCCESS) status = groups().removeMember(group, member);
  if (status == JX_SUCCESS) reporter.groupMemberDeleted(group, member);
  return status;
}

jx_status_t RtGroupTable::setGroupMemberActive(const UpdateReporter& reporter, uint32_t group_id,
                                               uint32_t member_id, bool active) const {
  uint32_t group = kNoSlot, member = kNoSlot;
  jx_status_t status = findPair(group_id, member_id, &group, &member);
  if (status == JX_SUCCESS) status = groups().setActive(group, member, active);
  if (status != JX_SUCCESS) return status;
  active ? reporter.groupMemberActivated(group, member)
         : reporter.groupMemberDeactivated(group, member);
  return JX_SUCCESS;
}

jx_status_t RtGroupTable::setFallback(const UpdateReporter& reporter, uint32_t member_id) const {
  const uint32_t member = groups().memberTable().findId(member_id);
  if (member == kNoSlot) return JX_OBJECT_NOT_FOUND;
  groups().setFallback(member);
  reporter.fallbackSet(member);
  return JX_SUCCESS;
}

jx_status_t RtGroupTable::clearFallback(const UpdateReporter& reporter) const {
  const jx_status_t status = groups().clearFallback();
  if (status == JX_SUCCESS) reporter.fallbackCleared();
  return status;
}

jx_status_t RtGroupTable::readFallback(uint32_t* member_id) const {
  const uint32_t slot = groups().fallback();
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  *member_id = groups().memberTable().idOf(slot);
  return JX_SUCCESS;
}

}  // namespace jxmodel
