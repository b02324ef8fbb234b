#include "unit/model/twin.h"

#include <memory>

#include "jxsdk/drv.h"

namespace jxmodeltest {
namespace {

template <typename Type, typename Params, void (Twin::*kHandle)(pipe_tbl_hdl_t, Type, Params*)>
void forward(jx_dev_target_t target, pipe_tbl_hdl_t table, Type type, Params* params,
             void* cookie) {
  EXPECT_EQ(target.device_id, Twin::kVirtual);
  EXPECT_EQ(target.dev_pipe_id, JX_PIPE_ALL);
  (static_cast<Twin*>(cookie)->*kHandle)(table, type, params);
}

}  // namespace

Twin::Twin(std::vector<std::shared_ptr<const jxmodel::Program>> programs, uint32_t handle_base)
    : physical(kPhysical, ModelDevice::Kind::kPhysical, programs),
      virt(kVirtual, ModelDevice::Kind::kVirtual, programs, handle_base),
      session_(jxrt::JxRtSession::sessionCreate()) {
  for (const jxrt::JxRtTable* table : virt.tables()) {
    jx_rt_table_type_t type;
    table->tableTypeGet(&type);
    const auto& session = *session_;
    switch (type) {
      case JX_RT_TABLE_ACTION_DATA:
        table->adtUpdateCbRegister(
            session, virt.target(),
            forward<pipe_adt_update_type, pipe_adt_update_params, &Twin::onMember>, this);
        break;
      case JX_RT_TABLE_SELECTOR:
        table->selUpdateCbRegister(
            session, virt.target(),
            forward<pipe_sel_update_type, pipe_sel_update_params, &Twin::onGroup>, this);
        break;
      case JX_RT_TABLE_COUNTER:
        break;
      default:
        table->matUpdateCbRegister(
            session, virt.target(),
            forward<pipe_mat_update_type, pipe_mat_update_params, &Twin::onMatch>, this);
    }
  }
}

const void* Twin::carried(const void* data) {
  EXPECT_EQ(jx_drv_plcmt_pack_data_size(data, &packed_bytes), JX_SUCCESS);
  // One byte in front: packed bytes need no alignment.
  const auto packed = std::make_unique<uint8_t[]>(packed_bytes + 1);
  EXPECT_EQ(jx_drv_plcmt_copy_pack(data, packed.get() + 1), JX_SUCCESS);
  size_t unpacked_bytes = 0;
  EXPECT_EQ(jx_drv_plcmt_unpack_data_size(packed.get() + 1, &unpacked_bytes), JX_SUCCESS);
  unpacked_.assign((unpacked_bytes + 7) / 8, 0);
  auto* const unpacked = reinterpret_cast<uint8_t*>(unpacked_.data());
  EXPECT_EQ(jx_drv_plcmt_copy_unpack(packed.get() + 1, unpacked), JX_SUCCESS);
  return unpacked;
}

void Twin::process(pipe_tbl_hdl_t table, pipe_plcmt_info* info) {
  uint32_t processed = 0;
  EXPECT_EQ(
      pipe_process_plcmt_info(session_->sessHandleGet(), kPhysical, table, info, 0, &processed),
      JX_SUCCESS)
      << "of " << reported.back();
  EXPECT_EQ(processed, 1U);
  pipe_destroy_plcmt_info(info);
}

void Twin::onMatch(pipe_tbl_hdl_t table, pipe_mat_update_type type,
                   pipe_mat_update_params* params) {
  reported.push_back("match " + std::to_string(type));
  packed_bytes = 0;
  const uint32_t* w = params->words;
  words.assign(w, w + 10);
  pipe_plcmt_info* const info = pipe_create_plcmt_info();
  jx_status_t status = JX_UNEXPECTED_ERROR;
  switch (type) {
    case PIPE_MAT_UPDATE_ADD:
      status = pipe_set_one_plcmt_op_mat_add(info, w[0], JX_PIPE_ALL, w[2], w[7], w[4],
                                             carried(params->add.data));
      break;
    case PIPE_MAT_UPDATE_SET_DFLT:
      status = pipe_set_one_plcmt_op_mat_set_dflt(info, w[0], JX_PIPE_ALL, w[5], w[2],
                                                  carried(params->set_dflt.data));
      break;
    case PIPE_MAT_UPDATE_CLR_DFLT:
      status = pipe_set_one_plcmt_op_mat_clr_dflt(info, w[0], JX_PIPE_ALL);
      break;
    case PIPE_MAT_UPDATE_DEL:
      status = pipe_set_one_plcmt_op_mat_del(info, w[0]);
      break;
    case PIPE_MAT_UPDATE_MOD:
      status = pipe_set_one_plcmt_op_mat_mod(info, w[0], w[5], w[2], carried(params->mod.data));
      break;
    case PIPE_MAT_UPDATE_MOV:
      status =
          pipe_set_one_plcmt_op_mat_mov(info, w[0], w[1], w[6], w[3], carried(params->mov.data));
      break;
    default:
      break;
  }
  EXPECT_EQ(status, JX_SUCCESS);
  process(table, info);
}

void Twin::onMember(pipe_tbl_hdl_t table, pipe_adt_update_type type,
                    pipe_adt_update_params* params) {
  reported.push_back("adt " + std::to_string(type));
  packed_bytes = 0;
  words = {params->words[0]};
  pipe_plcmt_info* const info = pipe_create_plcmt_info();
  jx_status_t status = JX_UNEXPECTED_ERROR;
  switch (type) {
    case PIPE_ADT_UPDATE_ADD:
      status =
          pipe_set_one_plcmt_op_adt_add(info, words[0], JX_PIPE_ALL, carried(params->add.data));
      break;
    case PIPE_ADT_UPDATE_DEL:
      status = pipe_set_one_plcmt_op_adt_del(info, words[0]);
      break;
    case PIPE_ADT_UPDATE_MOD:
      status = pipe_set_one_plcmt_op_adt_mod(info, words[0], carried(params->mod.data));
      break;
    default:
      break;
  }
  EXPECT_EQ(status, JX_SUCCESS);
  process(table, info);
}

void Twin::onGroup(pipe_tbl_hdl_t table, pipe_sel_update_type type,
                   pipe_sel_update_params* params) {
  reported.push_back("sel " + std::to_string(type));
  packed_bytes = 0;
  const uint32_t* w = params->words;
  words.assign(w, w + 5);
  pipe_plcmt_info* const info = pipe_create_plcmt_info();
  jx_status_t status = JX_UNEXPECTED_ERROR;
  switch (type) {
    case PIPE_SEL_UPDATE_GROUP_CREATE:
      status = pipe_set_one_plcmt_op_sel_grp_create(info, w[0], JX_PIPE_ALL, w[2], w[1], w[3], w[4],
                                                    params->grp_create.elements);
      break;
    case PIPE_SEL_UPDATE_GROUP_DESTROY:
      status = pipe_set_one_plcmt_op_sel_grp_destroy(info, w[0], JX_PIPE_ALL);
      break;
    case PIPE_SEL_UPDATE_ADD:
      status = pipe_set_one_plcmt_op_sel_add(info, w[0], w[1], JX_PIPE_ALL, w[2], w[3],
                                             carried(params->add.data));
      break;
    case PIPE_SEL_UPDATE_DEL:
      status = pipe_set_one_plcmt_op_sel_del(info, w[0], w[1], JX_PIPE_ALL, w[2], w[3]);
      break;
    case PIPE_SEL_UPDATE_ACTIVATE:
      status = pipe_set_one_plcmt_op_sel_activate(info, w[0], w[1], JX_PIPE_ALL, w[2], w[3]);
      break;
    case PIPE_SEL_UPDATE_DEACTIVATE:
      status = pipe_set_one_plcmt_op_sel_deactivate(info, w[0], w[1], JX_PIPE_ALL, w[2], w[3]);
      break;
    case PIPE_SEL_UPDATE_SET_FALLBACK:
      status = pipe_set_one_plcmt_op_sel_set_fallback(info, w[0], JX_PIPE_ALL,
                                                      carried(params->set_fallback.data));
      break;
    case PIPE_SEL_UPDATE_CLR_FALLBACK:
      status = pipe_set_one_plcmt_op_sel_clr_fallback(info, JX_PIPE_ALL);
      break;
    default:
      break;
  }
  EXPECT_EQ(status, JX_SUCCESS);
  process(table, info);
}

}  // namespace jxmodeltest
