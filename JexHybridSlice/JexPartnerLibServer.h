// The two sides' set-up, the SliceAgent's loop, and its registry of Partners.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "JexPartnerLib.h"
#include "JexPartnerLibShared.h"

namespace PartnerLib {

/// SliceAgent: process id of a Partner -> socket of its reverse path. Entries stay. The loop writes
/// it and host threads read it, so every access outside this source goes through findSendSocket. It
/// is never destroyed: these threads use it until the process has ended.
JEX_API extern std::unordered_map<int, int>& pidSocketMap;

/// PartnerLibStartup. Returns true or stops the process.
JEX_API bool PartnerLibSetup(const jxrt::JxRtSession& session, jx_rt_target_t target,
                             jx_dev_type_t dev_type, jx_device_profile_t* profile);

/// PartnerLibServerStartup: does not return.
JEX_API bool PartnerLibServerSetup(jx_rt_session_hdl* session, uint8_t dev, int32_t timeout);

/// SliceAgent: the socket of the reverse path of Partner `pid`, -1 if it never registered. Any
/// thread.
JEX_API int findSendSocket(int pid);

}  // namespace PartnerLib
