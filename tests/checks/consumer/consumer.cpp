// A partner that needs no slice agent: it reaches into both libraries and adds a device.
#include <JexHybridSlice/JexPartnerLib.h>
#include <jxsdk/drv.h>
#include <jxsdk/pipe_mgr.h>

#include <cstdio>
#include <cstdlib>
#include <jxsdk/rt.hpp>
#include <string>
#include <vector>

namespace {

void check(jx_status_t status, const char* what) {
  if (status == JX_SUCCESS) return;
  const char* text = "";
  jx_rt_err_str(status, &text);
  std::fprintf(stderr, "consumer: %s: %s\n", what, text);
  std::exit(EXIT_FAILURE);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: consumer PROGRAM.json\n");
    return 2;
  }
  const char* const programs[] = {argv[1]};
  jx_device_profile_t profile = {};
  profile.num_programs = 1;
  profile.program_files = programs;
  check(jx_drv_init(), "driver");
  check(pipe_mgr_init(), "pipeline manager");
  check(jx_rt_module_init(0, 0, nullptr, nullptr), "runtime");
  check(jx_virtual_device_add(1, &profile, JX_DEV_TYPE_ANY), "device");
  // No partner is registered, so nobody gets a heartbeat: the call is what is tried.
  if (!PartnerLib::PeriodicHeartbeatUpdate()) return EXIT_FAILURE;
  std::vector<std::string> names;
  check(jxrt::JxRtDevMgr::getInstance().jxRtInfoP4NamesGet(1, &names), "programs");
  std::printf("consumer: device 1 carries %s\n", names.at(0).c_str());
  return EXIT_SUCCESS;
}
