// A device: the programs that it carries, their tables, and on a physical device the switch.
//
// Thread safety: see DeviceCore. Descriptions, and the objects that show them, never change and
// need no lock.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "jxsdk/drv.h"
#include "model/base/mutex.h"
#include "model/notify/device_core.h"
#include "model/program/program.h"
#include "model/tables/table_state.h"

namespace jxmodel {

class RtInfo;
class Switch;

class Device : public std::enable_shared_from_this<Device> {
 public:
  using Kind = DeviceCore::Kind;

  /// Loads the profile's programs. Null if it cannot be loaded; the reason is written to *error.
  static std::shared_ptr<Device> create(jx_dev_id_t id, Kind kind,
                                        const jx_device_profile_t& profile, std::string* error);
  /// A device with programs that are loaded already.
  static std::shared_ptr<Device> create(jx_dev_id_t id, Kind kind,
                                        std::vector<std::shared_ptr<const Program>> programs,
                                        uint32_t handle_base, std::string* error);
  ~Device();

  const DeviceCore& core() const { return core_; }
  jx_dev_id_t id() const { return core_.id(); }
  bool isVirtual() const { return core_.isVirtual(); }
  Mutex& mutex() const ABSL_LOCK_RETURNED(core_.mutex()) { return core_.mutex(); }
  /// See DeviceCore.
  Reclaimer* reclaimer() const { return core_.reclaimer(); }
  DispatchThread* dispatch() const { return core_.dispatch(); }
  EventSource& events() const { return core_.events(); }

  /// The ports and the pipeline of a physical device; made by the first call. Null on a virtual
  /// device, and once the device has been removed.
  Switch* packetSwitch();
  /// Nothing moves through the device any more, nor ever will. Called when it is removed; whoever
  /// still holds it may go on looking.
  void endPackets();
  /// Nothing is reported any more once this has returned: see DispatchThread::end.
  void endReports();

  /// In the profile's order.
  const std::vector<std::unique_ptr<RtInfo>>& infos() const { return infos_; }
  const RtInfo* findInfo(const std::string& p4_name) const;
  /// The program that packets run through: the first with a control flow or a machine; null if
  /// there is none.
  const RtInfo* forwarding() const;
  /// Null if there is none.
  TableState* findTable(pipe_tbl_hdl_t handle) const;

 private:
  Device(jx_dev_id_t id, Kind kind);
  void addProgram(std::shared_ptr<const Program> program, uint32_t handle_base);

  DeviceCore core_;
  std::vector<std::unique_ptr<RtInfo>> infos_;
  absl::flat_hash_map<pipe_tbl_hdl_t, TableState*> tables_;  // of the infos

  Mutex switch_mutex_ ABSL_ACQUIRED_BEFORE(core_.mutex());
  std::unique_ptr<Switch> switch_ ABSL_GUARDED_BY(switch_mutex_);
  bool packets_ended_ ABSL_GUARDED_BY(switch_mutex_) = false;
};

}  // namespace jxmodel
