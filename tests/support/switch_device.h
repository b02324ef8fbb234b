// Devices of the switch SDK as tests use them: brought up, found, dumped.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "jxsdk/drv.h"
#include "jxsdk/rt.hpp"

namespace jextest {

/// Path of programs/<name>.json.
std::string programFile(const std::string& name);

/// Brings driver, pipeline manager and runtime up; once per process.
void bringSdkUp();

/// A device profile that owns its strings.
class Profile {
 public:
  explicit Profile(const std::vector<std::string>& programs, uint32_t handle_base = 0);
  jx_device_profile_t* get() { return &profile_; }

 private:
  std::vector<std::string> files_;
  std::vector<const char*> pointers_;
  jx_device_profile_t profile_{};
};

/// A device that somebody has added, with a session to use it.
class DeviceView {
 public:
  explicit DeviceView(jx_dev_id_t dev_id);
  jx_dev_id_t id() const { return target_.dev_id; }
  const jxrt::JxRtSession& session() const { return *session_; }
  const jx_rt_target_t& target() const { return target_; }
  /// All tables of all programs.
  std::vector<const jxrt::JxRtTable*> tables() const;
  /// The first table of this name; stops the process if there is none.
  const jxrt::JxRtTable& table(const std::string& name) const;
  /// Every entry, default entry and fallback of every table, one a line, sorted: two devices that
  /// hold the same give the same lines.
  std::vector<std::string> dump() const;

 private:
  std::shared_ptr<jxrt::JxRtSession> session_;
  jx_rt_target_t target_{};
};

enum class DeviceKind { kPhysical, kVirtual };

/// A device of this process, removed with its object.
class SwitchDevice {
 public:
  SwitchDevice(DeviceKind kind, jx_dev_id_t dev_id, const std::vector<std::string>& programs,
               uint32_t handle_base = 0);
  ~SwitchDevice();
  SwitchDevice(const SwitchDevice&) = delete;
  SwitchDevice& operator=(const SwitchDevice&) = delete;
  const DeviceView& view() const { return *view_; }

 private:
  jx_dev_id_t dev_id_;
  std::unique_ptr<DeviceView> view_;
};

/// Ends the process with a message unless `status` is success: for set-up that a test rests on.
void must(jx_status_t status, const char* what);

}  // namespace jextest
