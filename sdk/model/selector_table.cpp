#include "model/selector_table.h"

#include <algorithm>

namespace jxmodel {
namespace {

template <typename Members>
auto findMember(Members& members, uint32_t slot) {
  return std::find_if(members.begin(), members.end(),
                      [slot](const SelectorTable::Member& member) { return member.slot == slot; });
}

}  // namespace

SelectorTable::SelectorTable(const Table& table, ActionDataTable* members,
                             std::optional<uint32_t> handle_base)
    : table_(table), members_(members), handles_(handle_base) {}

jx_status_t SelectorTable::checkMembers(uint32_t max_members,
                                        const std::vector<Member>& members) const {
  if (max_members > table_.max_members) return JX_INVALID_ARGUMENTS;
  if (members.size() > limitOf(max_members)) return JX_NOT_ENOUGH_SPACE;
  std::vector<uint32_t> slots;
  slots.reserve(members.size());
  for (const Member& member : members) slots.push_back(member.slot);
  std::sort(slots.begin(), slots.end());
  const bool twice = std::adjacent_find(slots.begin(), slots.end()) != slots.end();
  return twice ? JX_ALREADY_EXISTS : JX_SUCCESS;
}

jx_status_t SelectorTable::create(uint32_t handle, uint32_t group_id, uint32_t max_members,
                                  const std::vector<Member>& members, uint32_t* slot) {
  if (handles_.givesOut() && ids_.find(group_id) != kNoSlot) return JX_ALREADY_EXISTS;
  if (!handles_.givesOut() && handles_.slotOf(handle) != kNoSlot) return JX_ALREADY_EXISTS;
  const jx_status_t status = checkMembers(max_members, members);
  if (status != JX_SUCCESS) return status;
  if (count() == table_.size) return JX_NOT_ENOUGH_SPACE;
  if (free_.empty()) {
    free_.push_back(end());
    groups_.emplace_back();
  }
  *slot = free_.back();
  free_.pop_back();
  const uint32_t given = handles_.givesOut() ? handles_.handleOf(*slot) : handle;
  handles_.bind(given, *slot);
  ids_.add(group_id, *slot);
  groups_[*slot] = Group{given, group_id, max_members, 0, members};
  for (const Member& member : members) members_->reference(member.slot);
  return JX_SUCCESS;
}

jx_status_t SelectorTable::destroy(uint32_t slot) {
  Group& group = groups_[slot];
  if (group.references != 0) return JX_IN_USE;
  for (const Member& member : group.members) members_->dereference(member.slot);
  handles_.unbind(group.handle);
  ids_.remove(group.id, slot);
  group = Group{};
  free_.push_back(slot);
  return JX_SUCCESS;
}

jx_status_t SelectorTable::addMember(uint32_t slot, const Member& member) {
  Group& group = groups_[slot];
  if (findMember(group.members, member.slot) != group.members.end()) return JX_ALREADY_EXISTS;
  if (group.members.size() >= limitOf(group.max_members)) return JX_NOT_ENOUGH_SPACE;
  group.members.push_back(member);
  members_->reference(member.slot);
  return JX_SUCCESS;
}

jx_status_t SelectorTable::removeMember(uint32_t slot, uint32_t member_slot) {
  Group& group = groups_[slot];
  const auto found = findMember(group.members, member_slot);
  if (found == group.members.end()) return JX_OBJECT_NOT_FOUND;
  group.members.erase(found);
  members_->dereference(member_slot);
  return JX_SUCCESS;
}

jx_status_t SelectorTable::setActive(uint32_t slot, uint32_t member_slot, bool active) {
  Group& group = groups_[slot];
  const auto found = findMember(group.members, member_slot);
  if (found == group.members.end()) return JX_OBJECT_NOT_FOUND;
  found->active = active;
  return JX_SUCCESS;
}

void SelectorTable::setFallback(uint32_t member_slot) {
  members_->reference(member_slot);
  if (fallback_ != kNoSlot) members_->dereference(fallback_);
  fallback_ = member_slot;
}

jx_status_t SelectorTable::clearFallback() {
  if (fallback_ == kNoSlot) return JX_OBJECT_NOT_FOUND;
  members_->dereference(fallback_);
  fallback_ = kNoSlot;
  return JX_SUCCESS;
}

uint32_t SelectorTable::findHandle(uint32_t handle) const {
  const uint32_t slot = handles_.slotOf(handle);
  return used(slot) ? slot : kNoSlot;
}

}  // namespace jxmodel
