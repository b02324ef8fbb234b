// What `switchctl ports` says of packets that went through a compiled program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"

namespace {

using jextest::Child;
using jextest::switchctl;
using testing::Contains;
using testing::StartsWith;

/// A bridge whose groups nobody has set up: it floods to no port. The second packet is cut short.
constexpr char kTest[] =
    "add port_vlan 10 port:1 tagged:0 set_pvid(vid:10)\n"
    "packet 1 ffffffffffff 02000000000a 88b5 0001\n"
    "packet 1 ff\n";

TEST(CompiledProgramCounts, SayWhatHappenedToPackets) {
  const std::string test = jextest::pathOf("counts.stf");
  std::ofstream(test) << kTest;
  Child agent(JEX_SLICE_AGENT,
              {"--program", JEX_P4_PROGRAMS_DIR "/l2_learn.json", "--heartbeat-ms", "0"});
  ASSERT_THAT(agent.readLine(), StartsWith("slice-agent: ready")) << agent.standardError();
  EXPECT_FALSE(jextest::answerOf({"ports"}).at("packets").contains("happened"));

  ASSERT_TRUE(switchctl({"stf", test}).endedWith(0));
  EXPECT_EQ(
      jextest::answerOf({"ports"}).at("packets").at("happened"),
      nlohmann::json({{"multicast group without ports", 2}, {"parser error PacketTooShort", 1}}));
  const auto lines = switchctl({"ports"}).output;
  EXPECT_THAT(lines, Contains("  2 times: multicast group without ports"));
  EXPECT_THAT(lines, Contains("  1 times: parser error PacketTooShort"));
}

}  // namespace
