// The pipeline manager: bring-up, placement infos, and the way of an operation to its device.
#include "jxsdk/pipe_mgr.h"

#include <memory>
#include <new>
#include <vector>

#include "model/base/faults.h"
#include "model/device/registry.h"
#include "model/placement/plcmt_info.h"
#include "model/runtime/session.h"

namespace jxmodel {
namespace {

/// Placement infos that this thread has given back: an update makes one and gives it back.
class InfoPool {
 public:
  pipe_plcmt_info* take() {
    if (free_.empty()) return new (std::nothrow) pipe_plcmt_info;
    pipe_plcmt_info* const info = free_.back().release();
    free_.pop_back();
    *info = pipe_plcmt_info{};
    return info;
  }
  void give(pipe_plcmt_info* info) {
    std::unique_ptr<pipe_plcmt_info> owned(info);
    if (free_.size() < kKept) free_.push_back(std::move(owned));
  }

 private:
  static constexpr size_t kKept = 16;
  std::vector<std::unique_ptr<pipe_plcmt_info>> free_;
};

InfoPool& infoPool() {
  thread_local InfoPool pool;
  return pool;
}

/// Gives the info its operation, which it has to be without.
jx_status_t begin(pipe_plcmt_info* info, PlcmtOp op) {
  if (info == nullptr) return JX_INVALID_ARGUMENTS;
  if (info->op != PlcmtOp::kNone) return JX_ALREADY_EXISTS;
  info->op = op;
  return JX_SUCCESS;
}

/// The same for an operation with data of this kind.
jx_status_t begin(pipe_plcmt_info* info, PlcmtOp op, const void* data, PlacementKind kind) {
  Placement placement;
  if (!readPlacement(data, &placement) || placement.header.kind != kind) {
    return JX_INVALID_ARGUMENTS;
  }
  const jx_status_t status = begin(info, op);
  if (status == JX_SUCCESS) info->placement = placement;
  return status;
}

jx_status_t beginHandle(pipe_plcmt_info* info, PlcmtOp op, uint32_t handle) {
  const jx_status_t status = begin(info, op);
  if (status == JX_SUCCESS) info->handle = handle;
  return status;
}

/// Match operations with data.
jx_status_t beginMatch(pipe_plcmt_info* info, PlcmtOp op, uint32_t handle, uint32_t priority,
                       pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                       const void* data) {
  const PlacementKind kind =
      op == PlcmtOp::kMatSetDefault ? PlacementKind::kMatchDefault : PlacementKind::kMatch;
  const jx_status_t status = begin(info, op, data, kind);
  if (status != JX_SUCCESS) return status;
  info->handle = handle;
  info->priority = priority;
  info->sel_grp_hdl = sel_grp_hdl;
  info->adt_ent_hdl = adt_ent_hdl;
  return JX_SUCCESS;
}

/// Operations on one member of a group, without data.
jx_status_t beginGroupMember(pipe_plcmt_info* info, PlcmtOp op, pipe_sel_grp_hdl_t grp_hdl,
                             pipe_adt_ent_hdl_t adt_ent_hdl, pipe_tbl_hdl_t adt_tbl_hdl) {
  const jx_status_t status = begin(info, op);
  if (status != JX_SUCCESS) return status;
  info->handle = grp_hdl;
  info->adt_ent_hdl = adt_ent_hdl;
  info->adt_tbl_hdl = adt_tbl_hdl;
  return JX_SUCCESS;
}

}  // namespace
}  // namespace jxmodel

using namespace jxmodel;  // the functions below are this file's C face

pipe_status_t pipe_mgr_init(void) {
  JXMODEL_ENTRY("pipe_mgr_init");
  return bringUp(BringUp::kPipeManager);
}

pipe_plcmt_info* pipe_create_plcmt_info(void) {
  if (fault::check("pipe_create_plcmt_info").isNull()) return nullptr;
  return infoPool().take();
}

void pipe_destroy_plcmt_info(pipe_plcmt_info* info) {
  (void)fault::check("pipe_destroy_plcmt_info");
  if (info != nullptr) infoPool().give(info);
}

