// A table that can do nothing, for tests that need a table of their own.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"

namespace jextest {

/// Every call gives JX_NOT_SUPPORTED. A test derives its table from it and overrides the few calls
/// that its subject makes; any other one is seen as a failure there.
class UnsupportedTable : public jxrt::JxRtTable {
 public:
  using Session = const jxrt::JxRtSession&;
  using Target = const jx_rt_target_t&;
  using Key = const jxrt::JxRtTableKey&;
  using Data = const jxrt::JxRtTableData&;
  using JxRtTableKey = jxrt::JxRtTableKey;
  using JxRtTableData = jxrt::JxRtTableData;

  jx_status_t tableIdGet(uint32_t*) const override { return kNot; }
  jx_status_t tableSizeGet(Session, Target, uint64_t, size_t*) const override { return kNot; }
  jx_status_t tableNameGet(std::string*) const override { return kNot; }
  jx_status_t tableTypeGet(jx_rt_table_type_t*) const override { return kNot; }
  jx_status_t tableHandleGet(pipe_tbl_hdl_t*) const override { return kNot; }
  jx_status_t tableUsageGet(Session, Target, uint64_t, uint32_t*) const override { return kNot; }
  jx_status_t keyFieldListGet(std::vector<jxrt::JxRtFieldInfo>*) const override { return kNot; }
  jx_status_t keyFieldIdGet(const std::string&, uint32_t*) const override { return kNot; }
  jx_status_t dataFieldListGet(std::vector<jxrt::JxRtFieldInfo>*) const override { return kNot; }
  jx_status_t dataFieldIdGet(const std::string&, uint32_t*) const override { return kNot; }
  jx_status_t dataFieldIdGet(const std::string&, uint32_t, uint32_t*) const override {
    return kNot;
  }
  jx_status_t actionListGet(std::vector<jxrt::JxRtActionInfo>*) const override { return kNot; }
  jx_status_t actionIdGet(const std::string&, uint32_t*) const override { return kNot; }
  jx_status_t actionDataTableGet(const JxRtTable**) const override { return kNot; }
  jx_status_t selectorTableGet(const JxRtTable**) const override { return kNot; }
  jx_status_t keyAllocate(std::unique_ptr<JxRtTableKey>*) const override { return kNot; }
  jx_status_t keyReset(JxRtTableKey*) const override { return kNot; }
  jx_status_t dataAllocate(std::unique_ptr<JxRtTableData>*) const override { return kNot; }
  jx_status_t dataAllocate(uint32_t, std::unique_ptr<JxRtTableData>*) const override {
    return kNot;
  }
  jx_status_t dataReset(JxRtTableData*) const override { return kNot; }
  jx_status_t dataReset(uint32_t, JxRtTableData*) const override { return kNot; }
  jx_status_t tableEntryAdd(Session, Target, uint64_t, Key, Data) const override { return kNot; }
  jx_status_t tableEntryMod(Session, Target, uint64_t, Key, Data) const override { return kNot; }
  jx_status_t tableEntryMove(Session, Target, uint64_t, Key) const override { return kNot; }
  jx_status_t tableEntryDel(Session, Target, uint64_t, Key) const override { return kNot; }
  jx_status_t tableEntryGet(Session, Target, uint64_t, Key, JxRtTableData*) const override {
    return kNot;
  }
  jx_status_t tableEntryGetFirst(Session, Target, uint64_t, JxRtTableKey*,
                                 JxRtTableData*) const override {
    return kNot;
  }
  jx_status_t tableEntryGetNext(Session, Target, uint64_t, Key, JxRtTableKey*,
                                JxRtTableData*) const override {
    return kNot;
  }
  jx_status_t tableEntriesGet(Session, Target, uint64_t, uint64_t*, uint32_t,
                              std::vector<Entry>*) const override {
    return kNot;
  }
  jx_status_t tableEntryHandleGet(Session, Target, Key, uint32_t*) const override { return kNot; }
  jx_status_t tableDefaultEntrySet(Session, Target, uint64_t, Data) const override { return kNot; }
  jx_status_t tableDefaultEntryClear(Session, Target, uint64_t) const override { return kNot; }
  jx_status_t tableDefaultEntryGet(Session, Target, uint64_t, JxRtTableData*) const override {
    return kNot;
  }
  jx_status_t groupMemberAdd(Session, Target, uint32_t, uint32_t) const override { return kNot; }
  jx_status_t groupMemberDel(Session, Target, uint32_t, uint32_t) const override { return kNot; }
  jx_status_t groupMemberActivate(Session, Target, uint32_t, uint32_t) const override {
    return kNot;
  }
  jx_status_t groupMemberDeactivate(Session, Target, uint32_t, uint32_t) const override {
    return kNot;
  }
  jx_status_t fallbackSet(Session, Target, uint32_t) const override { return kNot; }
  jx_status_t fallbackClear(Session, Target) const override { return kNot; }
  jx_status_t fallbackGet(Session, Target, uint32_t*) const override { return kNot; }
  jx_status_t matUpdateCbRegister(Session, Target, pipe_mat_update_cb, void*) const override {
    return kNot;
  }
  jx_status_t adtUpdateCbRegister(Session, Target, pipe_adt_update_cb, void*) const override {
    return kNot;
  }
  jx_status_t selUpdateCbRegister(Session, Target, pipe_sel_update_cb, void*) const override {
    return kNot;
  }
  jx_status_t idleTableAttributesAllocate(
      jx_rt_idle_table_mode_t, std::unique_ptr<jxrt::JxRtTableAttributes>*) const override {
    return kNot;
  }
  jx_status_t tableAttributesSet(Session, Target, uint64_t,
                                 const jxrt::JxRtTableAttributes&) const override {
    return kNot;
  }
  jx_status_t operationsAllocate(jx_rt_table_operations_mode_t,
                                 std::unique_ptr<jxrt::JxRtTableOperations>*) const override {
    return kNot;
  }
  jx_status_t tableOperationsExecute(const jxrt::JxRtTableOperations&) const override {
    return kNot;
  }

 private:
  static constexpr jx_status_t kNot = JX_NOT_SUPPORTED;
};

}  // namespace jextest
