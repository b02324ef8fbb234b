// What the benches do with the switch SDK: a device, its members, its routes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"
#include "routes.h"

namespace bench {

constexpr int kReceiveTimeoutMs = 100;  // the agent's default

/// Throws std::runtime_error unless `status` is JX_SUCCESS.
void check(jx_status_t status, const char* what);

/// A profile with one program; refers to `file`.
class Profile {
 public:
  explicit Profile(const std::string& file) : files_{file.c_str()} {
    profile_.num_programs = 1;
    profile_.program_files = files_;
  }
  Profile(const Profile&) = delete;
  Profile& operator=(const Profile&) = delete;
  jx_device_profile_t* get() { return &profile_; }

 private:
  const char* files_[1];
  jx_device_profile_t profile_ = {};
};

void bringUpSdk();

jx_rt_target_t targetOf(jx_dev_id_t device);

const jxrt::JxRtTable& findTable(jx_dev_id_t device, const std::string& name);

/// Adds members 1 to `count` to the next-hop table of a virtual device.
void addMembers(const jxrt::JxRtSession& session, jx_dev_id_t device, uint32_t count);

/// Adds routes to a virtual device, each pointing at one of the members. All objects are made
/// beforehand, so that add() is what a partner pays for one update.
class RouteWriter {
 public:
  RouteWriter(const jxrt::JxRtSession& session, jx_dev_id_t device, uint32_t members);
  void add(const Route& route);

 private:
  const jxrt::JxRtSession& session_;
  const jx_rt_target_t target_;
  const jxrt::JxRtTable& table_;
  uint32_t key_field_ = 0;
  std::unique_ptr<jxrt::JxRtTableKey> key_;
  std::vector<std::unique_ptr<jxrt::JxRtTableData>> data_;
  size_t next_ = 0;
};

/// Entries of the route table.
uint32_t countRoutes(const jxrt::JxRtSession& session, jx_dev_id_t device);

/// Role: what the model alone costs. Writes the routes to a virtual device whose callback only
/// packs them; then processes what was packed on a physical device. Reports the CPU time of both
/// and the bytes of one packed route.
[[noreturn]] void modelOnly(const std::string& program, const std::vector<Route>& routes);

}  // namespace bench
