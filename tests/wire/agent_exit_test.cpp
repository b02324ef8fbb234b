// exit() in a process that hosts an agent: loop, timers and the SDK's threads work until the
// process has ended, and the process ends with its status.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "JexPartnerLib.h"
#include "jxmodel/notify.h"
#include "jxmodel/service.h"
#include "support/child.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "support/wait_until.h"
#include "wire/counter_frames.h"
#include "wire/counter_segment.h"
#include "wire/notify_frames.h"

namespace jextest {
namespace {

constexpr int kStatus = 7;
constexpr jx_dev_id_t kPhysical = 0;
constexpr uint32_t kPid = 4242;

/// How often each kind of work has been done. Plain memory: it is there until the process has gone.
enum Work { kRequests, kHeartbeats, kUpdates, kDigests, kKinds };
std::atomic<uint64_t> done[kKinds];

/// Waits until each kind has been done `more` times from now on.
bool allGoOn(uint64_t more) {
  std::array<uint64_t, kKinds> goal{};
  for (size_t kind = 0; kind < kKinds; ++kind) goal[kind] = done[kind] + more;
  return waitUntil([&] {
    for (size_t kind = 0; kind < kKinds; ++kind) {
      if (done[kind] < goal[kind]) return false;
    }
    return true;
  });
}

/// Runs `step` over and over on a thread that nobody ends, and leaves the processor to others in
/// between.
template <typename Step>
void keepDoing(Work kind, Step step) {
  std::thread([kind, step]() mutable {
    for (;;) {
      if (step()) ++done[kind];
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }).detach();
}

/// A Partner in the agent's own process: it starts and stops all that there is, and takes what
/// comes.
class BusyPartner {
 public:
  BusyPartner() : partner_(kPid), segment_(CounterSegment::create()) {
    segment_.makeBlock(std::to_string(kPairs), kPairCount);
    partner_.registerWithAgent();
  }

  void turn() {
    configure(1);
    await(kPairs);
    configure(0);
    await(0);
  }

 private:
  void configure(uint8_t enable) {
    IdleRequest idle;
    idle.enable = enable;
    DigestRequest digest;
    digest.enable = enable;
    partner_.send(counterConfig(kPid, kPairs, enable));
    partner_.send(idle.message(kPid));
    partner_.send(digest.message(kPid));
  }
  void await(uint32_t table_id) {
    partner_.send(barrier(kPid, table_id, ++name_));
    while (partner_.receive() != barrierReply(name_)) continue;
  }

  RawPartner partner_;
  CounterSegment segment_;
  uint64_t name_ = 0;
};

std::atomic<bool> leaving{false};

/// Runs when the objects of the program and of the library have been destroyed.
__attribute__((destructor)) void stayUntilAllHaveGoneOn() {
  if (leaving && !allGoOn(5)) {
    constexpr char text[] = "exit: work has come to an end\n";
    if (write(STDERR_FILENO, text, sizeof text - 1) < 0) _exit(1);
  }
}

void beginWork() {
  static auto* const device = new SwitchDevice(DeviceKind::kPhysical, kPhysical, {"limits"});
  std::thread([] {
    PartnerLibServerStartup(device->view().session().cHandle(), kPhysical, 20);
  }).detach();
  static auto* const partner = new BusyPartner;
  keepDoing(kRequests, [] {
    partner->turn();
    return true;
  });
  keepDoing(kHeartbeats, [] { return PartnerLib::PeriodicHeartbeatUpdate(); });
  keepDoing(kUpdates, [] {
    uint64_t waiting = 0;
    jx_model_service_pending(kPhysical, &waiting);
    return waiting < 3 && PartnerLib::PeriodicHybridCounterUpdate();
  });
  static const Bytes* const values = new Bytes(kAddressesBytes);
  keepDoing(kDigests, [] {
    return jx_model_learn_inject(kPhysical, "limits", "addresses", values->data(), 1) == JX_SUCCESS;
  });
}

JEX_HELPER(exiting_agent) {
  beginWork();
  if (!allGoOn(std::stoull(arguments.at(0)))) return 1;
  leaving = true;
  if (arguments.at(1) == "exit") std::exit(kStatus);
  return kStatus;  // from main, too
}

TEST(AgentExit, EndsWithItsStatusWhileEverythingWorks) {
  constexpr int kRounds = kSanitized ? 6 : 30;
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    Child agent = Child::helper(
        "exiting_agent", {std::to_string(1 + round % 10), round % 2 == 0 ? "exit" : "return"});
    const Exit end = agent.waitForExit();
    EXPECT_EQ(end.code, kStatus) << "round " << round << ", signal " << end.signal;
    EXPECT_EQ(agent.standardError(), "") << "round " << round;
  }
}

}  // namespace
}  // namespace jextest
