#include "JexPartnerLibMatchTable.h"

#include <cstring>

#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibServer.h"
#include "JexPartnerLibStop.h"
#include "jxsdk/drv.h"

namespace PartnerLib {
namespace {

/// Word of a group-create update that held the Partner's array pointer.
constexpr size_t GROUP_ELEMENTS_WORD = 5;

/// One received update as its operation sees it.
struct Update {
  pipe_plcmt_info* info;
  const uint8_t* body;  ///< parameter words, then packed data or elements
  uint32_t pipe;
  const void* data;  ///< unpacked placement data, null for an operation without

  uint32_t w(size_t index) const {
    uint32_t word = 0;
    memcpy(&word, body + index * WORD_SIZE, sizeof(word));
    return word;
  }

  /// The elements of a group that is created: they lie behind its words.
  const pipe_sel_element* elements() const {
    return reinterpret_cast<const pipe_sel_element*>(body + (GROUP_ELEMENTS_WORD + 1) * WORD_SIZE);
  }
};

/// How one type of update is replayed: its SDK operation and the texts of its failures.
struct StepRow {
  size_t words;            ///< parameter words in front of the packed data
  const char* sizeText;    ///< null for an update without packed data
  const char* unpackText;  ///< null for an update without packed data
  const char* operationText;
  pipe_status_t (*operation)(const Update& u);
};

constexpr StepRow MATCH_ADD = {
    11,
    "invalid size in plcmt Unpack failed match add returns: ",
    "Unable to Unpack(bad data) failed match add returns: ",
    "Table add failed match add returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_mat_add(u.info, u.w(0), u.pipe, u.w(2), u.w(7), u.w(4), u.data);
    },
};
constexpr StepRow MATCH_SET_DEFAULT = {
    9,
    "invalid size in plcmt Unpack failed match setdefault returns: ",
    "Unable to Unpack(bad data) failed match setdefault returns: ",
    "Table setdefault failed match returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_mat_set_dflt(u.info, u.w(0), u.pipe, u.w(5), u.w(2), u.data);
    },
};
constexpr StepRow MATCH_CLEAR_DEFAULT = {
    1,
    nullptr,
    nullptr,
    "Table cleardefault failed match returns: ",
    [](const Update& u) { return pipe_set_one_plcmt_op_mat_clr_dflt(u.info, u.w(0), u.pipe); },
};
constexpr StepRow MATCH_DELETE = {
    1,
    nullptr,
    nullptr,
    "HW op failed match del returns: ",
    [](const Update& u) { return pipe_set_one_plcmt_op_mat_del(u.info, u.w(0)); },
};
constexpr StepRow MATCH_MODIFY = {
    9,
    "invalid size in plcmt Unpack failed match mod returns: ",
    "Unable to Unpack(bad data) failed match mod returns: ",
    "Table mod failed match mod returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_mat_mod(u.info, u.w(0), u.w(5), u.w(2), u.data);
    },
};
constexpr StepRow MATCH_MOVE = {
    10,
    "invalid size in plcmt Unpack failed match move returns: ",
    "Unable to Unpack(bad data) failed match mov returns: ",
    "Table move failed match mov returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_mat_mov(u.info, u.w(0), u.w(1), u.w(6), u.w(3), u.data);
    },
};

constexpr StepRow ADT_ADD = {
    2,
    "invalid size in plcmt Unpack failed adt add returns: ",
    "Unable to Unpack(bad data) failed adt add returns: ",
    "ADT Plcmt failed adt add returns: ",
    [](const Update& u) { return pipe_set_one_plcmt_op_adt_add(u.info, u.w(0), u.pipe, u.data); },
};
constexpr StepRow ADT_DELETE = {
    1,
    nullptr,
    nullptr,
    "ADT Plcmt failed adt del returns: ",
    [](const Update& u) { return pipe_set_one_plcmt_op_adt_del(u.info, u.w(0)); },
};
constexpr StepRow ADT_MODIFY = {
    2,
    "invalid size in plcmt Unpack failed adt mod returns: ",
    "Unable to Unpack(bad data) failed adt mod returns: ",
    "ADT Plcmt failed adt mod returns: ",
    [](const Update& u) { return pipe_set_one_plcmt_op_adt_mod(u.info, u.w(0), u.data); },
};

