// Idle-time attributes in the making: kept until they are set on a table.
#pragma once

#include "jxsdk/rt.hpp"

namespace jxmodel {

class RtTable;

/// What an application has set; see jx_rt_attributes_idle_table_notify_mode_set.
struct IdleAttributes {
  bool enabled = false;
  jxrt::JxRtIdleTmoCb callback;
  uint32_t interval_ms = 0;
  uint32_t max_ttl_ms = 0;
  uint32_t min_ttl_ms = 0;
  const void* cookie = nullptr;
};

class RtIdleAttributes final : public jxrt::JxRtTableAttributes {
 public:
  explicit RtIdleAttributes(const RtTable& table) : table_(table) {}

  jx_status_t idleTableNotifyModeSet(bool enable, const jxrt::JxRtIdleTmoCb& callback,
                                     uint32_t ttl_query_interval, uint32_t max_ttl,
                                     uint32_t min_ttl, const void* cookie) override;

  const RtTable& table() const { return table_; }
  /// Null as long as none have been set.
  const IdleAttributes* attributes() const { return is_set_ ? &attributes_ : nullptr; }

 private:
  const RtTable& table_;
  IdleAttributes attributes_;
  bool is_set_ = false;
};

}  // namespace jxmodel
