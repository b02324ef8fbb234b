// Idle-time notifications on the agent: arming and disarming by raw requests, and what is sent when
// an entry ages out.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/stop.h"
#include "support/table_writer.h"
#include "wire/notify_frames.h"
#include "wire/notify_processes.h"
#include "wire/recorded_update.h"

namespace jextest {
namespace {

const char kInSet[] = "PartnerLib::setIdleTimeoutNotfications(";

Stop stopIn(const std::string& error, const std::string& expression,
            const std::string& function = kInSet) {
  return {"Error: " + error, "JexPartnerLibIdle", function, expression};
}

const Stop kCollision = stopIn("Cannot insert notify cookie struct", "res.second == true");
const Stop kNeverArmed = stopIn("Cannot find notify cookie struct to delete", "false");

IdleRequest disarm(uint32_t enable = 0) {
  IdleRequest request;
  request.interval = request.max_ttl = request.min_ttl = 0;
  request.enable = enable;
  return request;
}

IdleRequest arm(uint32_t table = kAllKinds, uint32_t enable = 1) {
  IdleRequest request;
  request.table = table;
  request.enable = enable;
  return request;
}

void send(RawPartner& partner, const IdleRequest& request) {
  partner.send(request.message(partner.pid()));
}

TEST(IdleAgent, ArmsAndDisarmsAsOftenAsItIsAsked) {
  NotifyAgentPair pair;
  for (int i = 0; i < 5; ++i) {
    send(pair.partner, arm());
    send(pair.partner, disarm());
  }
  pair.expectAllTaken();
}

// A wrong reading arms twice or disarms twice, and either stops the agent on other grounds.
TEST(IdleAgent, LooksAtTheLowByteOfEnableOnly) {
  NotifyAgentPair pair;
  send(pair.partner, arm(kAllKinds, 0x80));
  send(pair.partner, disarm(0x100));
  send(pair.partner, arm(kAllKinds, 0xFFFFFF01));
  send(pair.partner, disarm(0xFFFFFF00));
  send(pair.partner, arm(kAllKinds, 0x000000FF));
  send(pair.partner, disarm(0x01000000));
  pair.expectAllTaken();
}

TEST(IdleAgent, LooksAtNothingBehindTheEndOfAName) {
  NotifyAgentPair pair;
  Bytes message = arm().message(pair.partner.pid());
  for (size_t i = 20 + 7; i < 276; ++i) message[i] = static_cast<uint8_t>(i | 1);
  pair.partner.send(message);
  send(pair.partner, disarm());
  pair.expectAllTaken();
}

TEST(IdleAgent, ReadsANameWithoutAnEndNoFurtherThanItsField) {
  NotifyAgentPair pair;
  Bytes message = arm().message(pair.partner.pid());
  std::fill(message.begin() + 20, message.begin() + 276, 'n');
  pair.partner.send(message);
  expectStop(pair.agent,
             stopIn("Cannot find p4 program: " + std::string(256, 'n'), "status == JX_SUCCESS"));
}

TEST(IdleAgent, ArmsOneTableForSeveralPartners) {
  NotifyAgentPair pair;
  RawPartner other(pair.partner.pid() + 1);
  send(pair.partner, arm());
  pair.waitUntilTaken();
  other.registerWithAgent();
  send(other, arm());
  send(other, disarm());
  // One pipe of messages is in order, two are not: the end comes from who came last.
  other.send(request(7, 1));
  expectStop(pair.agent, {"Error: Deserialize from socket unsupported for msg Type: 7",
                          "JexPartnerLibServer", "", "false"});
}

TEST(IdleAgent, StopsWhenATableIsArmedTwice) {
  NotifyAgentPair pair;
  send(pair.partner, arm());
  send(pair.partner, arm());
  expectStop(pair.agent, kCollision);
}

TEST(IdleAgent, StopsWhenATableIsDisarmedThatNeverWasArmed) {
  NotifyAgentPair pair;
  send(pair.partner, disarm());
  expectStop(pair.agent, kNeverArmed);
}

TEST(IdleAgent, StopsWhenATableIsDisarmedTwice) {
  NotifyAgentPair pair;
  send(pair.partner, arm());
  send(pair.partner, disarm());
  send(pair.partner, disarm());
  expectStop(pair.agent, kNeverArmed);
}

TEST(IdleAgent, StopsWhenAPartnerDisarmsWhatAnotherArmed) {
  NotifyAgentPair pair;
  RawPartner other(pair.partner.pid() + 1);
  send(pair.partner, arm());
  pair.waitUntilTaken();
  other.registerWithAgent();
  send(other, disarm());
  expectStop(pair.agent, kNeverArmed);
}

/// Registers Partners one after the other, so that the agent's sockets count up.
std::vector<std::unique_ptr<RawPartner>> partnersBehind(NotifyAgentPair& pair, size_t count) {
  std::vector<std::unique_ptr<RawPartner>> partners;
  for (size_t i = 1; i <= count; ++i) {
    partners.push_back(std::make_unique<RawPartner>(pair.partner.pid() + i));
    // All from one sender: their order is kept.
    pair.partner.send(registration(partners.back()->pid(), partners.back()->address()));
  }
  return partners;
}

// Ten sockets further on and one table before: the same key. The table before does not age, but the
// key comes first.
TEST(IdleAgent, StopsWhenTwoPartnersHaveTheSameKey) {
  NotifyAgentPair pair;
  const auto partners = partnersBehind(pair, 10);
  send(pair.partner, arm());
  pair.partner.send(arm(kViaGroups).message(partners[9]->pid()));
  expectStop(pair.agent, kCollision);
}

TEST(IdleAgent, TellsNeighbouringKeysApart) {
  for (const size_t neighbour : {8u, 10u}) {
    SCOPED_TRACE(neighbour);
    NotifyAgentPair pair;
    const auto partners = partnersBehind(pair, 11);
    send(pair.partner, arm());
    pair.partner.send(arm(kViaGroups).message(partners[neighbour]->pid()));
    expectStop(pair.agent, stopIn("Cannot allocate idle table attrib", "status == JX_SUCCESS"));
  }
}

// Keys are 32 bits and wrap; -1, of who never registered, counts as a socket.
TEST(IdleAgent, TakesRequestsOfWhoNeverRegistered) {
  NotifyAgentPair pair;
  pair.partner.send(arm().message(4711));
  pair.partner.send(disarm().message(4712));  // also -1: the same key
  pair.expectAllTaken();
}

struct FailingRequest {
  const char* name;
  std::string faults;
  std::vector<IdleRequest> requests;
  Stop stop;
};

IdleRequest ofProgram(const std::string& program) {
  IdleRequest request;
  request.program = program;
  return request;
}

const char kCall[] = "status == JX_SUCCESS";

class FailingIdleRequest : public testing::TestWithParam<FailingRequest> {};
INSTANTIATE_TEST_SUITE_P(
    Each, FailingIdleRequest,
    testing::Values(
        FailingRequest{"Program",
                       "",
                       {ofProgram("nothing")},
                       stopIn("Cannot find p4 program: nothing", kCall)},
        FailingRequest{"ProgramStatus",
                       "jx_rt_info_get:1:status=22",
                       {arm()},
                       stopIn("Cannot find p4 program: limits", kCall)},
        FailingRequest{
            "Table", "", {arm(12345)}, stopIn("Cannot find table with id: 12345", kCall)},
        FailingRequest{"TableStatus",
                       "jx_rt_table_from_id_get:1:status=22",
                       {arm()},
                       stopIn("Cannot find table with id: 196615", kCall)},
        FailingRequest{"TableThatDoesNotAge",
                       "",
                       {arm(kExactDirect)},
                       stopIn("Cannot allocate idle table attrib", kCall)},
        FailingRequest{"Attributes",
                       "jx_rt_table_idle_table_attributes_allocate:1:status=2",
                       {arm()},
                       stopIn("Cannot allocate idle table attrib", kCall)},
        FailingRequest{"NotifyMode",
                       "jx_rt_attributes_idle_table_notify_mode_set:1:status=3",
                       {arm()},
                       stopIn("Cannot set idle notify attrib", kCall)},
        FailingRequest{"AttributesSet",
                       "jx_rt_table_attributes_set:1:status=20",
                       {arm()},
                       stopIn("Cannot set idle notify attrib on table. status: Idle time update "
                              "state already in progress",
                              kCall)},
        FailingRequest{"DisarmProgram",
                       "jx_rt_info_get:2:status=22",
                       {arm(), disarm()},
                       stopIn("Cannot find p4 program: limits", kCall)},
        FailingRequest{"DisarmTable",
                       "jx_rt_table_from_id_get:2:status=22",
                       {arm(), disarm()},
                       stopIn("Cannot find table with id: 196615", kCall)},
        FailingRequest{"DisarmAttributes",
                       "jx_rt_table_idle_table_attributes_allocate:2:status=2",
                       {arm(), disarm()},
                       stopIn("Cannot allocate idle table attrib", kCall)},
        FailingRequest{"DisarmNotifyMode",
                       "jx_rt_attributes_idle_table_notify_mode_set:2:status=3",
                       {arm(), disarm()},
                       stopIn("Cannot set idle notify attrib", kCall)},
        FailingRequest{"DisarmAttributesSet",
                       "jx_rt_table_attributes_set:2:status=24",
                       {arm(), disarm()},
                       stopIn("Cannot set idle notify attrib on table. status: In use", kCall)},
        // Orders: the step that comes first is the one that stops.
        FailingRequest{"ProgramBeforeTable",
                       "jx_rt_table_from_id_get:0:status=22",
                       {ofProgram("nothing")},
                       stopIn("Cannot find p4 program: nothing", kCall)},
        FailingRequest{"TableBeforeKey",
                       "jx_rt_table_from_id_get:2:status=22",
                       {arm(), arm()},
                       stopIn("Cannot find table with id: 196615", kCall)},
        FailingRequest{"KeyBeforeAttributes",
                       "jx_rt_table_idle_table_attributes_allocate:2:status=22",
                       {arm(), arm()},
                       kCollision},
        FailingRequest{"KeyBeforeAttributesOnDisarming",
                       "jx_rt_table_idle_table_attributes_allocate:1:status=22",
                       {disarm()},
                       kNeverArmed}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(FailingIdleRequest, StopsTheAgent) {
  NotifyAgentPair pair({"limits"}, {{"JX_MODEL_FAULTS", GetParam().faults}});
  for (const IdleRequest& request : GetParam().requests) send(pair.partner, request);
  expectStop(pair.agent, GetParam().stop);
}

uint64_t steadyMilliseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

/// An agent whose table all_kinds holds two entries.
struct AgentWithEntries : NotifyAgentPair {
  AgentWithEntries() {
    const SwitchDevice device(DeviceKind::kVirtual, 1, {"limits"}, 700);
    const auto messages =
        messagesOf(device.view(), {"add all_kinds 1 nop", "add all_kinds 2 nop"}, partner.pid());
    for (const Bytes& message : messages) partner.send(message);
    const TableWriter writer(device.view());
    first = writer.handle("all_kinds", 1);
    second = writer.handle("all_kinds", 2);
  }
  std::string expire(uint32_t handle) {
    return agent.ask("expire limits all_kinds " + std::to_string(handle));
  }
  uint32_t first = 0;
  uint32_t second = 0;
};

TEST(IdleAgent, SendsOneRecordForAnEntryThatAgesOut) {
  AgentWithEntries pair;
  send(pair.partner, arm());
  ASSERT_TRUE(pair.waitUntilTaken().empty());
  const uint64_t before = steadyMilliseconds();
  ASSERT_EQ(pair.expire(pair.first), "0");
  const Bytes record = pair.partner.receive();
  const uint64_t after = steadyMilliseconds();
  ASSERT_EQ(record.size(), 20u);
  EXPECT_EQ(record[0], 0);
  EXPECT_EQ(record[1], 0) << "the physical device";
  EXPECT_EQ(u32At(record, 4), kAllKinds);
  EXPECT_EQ(u32At(record, 8), pair.first);
  EXPECT_GE(u64At(record, 12), before);
  EXPECT_LE(u64At(record, 12), after);
  EXPECT_EQ(pair.agent.ask("settled"), "0");
  EXPECT_TRUE(pair.waitUntilTaken().empty()) << "nothing else is sent";
}

TEST(IdleAgent, SendsARecordForEachEntryInOrder) {
  AgentWithEntries pair;
  send(pair.partner, arm());
  pair.waitUntilTaken();
  EXPECT_EQ(pair.expire(pair.second), "0");
  EXPECT_EQ(pair.expire(pair.first), "0");
  EXPECT_EQ(u32At(pair.partner.receive(), 8), pair.second);
  EXPECT_EQ(u32At(pair.partner.receive(), 8), pair.first);
}

TEST(IdleAgent, SendsNothingOnceDisarmed) {
  AgentWithEntries pair;
  send(pair.partner, arm());
  send(pair.partner, disarm());
  pair.waitUntilTaken();
  EXPECT_EQ(pair.expire(pair.first), "1") << "nobody is told";
  EXPECT_EQ(pair.agent.ask("settled"), "0");
  EXPECT_TRUE(pair.waitUntilTaken().empty());
}

TEST(IdleAgent, StopsWhenThereIsNobodyToSendTo) {
  AgentWithEntries pair;
  pair.partner.send(arm().message(4711));  // never registered
  pair.waitUntilTaken();
  pair.agent.say("expire limits all_kinds " + std::to_string(pair.first));
  expectStop(pair.agent,
             stopIn("Invalid SliceAgent Send socket",
                    "( ( NotifyCookieStruct * )cookie )->sendSocket >= 0", "idletime_c_callback("));
}

}  // namespace
}  // namespace jextest
