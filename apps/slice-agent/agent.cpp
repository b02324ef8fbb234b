#include "agent.h"

#include <algorithm>
#include <thread>

#include "JexHybridSlice/JexPartnerLib.h"
#include "jxmodel/clock.h"
#include "jxmodel/control.h"
#include "jxmodel/ports.h"
#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"
#include "signals.h"
#include "start_error.h"
#include "start_guard.h"
#include "threads.h"

namespace slice_agent {
namespace {

void check(jx_status_t status, const std::string& what) {
  if (status == JX_SUCCESS) return;
  const char* text = "";
  jx_rt_err_str(status, &text);
  throw StartError(what + ": " + text);
}

// Calls `update` every `interval` for ever. What a stopped or busy process has missed is not made
// up for.
void startPeriodic(const char* name, std::chrono::milliseconds interval, bool (*update)()) {
  startThread(name, [=] {
    using Clock = std::chrono::steady_clock;
    for (auto next = Clock::now() + interval;; next = std::max(next + interval, Clock::now())) {
      std::this_thread::sleep_until(next);
      update();
    }
  });
}

}  // namespace

void addPhysicalDevice(jx_dev_id_t device, const std::vector<std::string>& program_files) {
  check(jx_drv_init(), "cannot bring up the driver");
  check(pipe_mgr_init(), "cannot bring up the pipeline manager");
  check(jx_rt_module_init(0, 0, nullptr, nullptr), "cannot bring up the runtime");
  std::vector<const char*> files;
  files.reserve(program_files.size());
  for (const std::string& file : program_files) files.push_back(file.c_str());
  jx_device_profile_t profile{};
  profile.num_programs = static_cast<uint32_t>(files.size());
  profile.program_files = files.data();
  const jx_status_t status = jx_device_add(device, &profile, JX_DEV_TYPE_ANY);
  // The SDK has said which file is wrong, where and why; nothing else here can be invalid.
  if (status == JX_INVALID_ARGUMENTS) throw ProgramError();
  check(status, "cannot add device " + std::to_string(device));
}

void attachPorts(jx_dev_id_t device, const std::vector<std::string>& specs) {
  check(jx_model_captures_hold(device, true), "cannot hold captures");
  for (const std::string& spec : specs) {
    char error[1024] = "";
    const jx_status_t status = jx_model_port_add(device, spec.c_str(), error, sizeof error);
    if (status != JX_SUCCESS) throw StartError(error);
  }
}

void startCaptures(jx_dev_id_t device) {
  check(jx_model_captures_hold(device, false), "cannot start captures");
}

void followCaptureTime() {
  check(jx_model_clock_set(JX_MODEL_CLOCK_CAPTURE, 0), "cannot set the clock");
}

size_t countTables(jx_dev_id_t device) {
  const jxrt::JxRtDevMgr& manager = jxrt::JxRtDevMgr::getInstance();
  std::vector<std::string> programs;
  check(manager.jxRtInfoP4NamesGet(device, &programs), "cannot list the programs");
  size_t count = 0;
  for (const std::string& program : programs) {
    const jxrt::JxRtInfo* info = nullptr;
    check(manager.jxRtInfoGet(device, program, &info), "cannot look into program " + program);
    std::vector<const jxrt::JxRtTable*> tables;
    check(info->tablesGet(&tables), "cannot list the tables of program " + program);
    count += tables.size();
  }
  return count;
}

std::string startControlServer(const std::string& address) {
  check(jx_rt_grpc_server_run_with_addr(address.c_str()), "cannot serve control on " + address);
  jx_model_grpc_serving_set(false);
  return address.substr(0, address.rfind(':') + 1) + std::to_string(jx_model_grpc_port());
}

void startAgentLoop(jx_dev_id_t device, int32_t timeout_ms) {
  jx_rt_session_hdl* session = nullptr;  // the loop's for as long as the process lives
  check(jx_rt_session_create(&session), "cannot create a session");
  startThread("agent-loop", [=] {
    blockAllButFatalSignals();
    keepAborts();
    PartnerLibServerStartup(session, static_cast<uint8_t>(device), timeout_ms);
  });
}

void startHeartbeat(std::chrono::milliseconds interval) {
  startPeriodic("heartbeat", interval, PartnerLib::PeriodicHeartbeatUpdate);
}

void startCounterUpdate(std::chrono::milliseconds interval, CounterUpdate update) {
  startPeriodic("counters", interval,
                update == CounterUpdate::kModel ? PartnerLib::PeriodicHybridCounterUpdateModel
                                                : PartnerLib::PeriodicHybridCounterUpdate);
}

}  // namespace slice_agent
