// Registration of idle-time notifications by a Partner, against a raw agent.
#include <gtest/gtest.h>

#include <string>

#include "support/stop.h"
#include "wire/notify_frames.h"
#include "wire/notify_processes.h"

namespace jextest {
namespace {

const char kRegister[] = "idle limits all_kinds 1000 5000 100 65535 q";
const char kDeregister[] = "no-idle limits all_kinds 65535";
const char kInRegister[] = "PartnerRegisterIdleNotification(";
const char kInDeregister[] = "PartnerDeregisterIdleNotification(";

Stop stopIn(const std::string& function, const std::string& error, const std::string& expression) {
  return {"Error: " + error, "JexPartnerLib", function, expression};
}

/// All fields of a request of type 3, and nothing of what stands behind the program's name.
void expectIdleRequest(const Bytes& found, const IdleRequest& expected, uint32_t pid) {
  ASSERT_EQ(found.size(), 296u);
  EXPECT_EQ(u32At(found, 0), 3u);
  EXPECT_EQ(u32At(found, 4), pid);
  EXPECT_EQ(u64At(found, 8), 296u);
  EXPECT_EQ(u32At(found, 16), expected.table);
  EXPECT_EQ(textAt(found, 20, 256), expected.program);
  EXPECT_EQ(u32At(found, 276), expected.pipe);
  EXPECT_EQ(u32At(found, 280), expected.interval);
  EXPECT_EQ(u32At(found, 284), expected.max_ttl);
  EXPECT_EQ(u32At(found, 288), expected.min_ttl);
  EXPECT_EQ(u32At(found, 292), expected.enable);
}

TEST(IdlePartner, RegistersWithOneRequest) {
  NotifyPair pair;
  ASSERT_EQ(pair.partner.ask("queue q 16"), "true");
  EXPECT_EQ(pair.partner.ask("idle limits all_kinds 1001 5002 103 65535 q"), "true");
  expectIdleRequest(pair.agent.receive(), {kAllKinds, "limits", 0xFFFF, 1001, 5002, 103, 1},
                    pair.pid());
  pair.waitUntilReceived();  // nothing but the ping comes behind it
}

TEST(IdlePartner, SendsThePipeOfItsTarget) {
  NotifyPair pair;
  ASSERT_EQ(pair.partner.ask("queue q 16"), "true");
  EXPECT_EQ(pair.partner.ask("idle limits all_kinds 1000 5000 100 2 q"), "true");
  expectIdleRequest(pair.agent.receive(), {kAllKinds, "limits", 2, 1000, 5000, 100, 1}, pair.pid());
  EXPECT_EQ(pair.partner.ask("no-idle limits all_kinds 3"), "false");
  expectIdleRequest(pair.agent.receive(), {kAllKinds, "limits", 3, 0, 0, 0, 0}, pair.pid());
}

TEST(IdlePartner, PassesIntervalsOnAsTheyAre) {
  NotifyPair pair;
  ASSERT_EQ(pair.partner.ask("queue q 16"), "true");
  EXPECT_EQ(pair.partner.ask("idle limits all_kinds 1 4294967295 1 65535 q"), "true");
  expectIdleRequest(pair.agent.receive(), {kAllKinds, "limits", 0xFFFF, 1, 0xFFFFFFFF, 1, 1},
                    pair.pid());
}

TEST(IdlePartner, DeregistersWithOneRequestWithoutIntervalsAndReturnsFalse) {
  NotifyPair pair;
  pair.registerTable();
  EXPECT_EQ(pair.partner.ask(kDeregister), "false");
  expectIdleRequest(pair.agent.receive(), {kAllKinds, "limits", 0xFFFF, 0, 0, 0, 0}, pair.pid());
  pair.waitUntilReceived();
  EXPECT_EQ(pair.partner.ask("destroy q"), "true");
  EXPECT_EQ(pair.partner.standardError().find("Error"), std::string::npos);
}

// The agent is told all the same; what becomes of it is the agent's.
TEST(IdlePartner, DeregistersWhatWasNeverRegistered) {
  NotifyPair pair;
  EXPECT_EQ(pair.partner.ask("no-idle limits exact_direct 65535"), "false");
  expectIdleRequest(pair.agent.receive(), {kExactDirect, "limits", 0xFFFF, 0, 0, 0, 0}, pair.pid());
  pair.waitUntilReceived();
}

TEST(IdlePartner, DeregistersTwice) {
  NotifyPair pair;
  pair.registerTable();
  EXPECT_EQ(pair.partner.ask(kDeregister), "false");
  EXPECT_EQ(u32At(pair.agent.receive(), 292), 0u);
  EXPECT_EQ(pair.partner.ask(kDeregister), "false");
  EXPECT_EQ(u32At(pair.agent.receive(), 292), 0u);
  pair.waitUntilReceived();
}

TEST(IdlePartner, RegistersTablesOfSeveralProgramsOnOneQueue) {
  NotifyPair pair({"limits", "l2_switch"});
  pair.registerTable();
  EXPECT_EQ(pair.partner.ask("idle l2_switch smac 10 50 20 65535 q"), "true");
  expectIdleRequest(pair.agent.receive(), {0x10001, "l2_switch", 0xFFFF, 10, 50, 20, 1},
                    pair.pid());
}

TEST(IdlePartner, StopsWhenATableIsRegisteredTwice) {
  NotifyPair pair;
  pair.registerTable();
  pair.partner.say(kRegister);
  expectStop(pair.partner,
             stopIn(kInRegister, "Cannot insert into map table->notify reg", "res.second == true"));
}

TEST(IdlePartner, StopsWhenATableIsRegisteredAgain) {
  NotifyPair pair;
  pair.registerTable();
  EXPECT_EQ(pair.partner.ask(kDeregister), "false");
  pair.partner.say(kRegister);
  expectStop(pair.partner,
             stopIn(kInRegister, "Cannot insert into map table->notify reg", "res.second == true"));
}

TEST(IdlePartner, StopsWhenATableIsRegisteredTwiceOnAnotherQueue) {
  NotifyPair pair;
  pair.registerTable();
  ASSERT_EQ(pair.partner.ask("queue other 16"), "true");
  pair.partner.say("idle limits all_kinds 1 2 1 65535 other");
  expectStop(pair.partner,
             stopIn(kInRegister, "Cannot insert into map table->notify reg", "res.second == true"));
}

/// Calls that stop: what is armed before, what is called, and how it ends.
struct FailingCall {
  const char* name;
  std::vector<std::string> before;
  std::string call;
  Stop stop;
};

class FailingIdleCall : public testing::TestWithParam<FailingCall> {};
INSTANTIATE_TEST_SUITE_P(
    Each, FailingIdleCall,
    testing::Values(
        FailingCall{
            "Program",
            {},
            "idle nothing all_kinds 1000 5000 100 65535 q",
            stopIn("findJxRtTableFromName(", "Unable to get any jxrtInfo for nothing returns: 6",
                   "jx_status == JX_SUCCESS")},
        FailingCall{"Table",
                    {},
                    "idle limits no_table 1000 5000 100 65535 q",
                    stopIn(kInRegister, "Cannot find table: no_table", "table != NULL")},
        FailingCall{"TableId",
                    {"fault JxRtTable::tableIdGet 1 status=22"},
                    kRegister,
                    stopIn(kInRegister, "Cannot get table id",
                           "table->tableIdGet( &table_id ) == JX_SUCCESS")},
        FailingCall{
            "AttributeStatus",
            {"fault JxRtTable::idleTableAttributesAllocate 1 status=2"},
            kRegister,
            stopIn("setTableIdleTimeoutCallback(", "Cannot allocate attribute for table: all_kinds",
                   "status == JX_SUCCESS")},
        FailingCall{
            "TableThatDoesNotAge",
            {},
            "idle limits exact_direct 1000 5000 100 65535 q",
            stopIn("setTableIdleTimeoutCallback(",
                   "Cannot allocate attribute for table: exact_direct", "status == JX_SUCCESS")},
        FailingCall{"NotifyMode",
                    {"fault JxRtTableAttributes::idleTableNotifyModeSet 1 status=3"},
                    kRegister,
                    stopIn("setTableIdleTimeoutCallback(",
                           "Unable to set the Idle table Notify on table: all_kinds",
                           "status == JX_SUCCESS")},
        FailingCall{"AttributeSet",
                    {"fault JxRtTable::tableAttributesSet 1 status=20"},
                    kRegister,
                    stopIn("setTableIdleTimeoutCallback(",
                           "Cannot set table attribute for table: all_kinds status: Idle time "
                           "update state already in progress",
                           "status == JX_SUCCESS")},
        FailingCall{"AttributeSetUnknown",
                    {"fault JxRtTable::tableAttributesSet 1 status=27"},
                    kRegister,
                    stopIn("setTableIdleTimeoutCallback(",
                           "Cannot set table attribute for table: all_kinds status: Unknown error",
                           "status == JX_SUCCESS")},
        FailingCall{"Token",
                    {"no-token"},
                    kRegister,
                    stopIn(kInRegister, "Cannot create client queue", "token != nullptr")},
        FailingCall{
            "DeregisterProgram",
            {},
            "no-idle nothing all_kinds 65535",
            stopIn("findJxRtTableFromName(", "Unable to get any jxrtInfo for nothing returns: 6",
                   "jx_status == JX_SUCCESS")},
        FailingCall{"DeregisterTable",
                    {},
                    "no-idle limits no_table 65535",
                    stopIn(kInDeregister, "Cannot find table: no_table", "table != NULL")},
        FailingCall{"DeregisterTableId",
                    {"fault JxRtTable::tableIdGet 1 status=22"},
                    kDeregister,
                    stopIn(kInDeregister, "Cannot get table id",
                           "table->tableIdGet( &table_id ) == JX_SUCCESS")},
        // Orders: the step that comes first is the one that stops.
        FailingCall{"TableBeforeItsId",
                    {"fault JxRtTable::tableIdGet 1 status=22"},
                    "idle limits no_table 1000 5000 100 65535 q",
                    stopIn(kInRegister, "Cannot find table: no_table", "table != NULL")},
        FailingCall{"AttributesBeforeTheToken",
                    {"fault JxRtTable::tableAttributesSet 1 status=24", "no-token"},
                    kRegister,
                    stopIn("setTableIdleTimeoutCallback(",
                           "Cannot set table attribute for table: all_kinds status: In use",
                           "status == JX_SUCCESS")},
        FailingCall{"TokenBeforeTheMap",
                    {kRegister, "no-token"},
                    kRegister,
                    stopIn(kInRegister, "Cannot create client queue", "token != nullptr")}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(FailingIdleCall, Stops) {
  NotifyPair pair;
  ASSERT_EQ(pair.partner.ask("queue q 16"), "true");
  bool registered = false;
  for (const std::string& command : GetParam().before) {
    const std::string answer = pair.partner.ask(command);
    EXPECT_TRUE(answer == "0" || answer == "done" || answer == "true") << command << ": " << answer;
    registered = registered || answer == "true";
  }
  if (registered) {
    EXPECT_EQ(u32At(pair.agent.receive(), 0), 3u);
  }
  pair.partner.say(GetParam().call);
  expectStop(pair.partner, GetParam().stop);
  Bytes message;
  EXPECT_FALSE(pair.agent.tryReceive(&message)) << "sent too early";
}

// The virtual device is armed with the same intervals, for a callback that looks at nothing.
TEST(IdlePartner, ArmsItsOwnDeviceOnceAndLeavesItArmed) {
  NotifyPair pair;
  ASSERT_EQ(pair.partner.ask("fault JxRtTable::tableAttributesSet 2 status=24"), "0");
  pair.registerTable();
  EXPECT_EQ(pair.partner.ask(kDeregister), "false");  // would stop if it set attributes
  EXPECT_EQ(u32At(pair.agent.receive(), 292), 0u);
}

}  // namespace
}  // namespace jextest
