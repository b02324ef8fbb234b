#include "model/device/device.h"

#include <algorithm>
#include <set>

#include "model/pipeline/compiled.h"
#include "model/placement/placement.h"
#include "model/runtime/rt_info.h"
#include "model/switch/switch.h"

namespace jxmodel {
namespace {

bool isMatch(const Table& table) {
  return table.type == JX_RT_TABLE_MATCH_DIRECT || table.type == JX_RT_TABLE_MATCH_ACTION_DATA ||
         table.type == JX_RT_TABLE_MATCH_SELECTOR;
}

/// Why hits of the table's entries cannot be counted, empty if they can or need not be.
std::string counterRefusal(const Program& program, const Table& table) {
  if (!table.direct_counter) return {};
  const Table& counter = program.tables[*table.direct_counter];
  if (counter.type == JX_RT_TABLE_COUNTER && counter.size == table.size && table.size != 0) {
    return {};
  }
  return "counter table " + counter.name + " of its hits has a size of " +
         std::to_string(counter.size) + ", not " + std::to_string(table.size);
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
  if (uint64_t{handle_base} + table.size + table.initial_entries.size() >= kNoSlot) {
    return "handles run out above the base";
  }
  return counterRefusal(program, table);
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

}  // namespace

Device::Device(jx_dev_id_t id, Kind kind) : core_(id, kind) {}

Device::~Device() {
  switch_.reset();
  endReports();
  // What is left to do is about the tables, which go next.
  if (reclaimer() != nullptr) reclaimer()->drain();
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
  device->core_.setOwner(device);
  for (auto& program : programs) device->addProgram(std::move(program), base);
  return device;
}

void Device::addProgram(std::shared_ptr<const Program> program, uint32_t handle_base) {
  const auto base = isVirtual() ? std::optional<uint32_t>(handle_base) : std::nullopt;
  infos_.push_back(std::make_unique<RtInfo>(core_, std::move(program), base));
  for (TableState* state : infos_.back()->states()) tables_[state->table->handle] = state;
}

Switch* Device::packetSwitch() {
  const MutexLock lock(switch_mutex_);
  if (isVirtual() || packets_ended_) return nullptr;
  if (switch_ == nullptr) switch_ = std::make_unique<Switch>(core_, forwarding());
  return switch_.get();
}

void Device::endPackets() {
  const MutexLock lock(switch_mutex_);
  packets_ended_ = true;
  // Packets wait neither for what the application is told nor for what it acknowledges.
  if (dispatch() != nullptr) dispatch()->letGo();
  for (const auto& info : infos_) {
    for (const auto& channel : info->channels()) channel->end();
  }
  if (switch_ != nullptr) switch_->end();
}

void Device::endReports() {
  events().end();
  if (dispatch() == nullptr) return;
  for (const auto& info : infos_) {
    for (const auto& watch : info->watches()) {
      if (watch != nullptr) watch->end();
    }
  }
  dispatch()->end();
}

const RtInfo* Device::findInfo(const std::string& p4_name) const {
  for (const auto& info : infos_) {
    if (info->program().name == p4_name) return info.get();
  }
  return nullptr;
}

const RtInfo* Device::forwarding() const {
  for (const auto& info : infos_) {
    const Program& program = info->program();
    if (program.machine != nullptr || !program.control.empty()) return info.get();
  }
  return nullptr;
}

TableState* Device::findTable(pipe_tbl_hdl_t handle) const {
  const auto found = tables_.find(handle);
  return found == tables_.end() ? nullptr : found->second;
}

}  // namespace jxmodel
