// Idle time of tables, as applications set it.
#include <utility>

#include "model/faults.h"
#include "model/idle_watch.h"
#include "model/rt_idle_attributes.h"
#include "model/rt_table.h"

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

jx_status_t RtTable::idleTableAttributesAllocate(
    jx_rt_idle_table_mode_t mode, std::unique_ptr<jxrt::JxRtTableAttributes>* attributes) const {
  if (attributes == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtTable::idleTableAttributesAllocate", attributes);
  if (mode != JX_RT_IDLE_MODE_NOTIFY && mode != JX_RT_IDLE_MODE_POLL) return JX_INVALID_ARGUMENTS;
  if (!description().idle_timeout || mode == JX_RT_IDLE_MODE_POLL) return JX_NOT_SUPPORTED;
  *attributes = std::make_unique<RtIdleAttributes>(*this);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableAttributesSet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                        uint64_t flags,
                                        const jxrt::JxRtTableAttributes& attributes) const {
  JXMODEL_ENTRY("JxRtTable::tableAttributesSet");
  const jx_status_t status = checkTarget(target);
  if (status != JX_SUCCESS) return status;
  // Attributes are made by tables alone.
  const auto& mine = static_cast<const RtIdleAttributes&>(attributes);
  const bool known = (flags & ~JX_RT_FLAG_IDLE_TIME) == 0;
  if (!known || &mine.table() != this || mine.attributes() == nullptr) return JX_INVALID_ARGUMENTS;
  // No packet hits entries of a virtual device: what ages is the physical device's.
  if (state_.idle != nullptr) state_.idle->set(*mine.attributes(), target);
  return JX_SUCCESS;
}

}  // namespace jxmodel
