// Reports the writes of a virtual device's table to the placement callback registered on it.
//
// Each method reports one update that has just been stored (or, of what is gone, the handle it
// had). The device's mutex is held over write and report.
#pragma once

#include <cstdint>

#include "jxsdk/pipe_mgr.h"
#include "model/placement/placement.h"
#include "model/tables/table_state.h"

namespace jxmodel {

class UpdateReporter {
 public:
  UpdateReporter(const TableState& state, jx_dev_target_t target)
      : state_(state), target_(target) {}

  void matchAdded(uint32_t slot) const;
  void matchModified(uint32_t slot) const;
  void matchMoved(uint32_t slot) const;
  void matchDeleted(uint32_t handle) const;
  void defaultSet() const;
  void defaultCleared(uint32_t handle) const;

  void memberAdded(uint32_t slot) const;
  void memberModified(uint32_t slot) const;
  void memberDeleted(uint32_t handle) const;

  void groupCreated(uint32_t slot) const;
  void groupDestroyed(uint32_t handle) const;
  /// Members of the group at `slot`, by their slots in the action-data table.
  void groupMemberAdded(uint32_t slot, uint32_t member, bool active) const;
  void groupMemberDeleted(uint32_t slot, uint32_t member) const;
  void groupMemberActivated(uint32_t slot, uint32_t member) const;
  void groupMemberDeactivated(uint32_t slot, uint32_t member) const;
  void fallbackSet(uint32_t member) const;
  void fallbackCleared() const;

 private:
  void report(pipe_mat_update_type type, pipe_mat_update_params* params) const;
  void report(pipe_adt_update_type type, pipe_adt_update_params* params) const;
  void report(pipe_sel_update_type type, pipe_sel_update_params* params) const;

  pipe_mat_action_words actionWords(uint32_t slot, uint32_t key_bytes) const;
  const void* matchData(uint32_t slot, PlacementKind kind) const;
  /// Data of a member, placed in this table as `kind`.
  const void* memberData(const ActionDataTable& members, uint32_t slot, PlacementKind kind) const;
  pipe_sel_member_params memberParams(uint32_t slot, uint32_t member, bool active) const;

  const TableState& state_;
  jx_dev_target_t target_;
};

}  // namespace jxmodel
