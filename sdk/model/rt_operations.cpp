#include "model/rt_operations.h"

#include "model/device.h"
#include "model/faults.h"
#include "model/rt_table.h"

namespace jxmodel {

using std::chrono::milliseconds;

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

jx_status_t RtTable::operationsAllocate(
    jx_rt_table_operations_mode_t mode,
    std::unique_ptr<jxrt::JxRtTableOperations>* operations) const {
  if (operations == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtTable::operationsAllocate", operations);
  if (mode != JX_RT_OPERATION_COUNTER_SYNC) return JX_INVALID_ARGUMENTS;
  if (state_.counters == nullptr) return JX_NOT_SUPPORTED;
  *operations = std::make_unique<RtTableOperations>(*this);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableOperationsExecute(const jxrt::JxRtTableOperations& operations) const {
  return executeLate(operations, milliseconds(0));
}

jx_status_t RtTable::executeLate(const jxrt::JxRtTableOperations& operations,
                                 milliseconds delay) const {
  const fault::Hit hit = fault::checkWithoutWaiting("JxRtTable::tableOperationsExecute");
  if (hit.isStatus()) return hit.status();
  // Operations are made by tables alone.
  const auto& own = static_cast<const RtTableOperations&>(operations);
  const RtTableOperations::CounterSync* const sync = own.counterSync();
  if (&own.table() != this || sync == nullptr) return JX_INVALID_ARGUMENTS;
  // By value: the operation may have gone when its turn comes. The tables stay as long as the
  // thread runs, but a callback that removes the device takes them away.
  device_.service()->post(
      [counters = state_.counters.get(), wanted = *sync]() mutable {
        counters->sync();
        if (wanted.callback != nullptr) wanted.callback(&wanted.target, wanted.cookie);
      },
      delay + hit.delay);
  return JX_SUCCESS;
}

}  // namespace jxmodel