pipe_status_t pipe_set_one_plcmt_op_mat_add(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                            uint32_t, uint32_t priority,
                                            pipe_sel_grp_hdl_t sel_grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, const void* data) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_mat_add");
  return beginMatch(info, PlcmtOp::kMatAdd, ent_hdl, priority, sel_grp_hdl, adt_ent_hdl, data);
}

pipe_status_t pipe_set_one_plcmt_op_mat_set_dflt(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                                 uint32_t, pipe_sel_grp_hdl_t sel_grp_hdl,
                                                 pipe_adt_ent_hdl_t adt_ent_hdl, const void* data) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_mat_set_dflt");
  return beginMatch(info, PlcmtOp::kMatSetDefault, ent_hdl, 0, sel_grp_hdl, adt_ent_hdl, data);
}

pipe_status_t pipe_set_one_plcmt_op_mat_clr_dflt(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                                 uint32_t) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_mat_clr_dflt");
  return beginHandle(info, PlcmtOp::kMatClearDefault, ent_hdl);
}

pipe_status_t pipe_set_one_plcmt_op_mat_del(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_mat_del");
  return beginHandle(info, PlcmtOp::kMatDelete, ent_hdl);
}

pipe_status_t pipe_set_one_plcmt_op_mat_mod(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                            pipe_sel_grp_hdl_t sel_grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, const void* data) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_mat_mod");
  return beginMatch(info, PlcmtOp::kMatModify, ent_hdl, 0, sel_grp_hdl, adt_ent_hdl, data);
}

pipe_status_t pipe_set_one_plcmt_op_mat_mov(pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl,
                                            uint32_t priority, pipe_sel_grp_hdl_t sel_grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, const void* data) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_mat_mov");
  return beginMatch(info, PlcmtOp::kMatMove, ent_hdl, priority, sel_grp_hdl, adt_ent_hdl, data);
}

pipe_status_t pipe_set_one_plcmt_op_adt_add(pipe_plcmt_info* info, pipe_adt_ent_hdl_t ent_hdl,
                                            uint32_t, const void* data) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_adt_add");
  const jx_status_t status = begin(info, PlcmtOp::kAdtAdd, data, PlacementKind::kMember);
  if (status == JX_SUCCESS) info->handle = ent_hdl;
  return status;
}

pipe_status_t pipe_set_one_plcmt_op_adt_del(pipe_plcmt_info* info, pipe_adt_ent_hdl_t ent_hdl) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_adt_del");
  return beginHandle(info, PlcmtOp::kAdtDelete, ent_hdl);
}

pipe_status_t pipe_set_one_plcmt_op_adt_mod(pipe_plcmt_info* info, pipe_adt_ent_hdl_t ent_hdl,
                                            const void* data) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_adt_mod");
  const jx_status_t status = begin(info, PlcmtOp::kAdtModify, data, PlacementKind::kMember);
  if (status == JX_SUCCESS) info->handle = ent_hdl;
  return status;
}

pipe_status_t pipe_set_one_plcmt_op_sel_grp_create(pipe_plcmt_info* info,
                                                   pipe_sel_grp_hdl_t grp_hdl, uint32_t,
                                                   uint32_t max_members, uint32_t group_id,
                                                   pipe_tbl_hdl_t adt_tbl_hdl,
                                                   uint32_t num_elements,
                                                   const pipe_sel_element* elements) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_sel_grp_create");
  if (num_elements != 0 && elements == nullptr) return JX_INVALID_ARGUMENTS;
  const jx_status_t status = beginHandle(info, PlcmtOp::kSelCreate, grp_hdl);
  if (status != JX_SUCCESS) return status;
  info->max_members = max_members;
  info->group_id = group_id;
  info->adt_tbl_hdl = adt_tbl_hdl;
  info->num_elements = num_elements;
  info->elements = elements;
  return JX_SUCCESS;
}

pipe_status_t pipe_set_one_plcmt_op_sel_grp_destroy(pipe_plcmt_info* info,
                                                    pipe_sel_grp_hdl_t grp_hdl, uint32_t) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_sel_grp_destroy");
  return beginHandle(info, PlcmtOp::kSelDestroy, grp_hdl);
}

