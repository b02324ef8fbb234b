#include "JexPartnerLibMatchCallback.h"

#include <cstring>
#include <vector>

#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibSocket.h"
#include "JexPartnerLibStop.h"
#include "JexPartnerLibUpdates.h"
#include "jxsdk/drv.h"

namespace PartnerLib {
namespace {

/// The pointer whose first word is the last of `words` parameter words.
const void* lastPointer(const void* params, size_t words) {
  const void* pointer = nullptr;
  memcpy(&pointer, static_cast<const uint8_t*>(params) + (words - 1) * kWordSize, sizeof(pointer));
  return pointer;
}

/// Bytes of the elements of a group that is created.
uint64_t elementsSize(const void* params) {
  const auto* create = static_cast<const pipe_sel_create_params*>(params);
  return uint64_t{create->num_elements} * sizeof(pipe_sel_element);
}

/// A table-update message of any length.
struct UpdateBuffer {
  UpdateMsg_t head;
  uint8_t body[PACK_BUFFER_SIZE - sizeof(UpdateMsg_t)];
};
static_assert(sizeof(UpdateBuffer) == PACK_BUFFER_SIZE);

/// Builds the message of one update and sends it. `update` is the head without the frame's header;
/// stops are made at `place`, on behalf of the callback.
void sendUpdate(PartnerMsgType type, const UpdateHeader_t& update, const UpdateRow& row,
                const void* params, const void* cookie, const StopPlace& place) {
  const void* data = row.tail == Tail::kNone ? nullptr : lastPointer(params, row.words);
  size_t packedSize = 0;
  if (row.tail == Tail::kPacked) {
    const jx_status_t sts = jx_drv_plcmt_pack_data_size(data, &packedSize);
    PARTNER_CHECK_AT(place, sts == JX_SUCCESS, row.sizeText, statusText(sts));
  }
  const uint64_t tailSize =
      row.tail == Tail::kElements ? elementsSize(params) : uint64_t{packedSize};
  const size_t fixed = sizeof(UpdateMsg_t) + row.words * kWordSize;
  const uint64_t len = fixed + tailSize;
  PARTNER_REQUIRE_AT(place, tailSize <= PACK_BUFFER_SIZE - fixed, "len <= PACK_BUFFER_SIZE",
                     row.lengthText, len);

  UpdateBuffer msg;
  msg.head.header.type = type;  // nobody reads the pid of an update: it is not written
  msg.head.header.len = len;
  msg.head.update = update;
  if (row.words != 0) memcpy(msg.body, params, row.words * kWordSize);
  uint8_t* tail = msg.body + row.words * kWordSize;
  if (row.tail == Tail::kPacked) {
    const jx_status_t sts = jx_drv_plcmt_copy_pack(data, tail);
    PARTNER_CHECK_AT(place, sts == JX_SUCCESS, row.packText, statusText(sts));
  } else if (tailSize != 0) {
    memcpy(tail, data, tailSize);
  }
  static_cast<const PartnerMessage*>(cookie)->pSocket_->send(&msg, len);
}

/// Registers the callback that fits `type`. Tables of other types are named and left alone.
jx_status_t registerCallback(const jxrt::JxRtTable& table, jx_rt_table_type_t type,
                             const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                             PartnerMessage* message) {
  switch (type) {
    case JX_RT_TABLE_MATCH_DIRECT:
    case JX_RT_TABLE_MATCH_ACTION_DATA:
    case JX_RT_TABLE_MATCH_SELECTOR:
      return table.matUpdateCbRegister(session, target, packMatchCallback, message);
    case JX_RT_TABLE_ACTION_DATA:
      return table.adtUpdateCbRegister(session, target, packAdtCallback, message);
    case JX_RT_TABLE_SELECTOR:
      return table.selUpdateCbRegister(session, target, packSelCallback, message);
    default:
      writeLine("Ignoring Table type: " + std::to_string(type) + '\n');
      return JX_SUCCESS;
  }
}

void captureTable(const jxrt::JxRtTable& table, const jxrt::JxRtSession& session,
                  const jx_rt_target_t& target, PartnerMessage* message, const StopPlace& place) {
  std::string name;
  table.tableNameGet(&name);
  jx_rt_table_type_t type = {};
  jx_status_t status = table.tableTypeGet(&type);
  if (status == JX_SUCCESS) status = registerCallback(table, type, session, target, message);
  PARTNER_REQUIRE_AT(place, status == JX_SUCCESS, "false", "Failed callback setup on ", name,
                     " type: ", static_cast<unsigned>(type), " status: ", statusText(status));
}

}  // namespace

void callbackSetUp(const jxrt::JxRtSession& session, jx_rt_target_t target,
                   PartnerMessage& message) {
  const jxrt::JxRtDevMgr& devMgr = jxrt::JxRtDevMgr::getInstance();
  std::vector<std::string> names;
  const jx_status_t sts = devMgr.jxRtInfoP4NamesGet(target.dev_id, &names);
  PARTNER_CHECK(sts == JX_SUCCESS, "Unable to get the p4 programs list on ", target.dev_id,
                " returns: ", sts);
  for (const std::string& name : names) {
    const jxrt::JxRtInfo* info = nullptr;
    jx_status_t jx_status = devMgr.jxRtInfoGet(target.dev_id, name, &info);
    PARTNER_CHECK(jx_status == JX_SUCCESS, "Unable to get any jxrtInfo for ", name,
                  " returns: ", jx_status);
    PARTNER_REQUIRE(info != nullptr, "false", "Unable to get jxRTInfo for ", name);
    std::vector<const jxrt::JxRtTable*> tables;
    jx_status = info->tablesGet(&tables);
    PARTNER_CHECK(jx_status == JX_SUCCESS, "Unable to get any jxrtInfo for ", name,
                  " returns: ", jx_status);
    for (const jxrt::JxRtTable* table : tables)
      captureTable(*table, session, target, &message, PARTNER_HERE);
  }
}

void packMatchCallback(jx_dev_target_t dev_tgt, pipe_tbl_hdl_t tbl_hdl,
                       pipe_mat_update_type update_type, pipe_mat_update_params* params,
                       void* cookie) {
  const UpdateRow* row = findRow(kMatchUpdates, update_type);
  PARTNER_REQUIRE(row != nullptr, "false", "Unsupported Match Callback on type ",
                  static_cast<uint32_t>(update_type));
  sendUpdate(MSG_MATCH_TABLE, {dev_tgt, tbl_hdl, update_type}, *row, params, cookie, PARTNER_HERE);
}

void packAdtCallback(jx_dev_target_t dev_tgt, pipe_tbl_hdl_t tbl_hdl,
                     pipe_adt_update_type update_type, pipe_adt_update_params* params,
                     void* cookie) {
  const UpdateRow* row = findRow(kAdtUpdates, update_type);
  PARTNER_REQUIRE(row != nullptr, "false", "Unsupported ADT Callback on type ",
                  static_cast<uint32_t>(update_type));
  sendUpdate(MSG_ADT, {dev_tgt, tbl_hdl, update_type}, *row, params, cookie, PARTNER_HERE);
}

void packSelCallback(jx_dev_target_t dev_tgt, pipe_tbl_hdl_t tbl_hdl,
                     pipe_sel_update_type update_type, pipe_sel_update_params* params,
                     void* cookie) {
  const UpdateRow* row = findRow(kSelUpdates, update_type);
  PARTNER_REQUIRE(row != nullptr, "false",
                  "Unknown SEL type update_type: ", static_cast<uint32_t>(update_type));
  sendUpdate(MSG_SEL, {dev_tgt, tbl_hdl, update_type}, *row, params, cookie, PARTNER_HERE);
}

}  // namespace PartnerLib
