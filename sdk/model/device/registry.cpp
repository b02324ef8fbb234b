#include "model/device/registry.h"

#include <atomic>

#include "model/base/faults.h"
#include "model/device/device_gate.h"
#include "model/runtime/rt_info.h"

namespace jxmodel {
namespace {

std::atomic<int> brought_up{static_cast<int>(BringUp::kNothing)};

}  // namespace

DeviceRegistry& DeviceRegistry::instance() {
  static auto* const registry = new DeviceRegistry;  // outlives every thread that uses it
  return *registry;
}

jx_status_t DeviceRegistry::add(std::shared_ptr<Device> device) {
  const jx_dev_id_t id = device->id();
  if (id < 0 || id >= kMaxDevices) return JX_INVALID_ARGUMENTS;
  const WriterLock lock(mutex_);
  if (devices_[id] != nullptr) return JX_ALREADY_EXISTS;
  devices_[id] = std::move(device);
  return JX_SUCCESS;
}

jx_status_t DeviceRegistry::remove(jx_dev_id_t id) {
  if (id < 0 || id >= kMaxDevices) return JX_OBJECT_NOT_FOUND;
  std::shared_ptr<Device> removed;  // ends after the locks
  {
    const WriterLock gate(deviceGate());
    {
      const WriterLock lock(mutex_);
      removed.swap(devices_[id]);
    }
    if (removed == nullptr) return JX_OBJECT_NOT_FOUND;
    removed->endPackets();
  }
  removed->endReports();  // without the gate: what it waits for may be removing another device
  return JX_SUCCESS;
}

std::shared_ptr<Device> DeviceRegistry::find(jx_dev_id_t id) const {
  if (id < 0 || id >= kMaxDevices) return nullptr;
  const ReaderLock lock(mutex_);
  return devices_[id];
}

jx_status_t DeviceRegistry::jxRtInfoGet(jx_dev_id_t dev_id, const std::string& p4_name,
                                        const jxrt::JxRtInfo** info) const {
  if (info == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtDevMgr::jxRtInfoGet", info);
  if (!broughtUp(BringUp::kRuntime)) return JX_NOT_READY;
  const std::shared_ptr<Device> device = find(dev_id);
  const RtInfo* const found = device == nullptr ? nullptr : device->findInfo(p4_name);
  if (found == nullptr) return JX_OBJECT_NOT_FOUND;
  *info = found;
  return JX_SUCCESS;
}

jx_status_t DeviceRegistry::jxRtInfoP4NamesGet(jx_dev_id_t dev_id,
                                               std::vector<std::string>* names) const {
  JXMODEL_ENTRY("JxRtDevMgr::jxRtInfoP4NamesGet");
  if (names == nullptr) return JX_INVALID_ARGUMENTS;
  if (!broughtUp(BringUp::kRuntime)) return JX_NOT_READY;
  const std::shared_ptr<Device> device = find(dev_id);
  if (device == nullptr) return JX_OBJECT_NOT_FOUND;
  names->clear();
  for (const auto& info : device->infos()) names->push_back(info->program().name);
  return JX_SUCCESS;
}

jx_status_t DeviceRegistry::devicesGet(std::vector<jx_dev_id_t>* dev_ids) const {
  JXMODEL_ENTRY("JxRtDevMgr::devicesGet");
  if (dev_ids == nullptr) return JX_INVALID_ARGUMENTS;
  const ReaderLock lock(mutex_);
  dev_ids->clear();
  for (const auto& device : devices_) {
    if (device != nullptr) dev_ids->push_back(device->id());
  }
  return JX_SUCCESS;
}

jx_status_t DeviceRegistry::deviceIsVirtual(jx_dev_id_t dev_id, bool* is_virtual) const {
  JXMODEL_ENTRY("JxRtDevMgr::deviceIsVirtual");
  if (is_virtual == nullptr) return JX_INVALID_ARGUMENTS;
  const std::shared_ptr<Device> device = find(dev_id);
  if (device == nullptr) return JX_OBJECT_NOT_FOUND;
  *is_virtual = device->isVirtual();
  return JX_SUCCESS;
}

bool broughtUp(BringUp stage) {
  return brought_up.load(std::memory_order_acquire) >= static_cast<int>(stage);
}

jx_status_t bringUp(BringUp stage) {
  int reached = static_cast<int>(stage) - 1;
  if (brought_up.compare_exchange_strong(reached, static_cast<int>(stage))) return JX_SUCCESS;
  return broughtUp(stage) ? JX_SUCCESS : JX_NOT_READY;
}

}  // namespace jxmodel

jxrt::JxRtDevMgr& jxrt::JxRtDevMgr::getInstance() {
  (void)jxmodel::fault::check("JxRtDevMgr::getInstance");
  return jxmodel::DeviceRegistry::instance();
}
