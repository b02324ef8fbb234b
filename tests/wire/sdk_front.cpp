#include "wire/sdk_front.h"

namespace jextest {
namespace {

jxrt::JxRtDevMgr& realManager() {
  static auto* const real = sdksOwn<jxrt::JxRtDevMgr&()>("_ZN4jxrt10JxRtDevMgr11getInstanceEv");
  return real();
}

}  // namespace

jx_status_t ForwardingManager::jxRtInfoGet(jx_dev_id_t dev_id, const std::string& p4_name,
                                           const jxrt::JxRtInfo** info) const {
  const jx_status_t status = realManager().jxRtInfoGet(dev_id, p4_name, info);
  if (status != JX_SUCCESS) return status;
  const std::lock_guard<std::mutex> lock(mutex_);
  std::unique_ptr<jxrt::JxRtInfo>& front = infos_[*info];
  if (!front) front = inFrontOf(**info);
  *info = front.get();
  return JX_SUCCESS;
}

jx_status_t ForwardingManager::jxRtInfoP4NamesGet(jx_dev_id_t dev_id,
                                                  std::vector<std::string>* names) const {
  return realManager().jxRtInfoP4NamesGet(dev_id, names);
}

jx_status_t ForwardingManager::devicesGet(std::vector<jx_dev_id_t>* dev_ids) const {
  return realManager().devicesGet(dev_ids);
}

jx_status_t ForwardingManager::deviceIsVirtual(jx_dev_id_t dev_id, bool* is_virtual) const {
  return realManager().deviceIsVirtual(dev_id, is_virtual);
}

}  // namespace jextest

__attribute__((visibility("default"))) jxrt::JxRtDevMgr& jxrt::JxRtDevMgr::getInstance() {
  jxrt::JxRtDevMgr* const front = jextest::managerInFront();
  return front == nullptr ? jextest::realManager() : *front;
}
