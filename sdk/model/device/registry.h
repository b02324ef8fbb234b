// The devices of this process, and how far the process has been brought up.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/base/mutex.h"
#include "model/device/device.h"

namespace jxmodel {

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

  mutable SharedMutex mutex_;
  std::array<std::shared_ptr<Device>, kMaxDevices> devices_ ABSL_GUARDED_BY(mutex_);
};

/// How far the process has been brought up.
enum class BringUp { kNothing, kDriver, kPipeManager, kRuntime };
bool broughtUp(BringUp stage);
/// Reaches `stage` if the one before it has been reached.
jx_status_t bringUp(BringUp stage);

}  // namespace jxmodel