constexpr StepRow SEL_CREATE = {
    6,
    nullptr,
    nullptr,
    "SEL Group create Failed returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_sel_grp_create(u.info, u.w(0), u.pipe, u.w(2), u.w(1), u.w(3),
                                                  u.w(4), u.elements());
    },
};
constexpr StepRow SEL_DESTROY = {
    1,
    nullptr,
    nullptr,
    "SEL Group delete Failed returns: ",
    [](const Update& u) { return pipe_set_one_plcmt_op_sel_grp_destroy(u.info, u.w(0), u.pipe); },
};
constexpr StepRow SEL_ADD = {
    5,
    "invalid size in plcmt Unpack failed sel update add returns: ",
    "Unable to Unpack(bad data) failed sel update add returns: ",
    "SEL update add Failed returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_sel_add(u.info, u.w(0), u.w(1), u.pipe, u.w(2), u.w(3), u.data);
    },
};
constexpr StepRow SEL_DELETE = {
    4,
    nullptr,
    nullptr,
    "SEL update delete Failed returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_sel_del(u.info, u.w(0), u.w(1), u.pipe, u.w(2), u.w(3));
    },
};
constexpr StepRow SEL_ACTIVATE = {
    4,
    nullptr,
    nullptr,
    "SEL update activate Failed returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_sel_activate(u.info, u.w(0), u.w(1), u.pipe, u.w(2), u.w(3));
    },
};
constexpr StepRow SEL_DEACTIVATE = {
    4,
    nullptr,
    nullptr,
    "SEL update deactivate Failed returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_sel_deactivate(u.info, u.w(0), u.w(1), u.pipe, u.w(2), u.w(3));
    },
};
constexpr StepRow SEL_SET_FALLBACK = {
    2,
    "invalid size in plcmt Unpack failed sel set fallback returns: ",
    "Unable to Unpack(bad data) failed sel set fallback returns: ",
    "SEL set fallback Failed returns: ",
    [](const Update& u) {
      return pipe_set_one_plcmt_op_sel_set_fallback(u.info, u.w(0), u.pipe, u.data);
    },
};
constexpr StepRow SEL_CLEAR_FALLBACK = {
    0,
    nullptr,
    nullptr,
    "SEL clear fallback Failed returns: ",
    [](const Update& u) { return pipe_set_one_plcmt_op_sel_clr_fallback(u.info, u.pipe); },
};

/// What a handler's processing says when it fails.
struct ProcessTexts {
  const char* failed;
  bool failedNamesStatus;
  const char* count;
};

constexpr ProcessTexts MATCH_TEXTS = {"Match Table plcmt failed returns: ", true,
                                      "Match Table processed message incorrect count processed: "};
// The only one that does not name the status.
constexpr ProcessTexts ADT_TEXTS = {"ADT plcmt failed", false,
                                    "ADT processed message incorrect count processed: "};
constexpr ProcessTexts SEL_TEXTS = {"SEL plcmt failed returns: ", true,
                                    "SEL processed message incorrect count processed: "};

uint8_t* bodyOf(const UpdateHeader_t* record) {
  return reinterpret_cast<uint8_t*>(const_cast<UpdateHeader_t*>(record + 1));
}

/// Unpacks the data behind the words into a fresh array. Stops are made at `at`, on behalf of the
/// step; so are those of the functions below.
uint8_t* unpack(const UpdateHeader_t* record, const StepRow& row, const StopPlace& at) {
  const uint8_t* packed = bodyOf(record) + row.words * WORD_SIZE;
  size_t size = 0;
  jx_status_t sts = jx_drv_plcmt_unpack_data_size(packed, &size);
  if (sts != JX_SUCCESS) {
    PARTNER_STOP_AT(at, "sts == JX_SUCCESS", row.sizeText, statusText(sts));
  }
  auto* data = new uint8_t[size];
  sts = jx_drv_plcmt_copy_unpack(packed, data);
  if (sts != JX_SUCCESS) {
    PARTNER_STOP_AT(at, "sts == JX_SUCCESS", row.unpackText, statusText(sts));
  }
  return data;
}

/// Makes the placement info and sets its one operation.
void place(const UpdateHeader_t* record, const StepRow& row, const uint8_t* data,
           pipe_plcmt_info** info, const StopPlace& at) {
  *info = pipe_create_plcmt_info();
  const pipe_status_t status =
      row.operation({*info, bodyOf(record), record->dev_tgt.dev_pipe_id, data});
  if (status != PIPE_SUCCESS) {
    PARTNER_STOP_AT(at, "status == JX_SUCCESS", row.operationText, statusText(status));
  }
}

