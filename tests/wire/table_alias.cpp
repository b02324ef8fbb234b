#include "wire/table_alias.h"

#include <dlfcn.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>

#include "jxsdk/rt.h"
#include "jxsdk/rt.hpp"

namespace jextest {
namespace {

struct Alias {
  std::string name;  // empty: none
  uint32_t id = 0;

  Alias() {
    const char* const text = std::getenv(kTableAliasVariable);
    if (text == nullptr) return;
    const std::string whole = text;
    name = whole.substr(0, whole.find('='));
    id = static_cast<uint32_t>(std::stoul(whole.substr(whole.find('=') + 1)));
  }
};

const Alias& alias() {
  static const Alias instance;
  return instance;
}

using jxrt::JxRtSession;
using jxrt::JxRtTable;
using jxrt::JxRtTableData;
using jxrt::JxRtTableKey;

constexpr jx_status_t kNot = JX_NOT_SUPPORTED;

/// A table with another id and its own size; there is nothing else to it.
class RenamedTable final : public JxRtTable {
 public:
  RenamedTable(const JxRtTable& table, uint32_t id) : table_(table), id_(id) {}

  jx_status_t tableIdGet(uint32_t* id) const override {
    *id = id_;
    return JX_SUCCESS;
  }
  jx_status_t tableSizeGet(const JxRtSession& session, const jx_rt_target_t& target, uint64_t flags,
                           size_t* size) const override {
    return table_.tableSizeGet(session, target, flags, size);
  }

  using Session = const JxRtSession&;
  using Target = const jx_rt_target_t&;
  using Key = const JxRtTableKey&;
  using Data = const JxRtTableData&;
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
  const JxRtTable& table_;
  uint32_t id_;
};

/// A program in which the renamed table is found under its name.
class RenamingInfo final : public jxrt::JxRtInfo {
 public:
  explicit RenamingInfo(const jxrt::JxRtInfo& info) : info_(info) {}
  jx_status_t p4NameGet(std::string* name) const override { return info_.p4NameGet(name); }
  jx_status_t tablesGet(std::vector<const JxRtTable*>* tables) const override {
    return info_.tablesGet(tables);
  }
  jx_status_t tableFromNameGet(const std::string& name, const JxRtTable** table) const override {
    const jx_status_t status = info_.tableFromNameGet(name, table);
    if (status != JX_SUCCESS || name != alias().name) return status;
    static auto* const renamed = new RenamedTable(**table, alias().id);
    *table = renamed;
    return JX_SUCCESS;
  }
  jx_status_t tableFromIdGet(uint32_t id, const JxRtTable** table) const override {
    return info_.tableFromIdGet(id, table);
  }
  jx_status_t learnsGet(std::vector<jxrt::JxRtLearn*>* learns) const override {
    return info_.learnsGet(learns);
  }
  jx_status_t learnFromNameGet(const std::string& name, jxrt::JxRtLearn** learn) const override {
    return info_.learnFromNameGet(name, learn);
  }
  jx_status_t learnFromIdGet(uint32_t id, jxrt::JxRtLearn** learn) const override {
    return info_.learnFromIdGet(id, learn);
  }

 private:
  const jxrt::JxRtInfo& info_;
};

jxrt::JxRtDevMgr& realManager() {
  using Function = jxrt::JxRtDevMgr& (*)();
  static const auto real =
      reinterpret_cast<Function>(dlsym(RTLD_NEXT, "_ZN4jxrt10JxRtDevMgr11getInstanceEv"));
  return real();
}

class RenamingManager final : public jxrt::JxRtDevMgr {
 public:
  jx_status_t jxRtInfoGet(jx_dev_id_t dev_id, const std::string& p4_name,
                          const jxrt::JxRtInfo** info) const override {
    const jx_status_t status = realManager().jxRtInfoGet(dev_id, p4_name, info);
    if (status != JX_SUCCESS) return status;
    const std::lock_guard<std::mutex> lock(mutex_);
    std::unique_ptr<RenamingInfo>& renaming = infos_[*info];
    if (!renaming) renaming = std::make_unique<RenamingInfo>(**info);
    *info = renaming.get();
    return JX_SUCCESS;
  }
  jx_status_t jxRtInfoP4NamesGet(jx_dev_id_t dev_id,
                                 std::vector<std::string>* names) const override {
    return realManager().jxRtInfoP4NamesGet(dev_id, names);
  }
  jx_status_t devicesGet(std::vector<jx_dev_id_t>* dev_ids) const override {
    return realManager().devicesGet(dev_ids);
  }
  jx_status_t deviceIsVirtual(jx_dev_id_t dev_id, bool* is_virtual) const override {
    return realManager().deviceIsVirtual(dev_id, is_virtual);
  }

 private:
  mutable std::mutex mutex_;
  mutable std::map<const jxrt::JxRtInfo*, std::unique_ptr<RenamingInfo>> infos_;
};

}  // namespace
}  // namespace jextest

__attribute__((visibility("default"))) jxrt::JxRtDevMgr& jxrt::JxRtDevMgr::getInstance() {
  if (jextest::alias().name.empty()) return jextest::realManager();
  static auto* const renaming = new jextest::RenamingManager;
  return *renaming;
}

extern "C" __attribute__((visibility("default"))) jx_status_t jx_rt_table_from_id_get(
    const jx_rt_info_hdl* info, uint32_t table_id, const jx_rt_table_hdl** table) {
  using Function = jx_status_t (*)(const jx_rt_info_hdl*, uint32_t, const jx_rt_table_hdl**);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "jx_rt_table_from_id_get"));
  const jextest::Alias& alias = jextest::alias();
  if (!alias.name.empty() && alias.id == table_id) {
    return jx_rt_table_from_name_get(info, alias.name.c_str(), table);
  }
  return real(info, table_id, table);
}
