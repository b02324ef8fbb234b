// The groups of one selector table: members that take turns, and the fallback that stands in for a
// group without an active one.
//
// Thread safety: the device's mutex is held over all calls but tryChoose(), which packets call in a
// ReadSection: what they may see of a group is published as an immutable Membership. All writes
// check first and change nothing on failure.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "model/base/growing_array.h"
#include "model/base/sequence.h"
#include "model/program/program.h"
#include "model/tables/action_data_table.h"
#include "model/tables/handle_space.h"
#include "model/tables/id_index.h"

namespace jxmodel {

class SelectorTable {
 public:
  struct Member {
    uint32_t slot;  // in the action-data table
    bool active;
  };
  struct Group {
    uint32_t handle = 0;       // 0 = the slot is free
    uint32_t id = 0;           // the writer's own number
    uint32_t max_members = 0;  // 0 = the table's limit
    uint32_t references = 0;
    std::vector<Member> members;
  };

  /// `members` is the table that the groups' members are of.
  SelectorTable(const Table& table, ActionDataTable* members, std::optional<uint32_t> handle_base,
                Reclaimer* reclaimer = nullptr);
  ~SelectorTable();

  /// Creates a group with its first members. `handle` is 0 where the device gives handles out.
  /// JX_ALREADY_EXISTS also for a member that is named twice.
  jx_status_t create(uint32_t handle, uint32_t group_id, uint32_t max_members,
                     const std::vector<Member>& members, uint32_t* slot);
  /// JX_IN_USE while entries refer to the group.
  jx_status_t destroy(uint32_t slot);

  /// Whether these members could be the group's: each once, and not more than there is room for.
  jx_status_t checkMembers(uint32_t max_members, const std::vector<Member>& members) const;
  jx_status_t addMember(uint32_t slot, const Member& member);
  jx_status_t removeMember(uint32_t slot, uint32_t member_slot);
  jx_status_t setActive(uint32_t slot, uint32_t member_slot, bool active);

  void setFallback(uint32_t member_slot);
  /// JX_OBJECT_NOT_FOUND if none has been set.
  jx_status_t clearFallback();
  /// kNoSlot if none has been set.
  uint32_t fallback() const { return fallback_.load(std::memory_order_acquire); }

  void reference(uint32_t slot) { ++groups_[slot].references; }
  void dereference(uint32_t slot) { --groups_[slot].references; }

  /// What a packet gets from a group.
  struct Choice {
    uint32_t group_handle = 0;
    uint32_t member = kNoSlot;  // in the action-data table; kNoSlot: none active, no fallback
    bool fallback = false;      // the member stands in for those of the group
  };
  /// The member that packets with this hash take: always the same of the same active members. Where
  /// the description names the fields to hash, each member is weighed with the hash and the
  /// heaviest is taken (rendezvous hashing), so that taking one away moves only the packets that
  /// took it. Where a machine computes the hash, the member is the one at hash modulo their number,
  /// in the order in which they were added. False if the table kept changing.
  bool tryChoose(uint32_t slot, uint64_t hash, Choice* choice) const;
  /// The same under the device's mutex.
  Choice choose(uint32_t slot, uint64_t hash) const;

  /// kNoSlot if there is none.
  uint32_t findHandle(uint32_t handle) const;
  uint32_t findId(uint32_t group_id) const { return ids_.find(group_id); }

  const Group& group(uint32_t slot) const { return groups_[slot]; }
  uint32_t handleOf(uint32_t slot) const { return groups_[slot].handle; }
  ActionDataTable& memberTable() { return *members_; }
  const ActionDataTable& memberTable() const { return *members_; }

  bool used(uint32_t slot) const { return slot < end() && groups_[slot].handle != 0; }
  uint32_t end() const { return static_cast<uint32_t>(groups_.size()); }
  uint32_t count() const { return count_; }

 private:
  uint32_t limitOf(uint32_t max_members) const {
    return max_members == 0 ? table_.max_members : max_members;
  }

  /// What packets see of a group.
  struct Membership {
    struct Active {
      uint32_t slot;
      uint32_t handle;  // what the choice goes by: the same on every device
    };
    uint32_t group_handle;
    std::vector<Active> active;
  };
  void publish(uint32_t slot);
  static uint32_t heaviest(const Membership& membership, uint32_t hash);

  const Table& table_;
  ActionDataTable* members_;
  Reclaimer* reclaimer_;
  std::deque<Group> groups_;
  std::vector<uint32_t> free_;
  uint32_t count_ = 0;
  GrowingArray<const Membership> published_;  // as groups_
  HandleSpace handles_;
  IdIndex ids_;
  std::atomic<uint32_t> fallback_{kNoSlot};
  Sequence sequence_;  // memberships and the fallback belong together
};

}  // namespace jxmodel
