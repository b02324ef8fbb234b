// The members of one action-data table: actions with parameters that entries, groups and fallbacks
// refer to.
//
// Thread safety: the device's mutex is held over all calls but actionOf() and handleOf(), which
// packets may call in a ReadSection for slots that they found. All writes check first and change
// nothing on failure.
#pragma once

#include <cstdint>
#include <optional>

#include "model/program/program.h"
#include "model/tables/bound_action.h"
#include "model/tables/handle_space.h"
#include "model/tables/id_index.h"
#include "model/tables/slot_store.h"

namespace jxmodel {

class ActionDataTable {
 public:
  ActionDataTable(const Program& program, const Table& table, std::optional<uint32_t> handle_base,
                  Reclaimer* reclaimer = nullptr);
  ~ActionDataTable();

  /// Adds a member. `handle` is 0 where the device gives handles out. Ids are the writer's own
  /// numbers: unique where there is one writer, that is where the device gives handles out;
  /// elsewhere writers may use the same.
  jx_status_t add(uint32_t handle, uint32_t member_id, const BoundAction& action, uint32_t* slot);
  void modify(uint32_t slot, const BoundAction& action);
  /// JX_ACTION_DATA_REFERENCED while something refers to the member.
  jx_status_t remove(uint32_t slot);

  void reference(uint32_t slot) { ++member(slot).references; }
  void dereference(uint32_t slot) { --member(slot).references; }

  /// kNoSlot if there is none.
  uint32_t findHandle(uint32_t handle) const;
  uint32_t findId(uint32_t member_id) const { return ids_.find(member_id); }

  uint32_t handleOf(uint32_t slot) const { return store_.record(slot).handle; }
  uint32_t idOf(uint32_t slot) const { return member(slot).id; }
  BoundAction actionOf(uint32_t slot) const {
    return member(slot).action.load(std::memory_order_acquire)->bound();
  }

  bool used(uint32_t slot) const { return store_.used(slot); }
  uint32_t end() const { return store_.end(); }
  uint32_t count() const { return store_.count(); }

 private:
  struct Member : Record {
    uint32_t id;
    uint32_t references;
    std::atomic<const ActionRecord*> action;  // replaced as a whole
  };
  Member& member(uint32_t slot) { return *reinterpret_cast<Member*>(store_.at(slot)); }
  const Member& member(uint32_t slot) const {
    return *reinterpret_cast<const Member*>(store_.at(slot));
  }

  Reclaimer* reclaimer_;
  SlotStore store_;
  HandleSpace handles_;
  IdIndex ids_;
};

}  // namespace jxmodel
