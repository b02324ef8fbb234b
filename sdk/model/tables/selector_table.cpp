#include "model/tables/selector_table.h"

#include <algorithm>

namespace jxmodel {
namespace {

template <typename Members>
auto findMember(Members& members, uint32_t slot) {
  return std::find_if(members.begin(), members.end(),
                      [slot](const SelectorTable::Member& member) { return member.slot == slot; });
}

/// Spreads all pairs over all numbers; different members of one hash never weigh the same.
uint64_t weightOf(uint32_t hash, uint32_t handle) {
  uint64_t bits = uint64_t{hash} << 32 | handle;
  bits ^= bits >> 30;
  bits *= 0xBF58476D1CE4E5B9;
  bits ^= bits >> 27;
  bits *= 0x94D049BB133111EB;
  return bits ^ bits >> 31;
}

}  // namespace

SelectorTable::SelectorTable(const Table& table, ActionDataTable* members,
                             std::optional<uint32_t> handle_base, Reclaimer* reclaimer)
    : table_(table),
      members_(members),
      reclaimer_(reclaimer),
      published_(reclaimer),
      handles_(handle_base) {}

SelectorTable::~SelectorTable() {
  for (uint32_t slot = 0; slot < end(); ++slot) {
    if (used(slot)) delete published_.get(slot);
  }
}

/// Lets packets see the group as it is now.
void SelectorTable::publish(uint32_t slot) {
  const Group& group = groups_[slot];
  auto* const membership = new Membership{group.handle, {}};
  membership->active.reserve(group.members.size());
  for (const Member& member : group.members) {
    if (!member.active) continue;
    membership->active.push_back({member.slot, members_->handleOf(member.slot)});
  }
  const Membership* const before = published_.get(slot);
  {
    const Sequence::Change change(sequence_);
    published_.set(slot, membership);
  }
  retire(reclaimer_, before);
}

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
    published_.append(nullptr);
  }
  *slot = free_.back();
  free_.pop_back();
  ++count_;
  const uint32_t given = handles_.givesOut() ? handles_.handleOf(*slot) : handle;
  handles_.bind(given, *slot);
  ids_.add(group_id, *slot);
  groups_[*slot] = Group{given, group_id, max_members, 0, members};
  for (const Member& member : members) members_->reference(member.slot);
  // Nothing refers to the group yet. What was published last is gone already.
  published_.set(*slot, nullptr);
  publish(*slot);
  return JX_SUCCESS;
}

jx_status_t SelectorTable::destroy(uint32_t slot) {
  Group& group = groups_[slot];
  if (group.references != 0) return JX_IN_USE;
  for (const Member& member : group.members) members_->dereference(member.slot);
  handles_.unbind(group.handle);
  ids_.remove(group.id, slot);
  group = Group{};
  --count_;
  // Packets that found the group before see what it was; then the slot may be another's.
  retire(reclaimer_, published_.get(slot));
  const auto put_back = [](void* table, uint64_t value) {
    static_cast<SelectorTable*>(table)->free_.push_back(static_cast<uint32_t>(value));
  };
  defer(reclaimer_, put_back, this, slot);
  return JX_SUCCESS;
}

jx_status_t SelectorTable::addMember(uint32_t slot, const Member& member) {
  Group& group = groups_[slot];
  if (findMember(group.members, member.slot) != group.members.end()) return JX_ALREADY_EXISTS;
  if (group.members.size() >= limitOf(group.max_members)) return JX_NOT_ENOUGH_SPACE;
  group.members.push_back(member);
  members_->reference(member.slot);
  publish(slot);
  return JX_SUCCESS;
}

jx_status_t SelectorTable::removeMember(uint32_t slot, uint32_t member_slot) {
  Group& group = groups_[slot];
  const auto found = findMember(group.members, member_slot);
  if (found == group.members.end()) return JX_OBJECT_NOT_FOUND;
  group.members.erase(found);
  members_->dereference(member_slot);
  publish(slot);
  return JX_SUCCESS;
}

jx_status_t SelectorTable::setActive(uint32_t slot, uint32_t member_slot, bool active) {
  Group& group = groups_[slot];
  const auto found = findMember(group.members, member_slot);
  if (found == group.members.end()) return JX_OBJECT_NOT_FOUND;
  found->active = active;
  publish(slot);
  return JX_SUCCESS;
}

void SelectorTable::setFallback(uint32_t member_slot) {
  members_->reference(member_slot);
  if (fallback() != kNoSlot) members_->dereference(fallback());
  const Sequence::Change change(sequence_);
  fallback_.store(member_slot, std::memory_order_release);
}

jx_status_t SelectorTable::clearFallback() {
  if (fallback() == kNoSlot) return JX_OBJECT_NOT_FOUND;
  members_->dereference(fallback());
  const Sequence::Change change(sequence_);
  fallback_.store(kNoSlot, std::memory_order_release);
  return JX_SUCCESS;
}

/// The slot of the member that weighs most with this hash; there is one.
uint32_t SelectorTable::heaviest(const Membership& membership, uint32_t hash) {
  uint32_t slot = kNoSlot;
  uint64_t most = 0;
  for (const Membership::Active& member : membership.active) {
    const uint64_t weight = weightOf(hash, member.handle);
    if (slot != kNoSlot && weight <= most) continue;
    slot = member.slot;
    most = weight;
  }
  return slot;
}

SelectorTable::Choice SelectorTable::choose(uint32_t slot, uint64_t hash) const {
  const Membership& membership = *published_.get(slot);
  Choice choice;
  choice.group_handle = membership.group_handle;
  if (!membership.active.empty()) {
    const bool weighed = !table_.hash_fields.empty();
    choice.member = weighed ? heaviest(membership, static_cast<uint32_t>(hash))
                            : membership.active[hash % membership.active.size()].slot;
    return choice;
  }
  choice.member = fallback();
  choice.fallback = choice.member != kNoSlot;
  return choice;
}

bool SelectorTable::tryChoose(uint32_t slot, uint64_t hash, Choice* choice) const {
  return sequence_.read([&] { *choice = choose(slot, hash); });
}

uint32_t SelectorTable::findHandle(uint32_t handle) const {
  const uint32_t slot = handles_.slotOf(handle);
  return used(slot) ? slot : kNoSlot;
}

}  // namespace jxmodel