pipe_status_t pipe_set_one_plcmt_op_sel_add(pipe_plcmt_info* info, pipe_sel_grp_hdl_t grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t,
                                            pipe_tbl_hdl_t adt_tbl_hdl, uint32_t active,
                                            const void* data) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_sel_add");
  const jx_status_t status = begin(info, PlcmtOp::kSelAdd, data, PlacementKind::kGroupMember);
  if (status != JX_SUCCESS) return status;
  info->handle = grp_hdl;
  info->adt_ent_hdl = adt_ent_hdl;
  info->adt_tbl_hdl = adt_tbl_hdl;
  info->active = active;
  return JX_SUCCESS;
}

// Delete, activate and deactivate carry the state after the update, which their kind says already.

pipe_status_t pipe_set_one_plcmt_op_sel_del(pipe_plcmt_info* info, pipe_sel_grp_hdl_t grp_hdl,
                                            pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t,
                                            pipe_tbl_hdl_t adt_tbl_hdl, uint32_t) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_sel_del");
  return beginGroupMember(info, PlcmtOp::kSelDelete, grp_hdl, adt_ent_hdl, adt_tbl_hdl);
}

pipe_status_t pipe_set_one_plcmt_op_sel_activate(pipe_plcmt_info* info, pipe_sel_grp_hdl_t grp_hdl,
                                                 pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t,
                                                 pipe_tbl_hdl_t adt_tbl_hdl, uint32_t) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_sel_activate");
  return beginGroupMember(info, PlcmtOp::kSelActivate, grp_hdl, adt_ent_hdl, adt_tbl_hdl);
}

pipe_status_t pipe_set_one_plcmt_op_sel_deactivate(pipe_plcmt_info* info,
                                                   pipe_sel_grp_hdl_t grp_hdl,
                                                   pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t,
                                                   pipe_tbl_hdl_t adt_tbl_hdl, uint32_t) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_sel_deactivate");
  return beginGroupMember(info, PlcmtOp::kSelDeactivate, grp_hdl, adt_ent_hdl, adt_tbl_hdl);
}

pipe_status_t pipe_set_one_plcmt_op_sel_set_fallback(pipe_plcmt_info* info,
                                                     pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t,
                                                     const void* data) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_sel_set_fallback");
  const jx_status_t status = begin(info, PlcmtOp::kSelSetFallback, data, PlacementKind::kFallback);
  if (status == JX_SUCCESS) info->adt_ent_hdl = adt_ent_hdl;
  return status;
}

pipe_status_t pipe_set_one_plcmt_op_sel_clr_fallback(pipe_plcmt_info* info, uint32_t) {
  JXMODEL_ENTRY("pipe_set_one_plcmt_op_sel_clr_fallback");
  return begin(info, PlcmtOp::kSelClearFallback);
}

pipe_status_t pipe_process_plcmt_info(pipe_sess_hdl_t sess_hdl, jx_dev_id_t dev_id,
                                      pipe_tbl_hdl_t tbl_hdl, pipe_plcmt_info* info, uint32_t flags,
                                      uint32_t* num_processed) {
  const fault::Hit fault = fault::check("pipe_process_plcmt_info");
  if (fault.isStatus()) return fault.status();
  if (info == nullptr || num_processed == nullptr || flags != 0) return JX_INVALID_ARGUMENTS;
  if (!broughtUp(BringUp::kPipeManager)) return JX_NOT_READY;
  if (!sessionLives(sess_hdl)) return JX_SESSION_NOT_FOUND;
  const std::shared_ptr<Device> device = DeviceRegistry::instance().find(dev_id);
  if (device == nullptr) return JX_OBJECT_NOT_FOUND;
  if (device->isVirtual()) return JX_NOT_SUPPORTED;
  TableState* const state = device->findTable(tbl_hdl);
  if (state == nullptr) return JX_TABLE_NOT_FOUND;
  uint32_t processed = 0;
  if (info->op != PlcmtOp::kNone) {
    const MutexLock lock(device->mutex());
    const jx_status_t status = processPlacement(*state, *info);
    if (status != JX_SUCCESS) return status;
    processed = 1;
  }
  *num_processed = fault.isCount() ? fault.value : processed;
  return JX_SUCCESS;
}
