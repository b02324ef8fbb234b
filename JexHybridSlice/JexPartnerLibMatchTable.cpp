#include "JexPartnerLibMatchTable.h"

#include <cstring>

#include "JexPartnerLibMatchTypes.h"
#include "JexPartnerLibShared.h"
#include "JexPartnerLibStop.h"
#include "JexPartnerLibUpdates.h"
#include "jxsdk/drv.h"

namespace PartnerLib {
namespace {

/// What a handler's processing says when it fails.
struct ProcessTexts {
  const char* failed;
  bool failedNamesStatus;
  const char* count;
};

constexpr ProcessTexts kMatchTexts = {"Match Table plcmt failed returns: ", true,
                                      "Match Table processed message incorrect count processed: "};
// The only one that does not name the status.
constexpr ProcessTexts kAdtTexts = {"ADT plcmt failed", false,
                                    "ADT processed message incorrect count processed: "};
constexpr ProcessTexts kSelTexts = {"SEL plcmt failed returns: ", true,
                                    "SEL processed message incorrect count processed: "};

uint8_t* bodyOf(const UpdateHeader_t* record) {
  return reinterpret_cast<uint8_t*>(const_cast<UpdateHeader_t*>(record + 1));
}

/// Unpacks the data behind the words into a fresh array. Stops are made at `at`, on behalf of the
/// step; so are those of the functions below.
uint8_t* unpack(const UpdateHeader_t* record, const UpdateRow& row, const StopPlace& at) {
  const uint8_t* packed = bodyOf(record) + row.words * kWordSize;
  size_t size = 0;
  jx_status_t sts = jx_drv_plcmt_unpack_data_size(packed, &size);
  PARTNER_CHECK_AT(at, sts == JX_SUCCESS, row.unpackSizeText, statusText(sts));
  auto* data = new uint8_t[size];
  sts = jx_drv_plcmt_copy_unpack(packed, data);
  PARTNER_CHECK_AT(at, sts == JX_SUCCESS, row.unpackText, statusText(sts));
  return data;
}

/// Gives the word of the Partner's array pointer the address of the elements in this process, of
/// which it holds the low 32 bits; the operation gets the address itself.
void writeElementsPointer(const UpdateHeader_t* record, const UpdateRow& row) {
  uint8_t* const pointerWord = bodyOf(record) + (row.words - 1) * kWordSize;
  const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointerWord + kWordSize));
  memcpy(pointerWord, &address, sizeof(address));
}

/// Makes the placement info of one update, and sets its one operation.
void place(const UpdateHeader_t* record, const UpdateRow& row, const uint8_t* data,
           pipe_plcmt_info** info, const StopPlace& at) {
  *info = pipe_create_plcmt_info();
  const pipe_status_t status =
      row.operation({*info, bodyOf(record), record->dev_tgt.dev_pipe_id, data});
  PARTNER_REQUIRE_AT(at, status == PIPE_SUCCESS, "status == JX_SUCCESS", row.operationText,
                     statusText(status));
}

/// A step without placement data.
void makeStep(const UpdateHeader_t* record, const UpdateRow& row, pipe_plcmt_info** info,
              const StopPlace& at) {
  if (row.tail == Tail::kElements) writeElementsPointer(record, row);
  place(record, row, nullptr, info, at);
}

/// A step with placement data.
void makeStep(const UpdateHeader_t* record, const UpdateRow& row, uint8_t** data,
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
    PARTNER_REQUIRE_AT(at, status == PIPE_SUCCESS, "status == JX_SUCCESS", texts.failed,
                       texts.failedNamesStatus ? statusText(status) : "");
    PARTNER_CHECK_AT(at, num_processed == 1, texts.count, num_processed);
    pipe_destroy_plcmt_info(info);
  }
  delete[] data;
}

}  // namespace

#define MATCH_CASE_PLAIN(type, step) \
  case type:                         \
    step(rec, &info, size);          \
    break;
