// Selector tables: groups of members, and the member that stands in for an empty group.
#pragma once

#include <vector>

#include "model/runtime/rt_table.h"

namespace jxmodel {

class RtGroupTable final : public RtTable {
 public:
  RtGroupTable(const DeviceCore& device, const RtInfo& info, TableState& state);

 private:
  using Member = SelectorTable::Member;

  uint32_t usage() const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return groups().count();
  }
  uint32_t slotOf(const RtTableKey& key) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return groups().findId(key.number());
  }
  uint32_t handleOf(uint32_t slot) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return groups().handleOf(slot);
  }
  uint32_t usedFrom(uint64_t slot) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return firstUsed(groups(), slot);
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

  jx_status_t addGroupMember(const UpdateReporter& reporter, uint32_t group_id,
                             uint32_t member_id) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t deleteGroupMember(const UpdateReporter& reporter, uint32_t group_id,
                                uint32_t member_id) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t setGroupMemberActive(const UpdateReporter& reporter, uint32_t group_id,
                                   uint32_t member_id, bool active) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t setFallback(const UpdateReporter& reporter, uint32_t member_id) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t clearFallback(const UpdateReporter& reporter) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t readFallback(uint32_t* member_id) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  SelectorTable& groups() const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) { return *state().groups; }
  /// The members that data names, with whether each is active.
  jx_status_t membersOf(const RtTableData& data, std::vector<Member>* members) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  void remakeMembers(const UpdateReporter& reporter, uint32_t slot,
                     const std::vector<Member>& wanted) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  /// The slots of a group and a member. JX_OBJECT_NOT_FOUND if either is not there.
  jx_status_t findPair(uint32_t group_id, uint32_t member_id, uint32_t* group,
                       uint32_t* member) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
};

}  // namespace jxmodel