/// A step with placement data.
void unpackAndPlace(const UpdateHeader_t* record, const StepRow& row, uint8_t** data,
                    pipe_plcmt_info** info, const StopPlace& at) {
  *data = unpack(record, row, at);
  place(record, row, *data, info, at);
}

/// Processes the info on the device, destroys it, then frees the data that it refers to. Without an
/// info there is nothing to process.
void process(uint8_t dev_id, uint32_t sess_hdl, const UpdateHeader_t* record, pipe_plcmt_info* info,
             const uint8_t* data, const ProcessTexts& texts, const StopPlace& at) {
  if (info != nullptr) {
    uint32_t num_processed = 0;
    const pipe_status_t status =
        pipe_process_plcmt_info(sess_hdl, dev_id, record->tbl_hdl, info, 0, &num_processed);
    if (status != PIPE_SUCCESS) {
      PARTNER_STOP_AT(at, "status == JX_SUCCESS", texts.failed,
                      texts.failedNamesStatus ? statusText(status) : "");
    }
    if (num_processed != 1) {
      PARTNER_STOP_AT(at, "num_processed == 1", texts.count, num_processed);
    }
    pipe_destroy_plcmt_info(info);
  }
  delete[] data;
}

}  // namespace

void matchTableDeserialize(uint8_t dev_id, uint32_t sess_hdl, const void* record, size_t size) {
  const auto* rec = static_cast<const MatStruct_Header_t*>(record);
  pipe_plcmt_info* info = nullptr;
  uint8_t* data = nullptr;
  switch (rec->update_type) {
    case PIPE_MAT_UPDATE_ADD:
      matchTableAddOneEntry(rec, &data, &info, size);
      break;
    case PIPE_MAT_UPDATE_SET_DFLT:
      matchTableSetDefaultEntry(rec, &data, &info, size);
      break;
    case PIPE_MAT_UPDATE_CLR_DFLT:
      matchTableClearDefaultEntry(rec, &info, size);
      break;
    case PIPE_MAT_UPDATE_DEL:
      matchTableDelOneEntry(rec, &info, size);
      break;
    case PIPE_MAT_UPDATE_MOD:
      matchTableModOneEntry(rec, &data, &info, size);
      break;
    case PIPE_MAT_UPDATE_MOV:
      matchTableMoveOneEntry(rec, &data, &info, size);
      break;
    default:
      PARTNER_STOP("false", "unhandled update type ", uint32_t{rec->update_type});
  }
  process(dev_id, sess_hdl, rec, info, data, MATCH_TEXTS, PARTNER_HERE);
}

void matchTableAddOneEntry(const MatStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info,
                           size_t) {
  unpackAndPlace(record, MATCH_ADD, data, info, PARTNER_HERE);
}

void matchTableSetDefaultEntry(const MatStruct_Header_t* record, uint8_t** data,
                               pipe_plcmt_info** info, size_t) {
  unpackAndPlace(record, MATCH_SET_DEFAULT, data, info, PARTNER_HERE);
}

void matchTableClearDefaultEntry(const MatStruct_Header_t* record, pipe_plcmt_info** info, size_t) {
  place(record, MATCH_CLEAR_DEFAULT, nullptr, info, PARTNER_HERE);
}

void matchTableDelOneEntry(const MatStruct_Header_t* record, pipe_plcmt_info** info, size_t) {
  place(record, MATCH_DELETE, nullptr, info, PARTNER_HERE);
}

void matchTableModOneEntry(const MatStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info,
                           size_t) {
  unpackAndPlace(record, MATCH_MODIFY, data, info, PARTNER_HERE);
}

void matchTableMoveOneEntry(const MatStruct_Header_t* record, uint8_t** data,
                            pipe_plcmt_info** info, size_t) {
  unpackAndPlace(record, MATCH_MOVE, data, info, PARTNER_HERE);
}

