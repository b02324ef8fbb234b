// A program of the P4 compiler in each of its forms, at the agent and at a partner.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/wait_until.h"

namespace {

using jextest::Child;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

const std::string kProgram = JEX_P4_PROGRAMS_DIR "/l2_learn";

struct FormsRow {
  const char* name;
  std::string agent, partner;  // as --program takes them
};

// Where the compiled JSON stands without its P4Info.
std::string jsonAlone() {
  const std::string copy = jextest::pathOf("l2_learn.json");
  std::filesystem::copy_file(kProgram + ".json", copy,
                             std::filesystem::copy_options::overwrite_existing);
  return copy;
}

class P4FormsOnDevices : public testing::TestWithParam<int> {
 protected:
  static FormsRow row() {
    const std::string pair = kProgram + ".json," + kProgram + ".p4info.txtpb";
    switch (GetParam()) {
      case 0:
        return {"JSON alone", jsonAlone(), jsonAlone()};
      case 1:
        return {"P4Info beside the JSON", kProgram + ".json", kProgram + ".json"};
      case 2:
        return {"both named", pair, pair};
      case 3:
        return {"P4Info alone", kProgram + ".p4info.txtpb", kProgram + ".p4info.txtpb"};
      default:
        return {"a partner that has P4Info alone", pair, kProgram + ".p4info.txtpb"};
    }
  }
};

TEST_P(P4FormsOnDevices, TheAgentHasWhatThePartnerAdds) {
  const FormsRow forms = row();
  SCOPED_TRACE(forms.name);
  Child agent(JEX_SLICE_AGENT, {"--program", forms.agent, "--heartbeat-ms", "0"});
  ASSERT_THAT(agent.readLine(), StartsWith("slice-agent: ready")) << agent.standardError();
  Child shell(JEX_PARTNER_SHELL, {"--program", forms.partner, "--device", "1", "--json"});
  ASSERT_TRUE(jextest::saysReady(shell)) << shell.standardError();
  for (const char* command :
       {"add BridgeIngress.port_vlan port=3 tagged=1 vid=5&&&0xfff -> "
        "BridgeIngress.set_pvid vid=9 priority=7",
        "add BridgeIngress.forward vid=5 mac=02:00:00:00:00:07 -> BridgeIngress.to_port port=511",
        "add BridgeIngress.station vid=5 mac=02:00:00:00:00:07 -> "
        "BridgeIngress.station_at port=3 ttl=60000"}) {
    EXPECT_THAT(shell.ask(command), HasSubstr("\"ok\":true")) << command;
  }
  for (const char* table :
       {"BridgeIngress.port_vlan", "BridgeIngress.forward", "BridgeIngress.station"}) {
    const Words own = jextest::listingOf(shell, std::string("dump ") + table);
    EXPECT_THAT(own, SizeIs(1)) << table;
    Words replayed;
    EXPECT_TRUE(waitUntil([&] {
      replayed = switchctl({"entries", table, "--json"}).output;
      return replayed == own;
    })) << table
        << ": " << testing::PrintToString(replayed) << " instead of "
        << testing::PrintToString(own);
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, P4FormsOnDevices, testing::Range(0, 5));

TEST(P4FormsOfAgents, RefuseWhatIsNoProgramOnOneLine) {
  const std::string file = jextest::pathOf("broken.p4info.txtpb");
  std::ofstream(file) << "tables {\n  size: x\n}\n";
  const jextest::Finished run =
      jextest::finish(Child(JEX_SLICE_AGENT, {"--program", file, "--control", "off"}));
  EXPECT_EQ(run.error, file + ": line 2, column 9: Expected integer, got: x\n");
}

}  // namespace
