#include "model/runtime/rt_operations.h"

#include "model/base/faults.h"
#include "model/runtime/rt_table.h"

namespace jxmodel {

jx_status_t RtTableOperations::counterSyncSet(const jxrt::JxRtSession&,
                                              const jx_rt_target_t& target,
                                              jx_rt_counter_sync_cb callback, const void* cookie) {
  JXMODEL_ENTRY("JxRtTableOperations::counterSyncSet");
  const jx_status_t status = table_.checkTarget(target);
  if (status != JX_SUCCESS) return status;
  sync_ = {target, callback, const_cast<void*>(cookie)};
  is_set_ = true;
  return JX_SUCCESS;
}

}  // namespace jxmodel