void adtDeserialize(uint8_t dev_id, uint32_t sess_hdl, const void* record, size_t size) {
  static_cast<void>(size);
  const auto* rec = static_cast<const AdtStruct_Header_t*>(record);
  pipe_plcmt_info* info = nullptr;
  uint8_t* data = nullptr;
  switch (rec->update_type) {
    case PIPE_ADT_UPDATE_ADD:
      adtAddOneEntry(rec, &data, &info);
      break;
    case PIPE_ADT_UPDATE_DEL:
      adtDelOneEntry(rec, &info);
      break;
    case PIPE_ADT_UPDATE_MOD:
      adtModOneEntry(rec, &data, &info);
      break;
    default:
      PARTNER_STOP("false", "Unknown ADT type update_type: ", uint32_t{rec->update_type});
  }
  process(dev_id, sess_hdl, rec, info, data, ADT_TEXTS, PARTNER_HERE);
}

void adtAddOneEntry(const AdtStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info) {
  unpackAndPlace(record, ADT_ADD, data, info, PARTNER_HERE);
}

void adtDelOneEntry(const AdtStruct_Header_t* record, pipe_plcmt_info** info) {
  place(record, ADT_DELETE, nullptr, info, PARTNER_HERE);
}

void adtModOneEntry(const AdtStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info) {
  unpackAndPlace(record, ADT_MODIFY, data, info, PARTNER_HERE);
}

void selDeserialize(uint8_t dev_id, uint32_t sess_hdl, const void* record, size_t size) {
  static_cast<void>(size);
  const auto* rec = static_cast<const SelStruct_Header_t*>(record);
  pipe_plcmt_info* info = nullptr;
  uint8_t* data = nullptr;
  switch (rec->update_type) {
    case PIPE_SEL_UPDATE_GROUP_CREATE:
      selCreateGroup(rec, &info);
      break;
    case PIPE_SEL_UPDATE_GROUP_DESTROY:
      selDeleteGroup(rec, &info);
      break;
    case PIPE_SEL_UPDATE_ADD:
      selUpdateAdd(rec, &data, &info);
      break;
    case PIPE_SEL_UPDATE_DEL:
      selUpdateDel(rec, &info);
      break;
    case PIPE_SEL_UPDATE_ACTIVATE:
      selUpdateActivate(rec, &info);
      break;
    case PIPE_SEL_UPDATE_DEACTIVATE:
      selUpdateDeactivate(rec, &info);
      break;
    case PIPE_SEL_UPDATE_SET_FALLBACK:
      selSetFallback(rec, &data, &info);
      break;
    case PIPE_SEL_UPDATE_CLR_FALLBACK:
      selClearFallback(rec, &info);
      break;
    default:
      PARTNER_STOP("false", "Unknown SEL type update_type: ", uint32_t{rec->update_type});
  }
  process(dev_id, sess_hdl, rec, info, data, SEL_TEXTS, PARTNER_HERE);
}

void selCreateGroup(const SelStruct_Header_t* record, pipe_plcmt_info** info) {
  // The word of the Partner's array pointer gets the address of the elements in this process, of
  // which it holds the low 32 bits; the operation gets the address itself.
  uint8_t* pointerWord = bodyOf(record) + GROUP_ELEMENTS_WORD * WORD_SIZE;
  const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointerWord + WORD_SIZE));
  memcpy(pointerWord, &address, sizeof(address));
  place(record, SEL_CREATE, nullptr, info, PARTNER_HERE);
}

void selDeleteGroup(const SelStruct_Header_t* record, pipe_plcmt_info** info) {
  place(record, SEL_DESTROY, nullptr, info, PARTNER_HERE);
}

void selUpdateAdd(const SelStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info) {
  unpackAndPlace(record, SEL_ADD, data, info, PARTNER_HERE);
}

void selUpdateDel(const SelStruct_Header_t* record, pipe_plcmt_info** info) {
  place(record, SEL_DELETE, nullptr, info, PARTNER_HERE);
}

void selUpdateActivate(const SelStruct_Header_t* record, pipe_plcmt_info** info) {
  place(record, SEL_ACTIVATE, nullptr, info, PARTNER_HERE);
}

void selUpdateDeactivate(const SelStruct_Header_t* record, pipe_plcmt_info** info) {
  place(record, SEL_DEACTIVATE, nullptr, info, PARTNER_HERE);
}

void selSetFallback(const SelStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info) {
  unpackAndPlace(record, SEL_SET_FALLBACK, data, info, PARTNER_HERE);
}

void selClearFallback(const SelStruct_Header_t* record, pipe_plcmt_info** info) {
  place(record, SEL_CLEAR_FALLBACK, nullptr, info, PARTNER_HERE);
}

}  // namespace PartnerLib
