// Idle-time notifications on the SliceAgent: arms tables of the physical device, and sends each
// aged entry to the Partner that asked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "JexPartnerLib.h"

namespace PartnerLib {

struct IdleConfigHeader_t;

/// Who is told of one table's aged entries.
struct NotifyCookieStruct {
  int sendSocket;                ///< reverse path; negative = invalid
  const jx_rt_table_hdl* table;  ///< of the physical device
  uint32_t tableId;
};

/// Cookies of the armed tables, owned, by notifyKey. The loop's own. Never destroyed: the loop
/// serves until the process has ended.
JEX_API extern std::unordered_map<uint32_t, NotifyCookieStruct*>& notifyCallbackMap;

/// Key of what a Partner has armed: of a table here, of a digest in its own map. Two Partners'
/// keys can be the same; the second then stops the process.
inline uint32_t notifyKey(int sendSocket, uint32_t id) {
  return static_cast<uint32_t>(sendSocket) + id * 10;
}

/// Handler of MSG_IDLE_CONFIG, on the loop thread.
JEX_API void idleDeserialize(uint8_t dev, uint32_t session, const void* payload, uint32_t nbytes,
                             int sendSocket);

/// Arms or disarms one table. When a table has been disarmed, nobody uses its cookie any more.
JEX_API void setIdleTimeoutNotfications(jx_rt_target_t target, const IdleConfigHeader_t& config,
                                        jx_rt_session_hdl* session, int sendSocket, bool enable);

}  // namespace PartnerLib

/// The SDK's report of an aged entry, on its thread; `cookie` is the NotifyCookieStruct.
extern "C" JEX_API jx_status_t idletime_c_callback(jx_rt_target_t* target,
                                                   const jx_rt_table_key_hdl* key, void* cookie);
