// The names of barriers in a program that is linked to the shared library: which of the program's
// and the library's the library uses.
#include <gtest/gtest.h>
#include <unistd.h>

#include <iostream>
#include <string>

#include "JexHybridSlice/JexPartnerLib.h"
#include "support/child.h"
#include "support/helper.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "wire/counter_frames.h"

namespace jextest {
namespace {

/// A Partner. Each line is answered by the time stamp of a barrier that it sends, and by what the
/// program then reads in `requestedTime`.
JEX_HELPER(names_partner) {
  const DeviceView view(1);
  Profile profile({"limits"});
  if (!PartnerLibStartup(view.session(), view.target(), JX_DEV_TYPE_MODEL, profile.get())) return 1;
  for (std::string line; std::getline(std::cin, line);) {
    const uint64_t sent = PartnerBarrierSend();
    std::cout << sent << " " << __atomic_load_n(&requestedTime, __ATOMIC_SEQ_CST) << std::endl;
  }
  _exit(0);
}

TEST(BarrierNames, TheLibrarySendsItsBarriersAndSharesTheirTimes) {
  RawAgent agent;
  Child partner = Child::helper("names_partner");
  RawSocket reverse = RawAgent::connectTo(agent.receiveRegistration());
  const std::string answer = partner.ask("send");
  const uint64_t sent = std::stoull(answer);
  EXPECT_EQ(agent.receive(), barrier(static_cast<uint32_t>(partner.pid()), 0, sent));
  EXPECT_EQ(answer, std::to_string(sent) + " " + std::to_string(sent));
}

}  // namespace
}  // namespace jextest
