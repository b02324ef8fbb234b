// Digests on the SliceAgent: registers with learn objects of the physical device, and sends each
// learned entry to the Partner that asked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "JexPartnerLib.h"

namespace PartnerLib {

struct DigestConfigHeader_t;

/// Who is told of one learn object's entries, and what they consist of.
///
/// Two sizes differ on purpose: `size` is the Partner's sum of all fields' bits rounded down to
/// bytes, which the bound of a record goes by; in the record each field is rounded up.
struct DigestNotifyCookieStruct {
  int sendSocket;          ///< reverse path; negative = invalid
  jxrt::JxRtLearn* learn;  ///< of the physical device
  uint32_t learnId;
  uint32_t size;                     ///< bytes
  std::vector<uint32_t> fieldIds;    ///< in the learn object's order
  std::vector<uint32_t> fieldSizes;  ///< bytes in the record, of each
};

/// Cookies of the armed digests, owned, by notifyKey. The loop's own. Never destroyed: the loop
/// serves until the process has ended.
JEX_API extern std::unordered_map<uint32_t, DigestNotifyCookieStruct*>& digestCallbackMap;

/// Handler of MSG_DIGEST_CONFIG, on the loop thread.
JEX_API void digestDeserialize(uint8_t dev, uint32_t session, const void* payload, uint32_t nbytes,
                               int sendSocket);

/// Arms or disarms one digest, on behalf of a session that the library keeps for this.
JEX_API void setDigestNotfications(jx_rt_target_t target, const DigestConfigHeader_t& config,
                                   int sendSocket, bool enable);

/// The SDK's report of learned entries, on its learn thread; `cookie` is the
/// DigestNotifyCookieStruct.
JEX_API jx_status_t learnCppCallback(const jx_rt_target_t& target,
                                     std::shared_ptr<jxrt::JxRtSession> session,
                                     std::vector<std::unique_ptr<jxrt::JxRtTableData>> data,
                                     jx_rt_learn_msg_hdl* const learnMsg, const void* cookie);

}  // namespace PartnerLib
