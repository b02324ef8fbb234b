#include "own_device.h"

#include "jxmodel/clock.h"
#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"
#include "jxsdk/rt.h"
#include "stf_commands.h"

namespace switchctl {
namespace {

constexpr jx_dev_id_t kDevice = 0;
constexpr uint64_t kSecond = 1'000'000'000;

void need(jx_status_t status, const std::string& what) {
  if (status == JX_SUCCESS) return;
  const char* text = "";
  jx_rt_err_str(status, &text);
  throw stf::Error(what + ": " + text);
}

}  // namespace

OwnDevice::OwnDevice(const std::string& program_file) {
  need(jx_drv_init(), "cannot bring up the driver");
  need(pipe_mgr_init(), "cannot bring up the pipeline manager");
  need(jx_rt_module_init(0, 0, nullptr, nullptr), "cannot bring up the runtime");
  need(jx_model_clock_set(JX_MODEL_CLOCK_STOPPED, jx_model_clock_now()), "cannot stop the clock");
  const char* const file = program_file.c_str();
  jx_device_profile_t profile{};
  profile.num_programs = 1;
  profile.program_files = &file;
  need(jx_device_add(kDevice, &profile, JX_DEV_TYPE_ANY), "cannot load " + program_file);
}

OwnDevice::~OwnDevice() { jx_device_remove(kDevice); }

void OwnDevice::wait() { jx_model_clock_advance(kSecond); }

}  // namespace switchctl
