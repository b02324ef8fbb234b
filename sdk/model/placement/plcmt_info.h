// One placement operation on its way into a physical device.
#pragma once

#include <cstdint>

#include "jxsdk/pipe_mgr.h"
#include "model/placement/placement.h"
#include "model/tables/table_state.h"

namespace jxmodel {

enum class PlcmtOp : uint8_t {
  kNone,
  kMatAdd,
  kMatSetDefault,
  kMatClearDefault,
  kMatDelete,
  kMatModify,
  kMatMove,
  kAdtAdd,
  kAdtDelete,
  kAdtModify,
  kSelCreate,
  kSelDestroy,
  kSelAdd,
  kSelDelete,
  kSelActivate,
  kSelDeactivate,
  kSelSetFallback,
  kSelClearFallback,
};

}  // namespace jxmodel

/// The operation and those of its arguments that it has. Pipes are not kept: the tables of the
/// model are the same in all pipes.
struct pipe_plcmt_info {
  jxmodel::PlcmtOp op = jxmodel::PlcmtOp::kNone;
  uint32_t handle = 0;  // of the match entry, the member, or the group
  uint32_t priority = 0;
  pipe_sel_grp_hdl_t sel_grp_hdl = 0;  // that a match entry refers to
  pipe_adt_ent_hdl_t adt_ent_hdl = 0;  // that a match entry refers to, or of a group's member
  pipe_tbl_hdl_t adt_tbl_hdl = 0;
  uint32_t active = 0;
  uint32_t group_id = 0;
  uint32_t max_members = 0;
  uint32_t num_elements = 0;
  const pipe_sel_element* elements = nullptr;  // may be unaligned
  jxmodel::Placement placement{};              // a view of the caller's data
};

namespace jxmodel {

/// Applies the operation to a table of a physical device, or changes nothing. The device's
/// mutex is held.
jx_status_t processPlacement(TableState& state, const pipe_plcmt_info& info);

}  // namespace jxmodel
