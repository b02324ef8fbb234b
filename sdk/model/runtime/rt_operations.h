// Operations on whole tables: counter syncs.
#pragma once

#include "jxsdk/rt.hpp"

namespace jxmodel {

class RtTable;

class RtTableOperations final : public jxrt::JxRtTableOperations {
 public:
  explicit RtTableOperations(const RtTable& table) : table_(table) {}

  jx_status_t counterSyncSet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                             jx_rt_counter_sync_cb callback, const void* cookie) override;

  /// What a sync is made with, and who is told.
  struct CounterSync {
    jx_rt_target_t target{};
    jx_rt_counter_sync_cb callback = nullptr;
    void* cookie = nullptr;
  };

  const RtTable& table() const { return table_; }
  /// Null as long as none has been set.
  const CounterSync* counterSync() const { return is_set_ ? &sync_ : nullptr; }

 private:
  const RtTable& table_;
  CounterSync sync_;
  bool is_set_ = false;
};

}  // namespace jxmodel
