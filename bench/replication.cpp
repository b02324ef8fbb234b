#include "replication.h"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "JexHybridSlice/JexPartnerLib.h"
#include "child.h"
#include "clock.h"
#include "jxsdk/drv.h"
#include "switch_side.h"

namespace bench {
namespace {

constexpr char kAgentSocketFile[] = "/tmp/Partner0";
constexpr jx_dev_id_t kPhysical = 0;
constexpr jx_dev_id_t kVirtual = 1;
constexpr uint32_t kMemberCount = 64;

template <typename Condition>
void await(Condition condition) {
  while (!condition()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}  // namespace

void agent(const std::string& program, uint64_t count) {
  unlink(kAgentSocketFile);
  bringUpSdk();
  Profile profile(program);
  check(jx_device_add(kPhysical, profile.get(), JX_DEV_TYPE_ANY), "physical device");
  const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  jx_rt_session_hdl* loop_session = session->cHandle();
  std::thread([=] {
    PartnerLibServerStartup(loop_session, kPhysical, kReceiveTimeoutMs);
  }).detach();
  await([] { return access(kAgentSocketFile, F_OK) == 0; });
  const uint64_t cpu = processCpu() - threadCpu();
  report({{"ready", true}});
  await([&] { return countRoutes(*session, kPhysical) >= count; });
  const uint64_t end = now();
  report({{"end", end}, {"cpu", processCpu() - threadCpu() - cpu}});
  awaitEnd();
}

void partner(const std::string& program, const std::vector<Route>& routes) {
  const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  Profile profile(program);
  jx_rt_target_t target = {};
  target.dev_id = kVirtual;
  target.pipe_id = JX_PIPE_ALL;
  PartnerLibStartup(*session, target, JX_DEV_TYPE_ANY, profile.get());
  addMembers(*session, kVirtual, kMemberCount);
  RouteWriter writer(*session, kVirtual, kMemberCount);

  const uint64_t cpu = processCpu();
  const uint64_t caller_cpu = threadCpu();
  const uint64_t begin = now();
  for (const Route& route : routes) writer.add(route);
  report({{"begin", begin},
          {"end", now()},
          {"cpu", processCpu() - cpu},
          {"caller_cpu", threadCpu() - caller_cpu}});
  awaitEnd();  // not before the agent has all: what is queued would be lost
}

}  // namespace bench