#define MATCH_CASE_DATA(type, step) \
  case type:                        \
    step(rec, &data, &info, size);  \
    break;

void matchTableDeserialize(uint8_t dev_id, uint32_t sess_hdl, const void* record, size_t size) {
  const auto* rec = static_cast<const MatStruct_Header_t*>(record);
  pipe_plcmt_info* info = nullptr;
  uint8_t* data = nullptr;
  switch (rec->update_type) {
    PARTNER_MATCH_STEPS(MATCH_CASE_PLAIN, MATCH_CASE_DATA)
    default:
      PARTNER_STOP("false", "unhandled update type ", uint32_t{rec->update_type});
  }
  process(dev_id, sess_hdl, rec, info, data, kMatchTexts, PARTNER_HERE);
}

#define CASE_PLAIN(type, step) \
  case type:                   \
    step(rec, &info);          \
    break;
#define CASE_DATA(type, step) \
  case type:                  \
    step(rec, &data, &info);  \
    break;

void adtDeserialize(uint8_t dev_id, uint32_t sess_hdl, const void* record, size_t size) {
  static_cast<void>(size);
  const auto* rec = static_cast<const AdtStruct_Header_t*>(record);
  pipe_plcmt_info* info = nullptr;
  uint8_t* data = nullptr;
  switch (rec->update_type) {
    PARTNER_ADT_STEPS(CASE_PLAIN, CASE_DATA)
    default:
      PARTNER_STOP("false", "Unknown ADT type update_type: ", uint32_t{rec->update_type});
  }
  process(dev_id, sess_hdl, rec, info, data, kAdtTexts, PARTNER_HERE);
}

void selDeserialize(uint8_t dev_id, uint32_t sess_hdl, const void* record, size_t size) {
  static_cast<void>(size);
  const auto* rec = static_cast<const SelStruct_Header_t*>(record);
  pipe_plcmt_info* info = nullptr;
  uint8_t* data = nullptr;
  switch (rec->update_type) {
    PARTNER_SEL_STEPS(CASE_PLAIN, CASE_DATA)
    default:
      PARTNER_STOP("false", "Unknown SEL type update_type: ", uint32_t{rec->update_type});
  }
  process(dev_id, sess_hdl, rec, info, data, kSelTexts, PARTNER_HERE);
}

#define MATCH_STEP_PLAIN(type, step)                                            \
  void step(const MatStruct_Header_t* record, pipe_plcmt_info** info, size_t) { \
    makeStep(record, kMatchUpdates[type], info, PARTNER_HERE);                  \
  }
#define MATCH_STEP_DATA(type, step)                                                             \
  void step(const MatStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info, size_t) { \
    makeStep(record, kMatchUpdates[type], data, info, PARTNER_HERE);                            \
  }
PARTNER_MATCH_STEPS(MATCH_STEP_PLAIN, MATCH_STEP_DATA)

#define ADT_STEP_PLAIN(type, step)                                      \
  void step(const AdtStruct_Header_t* record, pipe_plcmt_info** info) { \
    makeStep(record, kAdtUpdates[type], info, PARTNER_HERE);            \
  }
#define ADT_STEP_DATA(type, step)                                                       \
  void step(const AdtStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info) { \
    makeStep(record, kAdtUpdates[type], data, info, PARTNER_HERE);                      \
  }
PARTNER_ADT_STEPS(ADT_STEP_PLAIN, ADT_STEP_DATA)

#define SEL_STEP_PLAIN(type, step)                                      \
  void step(const SelStruct_Header_t* record, pipe_plcmt_info** info) { \
    makeStep(record, kSelUpdates[type], info, PARTNER_HERE);            \
  }
#define SEL_STEP_DATA(type, step)                                                       \
  void step(const SelStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info) { \
    makeStep(record, kSelUpdates[type], data, info, PARTNER_HERE);                      \
  }
PARTNER_SEL_STEPS(SEL_STEP_PLAIN, SEL_STEP_DATA)

}  // namespace PartnerLib
