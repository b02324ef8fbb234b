#include "model/device.h"

#include <algorithm>
#include <atomic>
#include <set>

#include "model/device_gate.h"
#include "model/faults.h"
#include "model/pipeline/compiled.h"
#include "model/placement.h"
#include "model/rt_info.h"
#include "model/switch/switch.h"

namespace jxmodel {
namespace {

bool isMatch(const Table& table) {
  return table.type == JX_RT_TABLE_MATCH_DIRECT || table.type == JX_RT_TABLE_MATCH_ACTION_DATA ||
         table.type == JX_RT_TABLE_MATCH_SELECTOR;
}

/// Why the model cannot carry this table, empty if it can.
std::string refusal(const Program& program, const Table& table, uint32_t handle_base) {
  const uint64_t placed =
      sizeof(PlacementHeader) + table.key_bytes + uint64_t{maxParamBytes(program, table)};
  if (placed > kMaxPlacementBytes) {
    return "an entry takes " + std::to_string(placed) + " bytes of placement data, at most " +
           std::to_string(kMaxPlacementBytes) + " can be placed";
  }
  const auto prefixes =
      std::count_if(table.key.begin(), table.key.end(),
                    [](const KeyField& field) { return field.match == JX_RT_MATCH_LPM; });
  if (isMatch(table) && prefixes > 1 && !table.has_priority) {
    return "more than one longest-prefix field";
  }
  if (uint64_t{handle_base} + table.size >= kNoSlot) return "handles run out above the base";
  return {};
}

bool checkPrograms(const std::vector<std::shared_ptr<const Program>>& programs,
                   uint32_t handle_base, std::string* error) {
  std::set<uint32_t> ids;
  std::set<std::string> names;
  for (const auto& program : programs) {
    if (!ids.insert(program->id).second || !names.insert(program->name).second) {
      *error = "program " + program->name + ": id or name taken by another program of the device";
      return false;
    }
    const std::string packets = packetRefusal(*program);
    if (!packets.empty()) {
      *error = "program " + program->name + ": " + packets;
      return false;
    }
    for (const Table& table : program->tables) {
      const std::string reason = refusal(*program, table, handle_base);
      if (reason.empty()) continue;
      *error = "program " + program->name + ", table " + table.name + ": " + reason;
      return false;
    }
  }
  return true;
}

std::atomic<int> brought_up{static_cast<int>(BringUp::kNothing)};

}  // namespace

Device::Device(jx_dev_id_t id, Kind kind)
    : id_(id),
      kind_(kind),
      reclaimer_(kind == Kind::kPhysical ? std::make_unique<Reclaimer>() : nullptr),
      service_(kind == Kind::kPhysical ? std::make_unique<ServiceThread>() : nullptr) {}

Device::~Device() {
  switch_.reset();
  endService();
  // What is left to do is about the tables, which go next.
  if (reclaimer_ != nullptr) reclaimer_->drain();
}

std::shared_ptr<Device> Device::create(jx_dev_id_t id, Kind kind,
                                       const jx_device_profile_t& profile, std::string* error) {
  std::vector<std::shared_ptr<const Program>> programs;
  for (uint32_t i = 0; i < profile.num_programs; ++i) {
    const char* const file = profile.program_files[i];
    if (file == nullptr) {
      *error = "a program file without a name";
      return nullptr;
    }
    LoadError load_error;
    programs.push_back(loadProgramJson(file, &load_error));
    if (programs.back() == nullptr) {
      *error = load_error.text();
      return nullptr;
    }
  }
  return create(id, kind, std::move(programs), profile.handle_base, error);
}

std::shared_ptr<Device> Device::create(jx_dev_id_t id, Kind kind,
                                       std::vector<std::shared_ptr<const Program>> programs,
                                       uint32_t handle_base, std::string* error) {
  constexpr uint32_t kDefaultHandleBase = 1;
  const uint32_t base = handle_base == 0 ? kDefaultHandleBase : handle_base;
  if (!checkPrograms(programs, base, error)) return nullptr;
  std::shared_ptr<Device> device(new Device(id, kind));
  for (auto& program : programs) device->addProgram(std::move(program), base);
  return device;
}

void Device::addProgram(std::shared_ptr<const Program> program, uint32_t handle_base) {
  const auto base = isVirtual() ? std::optional<uint32_t>(handle_base) : std::nullopt;
  infos_.push_back(std::make_unique<RtInfo>(*this, std::move(program), base));
  for (TableState* state : infos_.back()->states()) tables_[state->table->handle] = state;
}

Switch* Device::packetSwitch() {
  const std::lock_guard lock(switch_mutex_);
  if (isVirtual() || packets_ended_) return nullptr;
  if (switch_ == nullptr) switch_ = std::make_unique<Switch>(*this);
  return switch_.get();
}

void Device::endPackets() {
  const std::lock_guard lock(switch_mutex_);
  packets_ended_ = true;
  // Packets wait neither for what the application is told nor for what it acknowledges.
  if (service_ != nullptr) service_->letGo();
  for (const auto& info : infos_) {
    for (const auto& channel : info->channels()) channel->end();
  }
  if (switch_ != nullptr) switch_->end();
}

void Device::endService() {
  events_.end();
  if (service_ == nullptr) return;
  for (const auto& info : infos_) {
    for (const auto& watch : info->watches()) watch->end();
  }
  service_->end();
}

const RtInfo* Device::findInfo(const std::string& p4_name) const {
  for (const auto& info : infos_) {
    if (info->program().name == p4_name) return info.get();
  }
  return nullptr;
}

TableState* Device::findTable(pipe_tbl_hdl_t handle) const {
  const auto found = tables_.find(handle);
  return found == tables_.end() ? nullptr : found->second;
}

DeviceRegistry& DeviceRegistry::instance() {
  static auto* const registry = new DeviceRegistry;  // outlives every thread that uses it
  return *registry;
}

jx_status_t DeviceRegistry::add(std::shared_ptr<Device> device) {
  const jx_dev_id_t id = device->id();
  if (id < 0 || id >= kMaxDevices) return JX_INVALID_ARGUMENTS;
  const std::unique_lock lock(mutex_);
  if (devices_[id] != nullptr) return JX_ALREADY_EXISTS;
  devices_[id] = std::move(device);
  return JX_SUCCESS;
}

jx_status_t DeviceRegistry::remove(jx_dev_id_t id) {
  if (id < 0 || id >= kMaxDevices) return JX_OBJECT_NOT_FOUND;
  std::shared_ptr<Device> removed;  // ends after the locks
  {
    const std::unique_lock gate(deviceGate());
    {
      const std::unique_lock lock(mutex_);
      removed.swap(devices_[id]);
    }
    if (removed == nullptr) return JX_OBJECT_NOT_FOUND;
    removed->endPackets();
  }
  removed->endService();  // without the gate: what it waits for may be removing another device
  return JX_SUCCESS;
}

std::shared_ptr<Device> DeviceRegistry::find(jx_dev_id_t id) const {
  if (id < 0 || id >= kMaxDevices) return nullptr;
  const std::shared_lock lock(mutex_);
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
  const std::shared_lock lock(mutex_);
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
