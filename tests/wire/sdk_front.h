// Objects of a test binary that stand between the library and the SDK's objects and pass on what
// they are asked. A test derives its own from them, and overrides what it wants to see or to answer
// otherwise.
#pragma once

#include <dlfcn.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"

namespace jextest {

/// The manager that JxRtDevMgr::getInstance gives in this binary; null: the SDK's own. Each binary
/// that links sdk_front.cpp says which. It may be another one from call to call.
jxrt::JxRtDevMgr* managerInFront();

/// The SDK's function of this linker name, for a function of the binary that takes its place.
template <typename Function>
Function* sdksOwn(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// A program of the SDK. `info` outlives it.
class ForwardingInfo : public jxrt::JxRtInfo {
 public:
  explicit ForwardingInfo(const jxrt::JxRtInfo& info) : info_(info) {}

  jx_status_t p4NameGet(std::string* name) const override { return info_.p4NameGet(name); }
  jx_status_t tablesGet(std::vector<const jxrt::JxRtTable*>* tables) const override {
    return info_.tablesGet(tables);
  }
  jx_status_t tableFromNameGet(const std::string& name,
                               const jxrt::JxRtTable** table) const override {
    return info_.tableFromNameGet(name, table);
  }
  jx_status_t tableFromIdGet(uint32_t id, const jxrt::JxRtTable** table) const override {
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

/// The SDK's manager, with an object of the test's in front of each program. Any thread.
class ForwardingManager : public jxrt::JxRtDevMgr {
 public:
  jx_status_t jxRtInfoGet(jx_dev_id_t dev_id, const std::string& p4_name,
                          const jxrt::JxRtInfo** info) const override;
  jx_status_t jxRtInfoP4NamesGet(jx_dev_id_t dev_id,
                                 std::vector<std::string>* names) const override;
  jx_status_t devicesGet(std::vector<jx_dev_id_t>* dev_ids) const override;
  jx_status_t deviceIsVirtual(jx_dev_id_t dev_id, bool* is_virtual) const override;

 private:
  /// What stands in front of `info`; asked once for each, kept with the manager.
  virtual std::unique_ptr<jxrt::JxRtInfo> inFrontOf(const jxrt::JxRtInfo& info) const = 0;

  mutable std::mutex mutex_;
  mutable std::map<const jxrt::JxRtInfo*, std::unique_ptr<jxrt::JxRtInfo>> infos_;
};

}  // namespace jextest
