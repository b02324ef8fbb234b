// Capture of table updates on the Partner's virtual device.
#pragma once

#include "JexPartnerLibShared.h"
#include "jxsdk/pipe_mgr.h"

namespace PartnerLib {

/// Registers the three callbacks below on every match, action-data and selector table of every
/// program of the target's device. Their cookie is `message`, which has to outlive the device.
JEX_API void callbackSetUp(const jxrt::JxRtSession& session, jx_rt_target_t target,
                           PartnerMessage& message);

// Placement callbacks: each packs one update into one message and sends it through the socket of
// the PartnerMessage at `cookie` before it returns. They allocate nothing, take no lock, and may
// run on several threads at once. An update that cannot travel stops the process.

JEX_API void packMatchCallback(jx_dev_target_t dev_tgt, pipe_tbl_hdl_t tbl_hdl,
                               pipe_mat_update_type update_type, pipe_mat_update_params* params,
                               void* cookie);
JEX_API void packAdtCallback(jx_dev_target_t dev_tgt, pipe_tbl_hdl_t tbl_hdl,
                             pipe_adt_update_type update_type, pipe_adt_update_params* params,
                             void* cookie);
JEX_API void packSelCallback(jx_dev_target_t dev_tgt, pipe_tbl_hdl_t tbl_hdl,
                             pipe_sel_update_type update_type, pipe_sel_update_params* params,
                             void* cookie);

}  // namespace PartnerLib
