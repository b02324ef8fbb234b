// The control service of an agent as switchctl shows it, beyond tables and packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/wait_until.h"

namespace {

using jextest::Child;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using nlohmann::json;
using testing::ElementsAre;

class ControlService : public testing::Test {
 protected:
  const std::unique_ptr<Child> agent_ = startSwitch("l2_switch");
};

/// Waits until the agent's only digest is `armed`.
bool becomesArmed(bool armed) {
  return waitUntil([&] {
    const json digests = jextest::answerOf({"digests"});
    return digests.size() == 1 && digests[0].at("armed") == armed;
  });
}

TEST_F(ControlService, ListsDigestsByProgramAndId) {
  EXPECT_THAT(switchctl({"digests"}).output,
              ElementsAre("DEVICE  PROGRAM    DIGEST     ID     ARMED",
                          "0       l2_switch  mac_learn  98305  no"));
  EXPECT_THAT(switchctl({"digests", "--json", "--program", "l2_switch", "--device", "0"}).output,
              ElementsAre(R"([{"device":0,"program":"l2_switch","name":"mac_learn",)"
                          R"("id":98305,"armed":false}])"));
  EXPECT_EQ(switchctl({"digests", "--program", "router"}).error,
            "switchctl: 127.0.0.1:50051: there is no program 'router'\n");
}

TEST_F(ControlService, SaysThatADigestIsArmedUntilItIsDisarmed) {
  ShellProcess partner("l2_switch");
  partner.ask("queue-create q 16");
  EXPECT_TRUE(becomesArmed(false));
  partner.ask("digest-register mac_learn q");
  EXPECT_TRUE(becomesArmed(true));
  partner.ask("digest-deregister mac_learn");
  EXPECT_TRUE(becomesArmed(false));
}

}  // namespace
