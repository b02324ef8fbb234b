// Replay of table updates on the SliceAgent's physical device.
#pragma once

#include <cstddef>
#include <cstdint>

#include "JexPartnerLib.h"
#include "JexPartnerLibUpdates.h"
#include "JexPartnerLibWire.h"
#include "jxsdk/pipe_mgr.h"

namespace PartnerLib {

// Handlers of one table-update request each: `record` is what follows the frame's header in a
// buffer that may be written to; its length is the Partner's care and not looked at. They run on
// the loop thread and are done when they return; an update that fails stops the process.

JEX_API void matchTableDeserialize(uint8_t dev_id, uint32_t sess_hdl, const void* record,
                                   size_t size);
JEX_API void adtDeserialize(uint8_t dev_id, uint32_t sess_hdl, const void* record, size_t size);
JEX_API void selDeserialize(uint8_t dev_id, uint32_t sess_hdl, const void* record, size_t size);

// Steps of one update type each: they build the placement info of its operation and unpack its
// placement data. The caller destroys *info and frees *data with array delete, in this order, after
// the info has been processed: it refers to the data.

// PARTNER_MATCH_STEPS and its neighbours list them.

#define MATCH_PLAIN(type, step) \
  JEX_API void step(const MatStruct_Header_t* record, pipe_plcmt_info** info, size_t size);
#define MATCH_DATA(type, step)                                                                \
  JEX_API void step(const MatStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info, \
                    size_t size);
PARTNER_MATCH_STEPS(MATCH_PLAIN, MATCH_DATA)
#undef MATCH_PLAIN
#undef MATCH_DATA

#define ADT_PLAIN(type, step) \
  JEX_API void step(const AdtStruct_Header_t* record, pipe_plcmt_info** info);
#define ADT_DATA(type, step) \
  JEX_API void step(const AdtStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info);
PARTNER_ADT_STEPS(ADT_PLAIN, ADT_DATA)
#undef ADT_PLAIN
#undef ADT_DATA

#define SEL_PLAIN(type, step) \
  JEX_API void step(const SelStruct_Header_t* record, pipe_plcmt_info** info);
#define SEL_DATA(type, step) \
  JEX_API void step(const SelStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info);
PARTNER_SEL_STEPS(SEL_PLAIN, SEL_DATA)
#undef SEL_PLAIN
#undef SEL_DATA

}  // namespace PartnerLib
