#include "model/runtime/rt_idle_attributes.h"

#include "model/base/faults.h"

namespace jxmodel {

jx_status_t RtIdleAttributes::idleTableNotifyModeSet(bool enable,
                                                     const jxrt::JxRtIdleTmoCb& callback,
                                                     uint32_t ttl_query_interval, uint32_t max_ttl,
                                                     uint32_t min_ttl, const void* cookie) {
  JXMODEL_ENTRY("JxRtTableAttributes::idleTableNotifyModeSet");
  if (enable && callback == nullptr) return JX_INVALID_ARGUMENTS;
  if (max_ttl != 0 && min_ttl > max_ttl) return JX_INVALID_ARGUMENTS;
  attributes_ = {enable, callback, ttl_query_interval, max_ttl, min_ttl, cookie};
  is_set_ = true;
  return JX_SUCCESS;
}

}  // namespace jxmodel
