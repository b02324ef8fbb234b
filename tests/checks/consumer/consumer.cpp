// A partner that needs no slice agent: it reaches into both libraries and adds a device.
#include <JexHybridSlice/JexPartnerLib.h>
#include <jxsdk/drv.h>
#include <jxsdk/pipe_mgr.h>

#include <cstdio>
#include <jxsdk/rt.hpp>
#include <string>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: consumer PROGRAM.json\n");
    return 2;
  }
  const char* const programs[] = {argv[1]};
  jx_device_profile_t profile = {};
  profile.num_programs = 1;
  profile.program_files = programs;
  if (jx_drv_init() != JX_SUCCESS || pipe_mgr_init() != JX_SUCCESS ||
      jx_virtual_device_add(1, &profile, JX_DEV_TYPE_ANY) != JX_SUCCESS) {
    return 1;
  }
  // No partner is registered, so nobody gets a heartbeat: the call is what is tried.
  if (!PartnerLib::PeriodicHeartbeatUpdate()) return 1;
  std::vector<std::string> names;
  if (jxrt::JxRtDevMgr::getInstance().jxRtInfoP4NamesGet(1, &names) != JX_SUCCESS) return 1;
  std::printf("consumer: device 1 carries %s\n", names.at(0).c_str());
  return 0;
}
