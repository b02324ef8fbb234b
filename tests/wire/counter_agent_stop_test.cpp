// Every way in which the agent's counter service stops: faults of the SDK, and requests that do not
// fit what there is.
#include <gtest/gtest.h>

#include "wire/counting_pair.h"

namespace jextest {
namespace {

constexpr uint32_t kPid = AgentBesideRawPartner::kPid;
const std::string kId = std::to_string(kPairs);

Stop stopIn(const std::string& function, const std::string& text, const std::string& expression) {
  return {"Error: " + text, "JexPartnerLibCounter", function, expression};
}
Stop stopInStart(const std::string& text,
                 const std::string& expression = "jx_status == JX_SUCCESS") {
  return stopIn("PartnerLib::setCountersSync(", text, expression);
}

struct Fault {
  const char* name;
  const char* faults;
  const char* function;
  std::string text;
  std::string expression = "jx_status == JX_SUCCESS";
};

std::string nameOf(const testing::TestParamInfo<Fault>& test) { return test.param.name; }

class StartFault : public testing::TestWithParam<Fault> {};
INSTANTIATE_TEST_SUITE_P(
    Every, StartFault,
    testing::Values(Fault{"Program", "jx_rt_info_get:1:status=6", "setCountersSync(",
                          "Cannot find p4 program limits"},
                    Fault{"Table", "jx_rt_table_from_id_get:1:status=23", "setCountersSync(",
                          "Cannot find table with id: " + kId},
                    Fault{"Size", "jx_rt_table_size_get:1:status=3", "setCountersSync(",
                          "Cannot find table size: " + kId},
                    Fault{"Index", "jx_rt_key_field_id_get:1:status=6", "setCountersSync(",
                          "Cannot find index field counter for table"},
                    Fault{"Packets", "jx_rt_data_field_id_get:1:status=6", "setCountersSync(",
                          "Cannot find packets field counter for table"},
                    Fault{"Bytes", "jx_rt_data_field_id_get:2:status=6", "setCountersSync(",
                          "Cannot find bytes field counter for table"}),
    nameOf);

TEST_P(StartFault, StopsTheAgent) {
  AgentBesideRawPartner pair({}, {{"JX_MODEL_FAULTS", GetParam().faults}});
  pair.enablePairs();
  expectStop(pair.agent, stopIn(std::string("PartnerLib::") + GetParam().function, GetParam().text,
                                GetParam().expression));
}

class SyncFault : public testing::TestWithParam<Fault> {};
INSTANTIATE_TEST_SUITE_P(
    Every, SyncFault,
    testing::Values(Fault{"Allocate", "jx_rt_table_operations_allocate:1:status=2",
                          "registerCounterSyncCallback(",
                          "Cannot allocate table op counter-sync on table with id: " + kId},
                    Fault{"Set", "jx_rt_operations_counter_sync_set:1:status=3",
                          "registerCounterSyncCallback(",
                          "Cannot set counter-sync on table with id: " + kId},
                    Fault{"Execute", "jx_rt_table_operations_execute:1:status=5",
                          "registerCounterSyncCallback(",
                          "Cannot exec counter-sync on table with id: " + kId},
                    Fault{"Deallocate", "jx_rt_table_operations_deallocate:1:status=15",
                          "registerCounterSyncCallback(",
                          "Cannot deallocate table op counter-sync on table with id: " + kId},
                    Fault{"Key", "jx_rt_table_key_allocate:1:status=2", "processCounterRead(",
                          "Cannot Allocate counter table key"},
                    Fault{"Data", "jx_rt_table_data_allocate:1:status=2", "processCounterRead(",
                          "Cannot Allocate counter table data"},
                    Fault{"Value", "jx_rt_table_entry_get:3:status=26", "processCounterRead(",
                          "Cannot get counter value"},
                    Fault{"Packets", "jx_rt_data_field_get_value:31:status=6",
                          "processCounterRead(", "Cannot get counter packets"},
                    Fault{"Bytes", "jx_rt_data_field_get_value:32:status=6", "processCounterRead(",
                          "Cannot get counter bytes"},
                    Fault{"FreeKey", "jx_rt_table_key_deallocate:1:status=15",
                          "processCounterRead(", "Cannot free table key"},
                    Fault{"FreeData", "jx_rt_table_data_deallocate:1:status=15",
                          "processCounterRead(", "Cannot free table data"}),
    nameOf);

TEST_P(SyncFault, StopsTheAgentOnABarrier) {
  AgentBesideRawPartner pair({}, {{"JX_MODEL_FAULTS", GetParam().faults}});
  pair.enablePairs();
  pair.sendBarrier(kPairs, 1);
  expectStop(pair.agent, stopIn(std::string("PartnerLib::") + GetParam().function, GetParam().text,
                                GetParam().expression));
  Bytes message;
  EXPECT_FALSE(pair.partner.tryReceive(&message)) << "no answer before the values";
}

TEST_P(SyncFault, StopsTheAgentOnAnUpdate) {
  for (const char* update : {"update", "update-model"}) {
    AgentBesideRawPartner pair({}, {{"JX_MODEL_FAULTS", GetParam().faults}});
    pair.enablePairs();
    pair.fence();
    pair.agent.say(update);
    expectStop(pair.agent, stopIn(std::string("PartnerLib::") + GetParam().function,
                                  GetParam().text, GetParam().expression));
  }
}

// The result of setting the index is not looked at; the read that follows does not depend on it.
TEST(CounterAgentStop, DoesNotStopOnAnIndexThatIsRefused) {
  AgentBesideRawPartner pair({}, {{"JX_MODEL_FAULTS", "jx_rt_key_field_set_value:2:status=3"}});
  pair.enablePairs();
  pair.sync(kPairs);
}

TEST(CounterAgentStop, OnAnUnknownProgram) {
  for (const uint8_t enable : Bytes{0, 1}) {
    AgentBesideRawPartner pair;
    pair.partner.send(counterConfig(kPid, kPairs, enable, "nothing"));
    expectStop(pair.agent, stopInStart("Cannot find p4 program nothing"));
  }
}

TEST(CounterAgentStop, OnAnUnknownTable) {
  for (const uint8_t enable : Bytes{0, 1}) {
    AgentBesideRawPartner pair;
    pair.partner.send(counterConfig(kPid, 4294967295u, enable));
    expectStop(pair.agent, stopInStart("Cannot find table with id: 4294967295"));
  }
}

TEST(CounterAgentStop, OnATableWithoutABlock) {
  AgentBesideRawPartner pair;
  pair.partner.send(counterConfig(kPid, kPairs, 1));
  expectStop(pair.agent, stopInStart("Cannot find counter for table in SHM", "ptr"));
}

// A Partner that was given a program whose table is smaller has made it.
TEST(CounterAgentStop, OnABlockThatIsTooShort) {
  constexpr size_t kBlock = 12 + 16 * kPairCount;
  for (const size_t bytes : {kBlock - 1, kBlock - 16, size_t{12}}) {
    AgentBesideRawPartner pair;
    pair.segment.makeBytes(kId, bytes);
    pair.partner.send(counterConfig(kPid, kPairs, 1));
    expectStop(pair.agent, stopInStart("Cannot find counter for table in SHM", "ptr"));
    EXPECT_EQ(pair.block(kPairs), Bytes(bytes, 0));
  }
}

TEST(CounterAgentStop, OnATableThatCountsNothing) {
  AgentBesideRawPartner pair;
  pair.enable(kExactDirect, 4096);
  expectStop(pair.agent, stopInStart("Cannot find index field counter for table"));
}

TEST(CounterAgentStop, OnATableThatIsStartedTwice) {
  AgentBesideRawPartner pair;
  pair.enablePairs();
  pair.fence();
  pair.partner.send(counterConfig(kPid, kPairs, 1));
  expectStop(pair.agent, stopInStart("Cannot insert counter struct", "res.second"));
}

TEST(CounterAgentStop, OnTheEndOfATableThatWasNeverStarted) {
  AgentBesideRawPartner pair;
  pair.disable(kPairs);
  expectStop(pair.agent, stopInStart("Cannot find counter struct to delete", "false"));
}

TEST(CounterAgentStop, OnASecondEnd) {
  AgentBesideRawPartner pair;
  pair.enablePairs();
  pair.disable(kPairs);
  pair.fence();
  pair.disable(kPairs);
  expectStop(pair.agent, stopInStart("Cannot find counter struct to delete", "false"));
}

// Nobody catches what opening it throws.
TEST(CounterAgentStop, WithoutASegment) {
  AgentBesideRawPartner pair;
  removeSegmentFile();
  pair.partner.send(counterConfig(kPid, kPairs, 1));
  EXPECT_EQ(pair.agent.waitForExit().signal, SIGABRT);
  const auto lines = linesWith(pair.agent.standardError(), "terminate called");
  ASSERT_EQ(lines.size(), 1u) << pair.agent.standardError();
  EXPECT_NE(lines[0].find("boost::interprocess::interprocess_exception"), std::string::npos);
  EXPECT_EQ(segmentFile().size, 0u) << "the agent makes none";
}

TEST(CounterAgentStop, OnAnImageWithoutValues) {
  AgentBesideRawPartner pair;
  pair.enablePairs();
  pair.fence();
  pair.agent.say("image " + kId + " no-counters");
  expectStop(pair.agent,
             stopIn("PartnerLib::processCounterRead(", "NO memmap for getting counters", "false"));
}

// The answer has nowhere to go.
TEST(CounterAgentStop, OnABarrierOfAPidThatNeverRegistered) {
  AgentBesideRawPartner pair;
  pair.partner.send(barrier(999, 0, 1));
  expectStop(pair.agent, {"Error: Socket readyToSend failed - remote disconnect/deadBad file "
                          "descriptor",
                          "JexPartnerLibSocket", "socketReady(", "false"});
}

TEST(CounterAgentStop, OnABarrierForCountersOfAPidThatNeverRegistered) {
  AgentBesideRawPartner pair;
  pair.segment.makeBlock(kId, kPairCount);
  pair.partner.send(counterConfig(999, kPairs, 1));
  pair.fence();
  pair.sendBarrier(kPairs, 1);
  expectStop(pair.agent, {"Error: Socket readyToSend failed - remote disconnect/deadBad file "
                          "descriptor",
                          "JexPartnerLibSocket", "socketReady(", "false"});
  EXPECT_NE(lastReadTimeOf(pair.block(kPairs)), 0u) << "the values came before";
}

}  // namespace
}  // namespace jextest
