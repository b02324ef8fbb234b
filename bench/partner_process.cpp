#include "partner_process.h"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "JexHybridSlice/JexPartnerLib.h"
#include "jxsdk/drv.h"

namespace bench {

PartnerProcess::PartnerProcess(const std::string& program)
    : session_(jxrt::JxRtSession::sessionCreate()) {
  Profile profile(program);
  PartnerLibStartup(*session_, targetOf(kVirtual), JX_DEV_TYPE_ANY, profile.get());
}

void serveAsAgent(const std::string& program) {
  constexpr char kAgentSocketFile[] = "/tmp/Partner0";
  unlink(kAgentSocketFile);
  bringUpSdk();
  Profile profile(program);
  check(jx_device_add(kPhysical, profile.get(), JX_DEV_TYPE_ANY), "physical device");
  static const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  std::thread([] {
    PartnerLibServerStartup(session->cHandle(), kPhysical, kReceiveTimeoutMs);
  }).detach();
  while (access(kAgentSocketFile, F_OK) != 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace bench
