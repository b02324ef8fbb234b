// Devices: the programs that each carries, the tables of those, and the lock over all of them.
//
// Thread safety: the mutex of a device is held over every access to its tables but a packet's
// look-up (see MatchTable), on a virtual device until the placement callback of the write has
// returned. So writes take effect and are reported in one order. Descriptions, and the objects that
// show them, never change and need no lock.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/events.h"
#include "model/read_copy_update.h"
#include "model/service_thread.h"
#include "model/table_state.h"

namespace jxmodel {

class RtInfo;
class Switch;

class Device : public std::enable_shared_from_this<Device> {
 public:
  enum class Kind { kPhysical, kVirtual };

  /// Loads the profile's programs. Null if it cannot be loaded; the reason is written to *error.
  static std::shared_ptr<Device> create(jx_dev_id_t id, Kind kind,
                                        const jx_device_profile_t& profile, std::string* error);
  /// A device with programs that are loaded already.
  static std::shared_ptr<Device> create(jx_dev_id_t id, Kind kind,
                                        std::vector<std::shared_ptr<const Program>> programs,
                                        uint32_t handle_base, std::string* error);
  ~Device();

  jx_dev_id_t id() const { return id_; }
  bool isVirtual() const { return kind_ == Kind::kVirtual; }
  std::mutex& mutex() const { return mutex_; }

  /// Of a physical device; null on a virtual one, whose tables no packet reads.
  Reclaimer* reclaimer() const { return reclaimer_.get(); }

  /// Of a physical device; null on a virtual one, which has nothing to tell by itself.
  ServiceThread* service() const { return service_.get(); }

  /// For those who watch the device.
  EventSource& events() const { return events_; }

  /// The ports and the pipeline of a physical device; made by the first call. Null on a virtual
  /// device, and once the device has been removed.
  Switch* packetSwitch();
  /// Nothing moves through the device any more, nor ever will. Called when it is removed; whoever
  /// still holds it may go on looking.
  void endPackets();
  /// Nothing is told any more once this has returned: see ServiceThread::end.
  void endService();

  /// In the profile's order.
  const std::vector<std::unique_ptr<RtInfo>>& infos() const { return infos_; }
  const RtInfo* findInfo(const std::string& p4_name) const;
  /// Null if there is none.
  TableState* findTable(pipe_tbl_hdl_t handle) const;

 private:
  Device(jx_dev_id_t id, Kind kind);
  void addProgram(std::shared_ptr<const Program> program, uint32_t handle_base);

  jx_dev_id_t id_;
  Kind kind_;
  mutable std::mutex mutex_;
  mutable EventSource events_;
  std::unique_ptr<Reclaimer> reclaimer_;
  const std::unique_ptr<ServiceThread> service_;
  std::vector<std::unique_ptr<RtInfo>> infos_;
  absl::flat_hash_map<pipe_tbl_hdl_t, TableState*> tables_;  // of the infos

  std::mutex switch_mutex_;  // guards all below; before the device's mutex
  std::unique_ptr<Switch> switch_;
  bool packets_ended_ = false;
};

/// The devices of this process.
class DeviceRegistry final : public jxrt::JxRtDevMgr {
 public:
  static DeviceRegistry& instance();

  /// JX_ALREADY_EXISTS if the number is taken, JX_INVALID_ARGUMENTS if there is no such number.
  jx_status_t add(std::shared_ptr<Device> device);
  /// Waits until nothing moves through the device and it tells nothing any more.
  /// JX_OBJECT_NOT_FOUND if there is none.
  jx_status_t remove(jx_dev_id_t id);
  /// Null if there is none.
  std::shared_ptr<Device> find(jx_dev_id_t id) const;

  jx_status_t jxRtInfoGet(jx_dev_id_t dev_id, const std::string& p4_name,
                          const jxrt::JxRtInfo** info) const override;
  jx_status_t jxRtInfoP4NamesGet(jx_dev_id_t dev_id,
                                 std::vector<std::string>* names) const override;
  jx_status_t devicesGet(std::vector<jx_dev_id_t>* dev_ids) const override;
  jx_status_t deviceIsVirtual(jx_dev_id_t dev_id, bool* is_virtual) const override;

 private:
  static constexpr jx_dev_id_t kMaxDevices = 256;

  mutable std::shared_mutex mutex_;
  std::array<std::shared_ptr<Device>, kMaxDevices> devices_;
};

/// How far the process has been brought up.
enum class BringUp { kNothing, kDriver, kPipeManager, kRuntime };
bool broughtUp(BringUp stage);
/// Reaches `stage` if the one before it has been reached.
jx_status_t bringUp(BringUp stage);

}  // namespace jxmodel
