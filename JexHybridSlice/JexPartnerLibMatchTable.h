// Replay of table updates on the SliceAgent's physical device.
#pragma once

#include <cstddef>
#include <cstdint>

#include "JexPartnerLib.h"
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

JEX_API void matchTableAddOneEntry(const MatStruct_Header_t* record, uint8_t** data,
                                   pipe_plcmt_info** info, size_t size);
JEX_API void matchTableSetDefaultEntry(const MatStruct_Header_t* record, uint8_t** data,
                                       pipe_plcmt_info** info, size_t size);
JEX_API void matchTableClearDefaultEntry(const MatStruct_Header_t* record, pipe_plcmt_info** info,
                                         size_t size);
JEX_API void matchTableDelOneEntry(const MatStruct_Header_t* record, pipe_plcmt_info** info,
                                   size_t size);
JEX_API void matchTableModOneEntry(const MatStruct_Header_t* record, uint8_t** data,
                                   pipe_plcmt_info** info, size_t size);
JEX_API void matchTableMoveOneEntry(const MatStruct_Header_t* record, uint8_t** data,
                                    pipe_plcmt_info** info, size_t size);

JEX_API void adtAddOneEntry(const AdtStruct_Header_t* record, uint8_t** data,
                            pipe_plcmt_info** info);
JEX_API void adtDelOneEntry(const AdtStruct_Header_t* record, pipe_plcmt_info** info);
JEX_API void adtModOneEntry(const AdtStruct_Header_t* record, uint8_t** data,
                            pipe_plcmt_info** info);

JEX_API void selCreateGroup(const SelStruct_Header_t* record, pipe_plcmt_info** info);
JEX_API void selDeleteGroup(const SelStruct_Header_t* record, pipe_plcmt_info** info);
JEX_API void selUpdateAdd(const SelStruct_Header_t* record, uint8_t** data, pipe_plcmt_info** info);
JEX_API void selUpdateDel(const SelStruct_Header_t* record, pipe_plcmt_info** info);
JEX_API void selUpdateActivate(const SelStruct_Header_t* record, pipe_plcmt_info** info);
JEX_API void selUpdateDeactivate(const SelStruct_Header_t* record, pipe_plcmt_info** info);
JEX_API void selSetFallback(const SelStruct_Header_t* record, uint8_t** data,
                            pipe_plcmt_info** info);
JEX_API void selClearFallback(const SelStruct_Header_t* record, pipe_plcmt_info** info);

}  // namespace PartnerLib
