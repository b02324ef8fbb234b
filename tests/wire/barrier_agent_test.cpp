// The agent's barriers: answered at once, by a sync, or by the one after it; beside raw Partners.
#include <gtest/gtest.h>

#include "wire/counting_pair.h"
#include "wire/table_alias.h"

namespace jextest {
namespace {

constexpr uint32_t kPid = AgentBesideRawPartner::kPid;

/// An agent with counters of "pairs" started and nothing under way.
struct StartedAgent : AgentBesideRawPartner {
  explicit StartedAgent(const Child::Environment& environment = {})
      : AgentBesideRawPartner({}, environment) {
    enablePairs();
    fence();
  }

  std::string record() { return agent.ask("record " + std::to_string(kPairs)); }
  void hold() { EXPECT_EQ(agent.ask("hold"), "done"); }
  void release() { EXPECT_EQ(agent.ask("release"), "done"); }
  void becomeIdle() { EXPECT_EQ(agent.ask("idle"), "done"); }
  void update() { EXPECT_EQ(agent.ask("update"), "true"); }

  /// Barrier 2 comes while the sync of barrier 1 is under way, which is answered: 2 waits for the
  /// next sync, and none is under way.
  void letBarrierTwoWait() {
    hold();
    sendBarrier(kPairs, 1);
    sendBarrier(kPairs, 2);
    fence();
    release();
    EXPECT_EQ(partner.receive(), barrierReply(1));
    becomeIdle();
  }
};

TEST(BarrierAgent, AnswersAPlainBarrier) {
  AgentBesideRawPartner pair;
  pair.sendBarrier(0, 0x0123456789ABCDEF);
  const Bytes reply = pair.partner.receive();
  ASSERT_EQ(reply.size(), 12u);
  EXPECT_EQ(u32At(reply, 0), 0x000C00FEu);
  EXPECT_EQ(u64At(reply, 4), 0x0123456789ABCDEFu);
  EXPECT_EQ(pair.agent.ask("waiting"), "0");
  pair.fence();
}

TEST(BarrierAgent, LooksAtNothingBetweenTableAndTime) {
  AgentBesideRawPartner pair;
  Bytes message = barrier(kPid, 0, 5);
  for (size_t i = 20; i < 276; ++i) message[i] = 0xFF;
  pair.partner.send(message);
  EXPECT_EQ(pair.partner.receive(), barrierReply(5));
}

TEST(BarrierAgent, AnswersAMillionInTheOrderOfTheBarriers) {
  constexpr uint64_t kBarriers = kSanitized ? 20000 : 1000000;
  AgentBesideRawPartner pair;
  // No more at a time than a socket holds: a Partner that does not read stops the agent.
  constexpr uint64_t kAtOnce = 50;
  for (uint64_t first = 0; first < kBarriers; first += kAtOnce) {
    for (uint64_t i = first; i < first + kAtOnce; ++i) pair.sendBarrier(0, i);
    for (uint64_t i = first; i < first + kAtOnce; ++i) {
      ASSERT_EQ(pair.partner.receive(), barrierReply(i));
    }
  }
}

TEST(BarrierAgent, AnswersABarrierForATableWithoutCounters) {
  StartedAgent pair;
  pair.hold();
  for (const uint32_t table_id : {kNoPairs, kExactDirect, 77u, kPairs * 10}) {
    pair.sendBarrier(table_id, table_id);
    EXPECT_EQ(pair.partner.receive(), barrierReply(table_id));
  }
  EXPECT_EQ(pair.agent.ask("waiting"), "0");
}

TEST(BarrierAgent, AnswersAPlainBarrierWhileASyncIsUnderWay) {
  StartedAgent pair;
  pair.hold();
  pair.sendBarrier(kPairs, 1);
  pair.fence();
  EXPECT_EQ(pair.record(), "1 0");
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
}

// An enabled table may have the id that plain barriers name.
TEST(BarrierAgent, APlainBarrierWaitsForTableZero) {
  AgentBesideRawPartner pair({}, {{kTableAliasVariable, tableAlias("pairs", 0)}});
  pair.enable(0, kPairCount);
  pair.sendBarrier(kNoPairs, 1);
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  pair.agent.ask("hold");
  pair.sendBarrier(0, 2);
  pair.sendBarrier(kNoPairs, 3);
  EXPECT_EQ(pair.partner.receive(), barrierReply(3)) << "2 waits for the sync";
  EXPECT_EQ(pair.agent.ask("waiting"), "1");
  pair.agent.ask("release");
  EXPECT_EQ(pair.partner.receive(), barrierReply(2));
  EXPECT_NE(lastReadTimeOf(pair.block(0)), 0u);
}

TEST(BarrierAgent, AnswersAfterTheSync) {
  StartedAgent pair;
  pair.hold();
  pair.sendBarrier(kPairs, 7);
  pair.fence();
  EXPECT_EQ(pair.agent.ask("waiting"), "1");
  EXPECT_EQ(pair.record(), "7 0");
  EXPECT_EQ(lastReadTimeOf(pair.block(kPairs)), 0u);
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(7));
  EXPECT_NE(lastReadTimeOf(pair.block(kPairs)), 0u);
  pair.becomeIdle();
  EXPECT_EQ(pair.record(), "0 0");
  pair.fence();
}

// The first begins a sync, the second waits, the third takes its place.
TEST(BarrierAgent, AnswersTheFirstAndTheLastOfThree) {
  StartedAgent pair;
  pair.hold();
  for (const uint64_t name : {1, 2, 3}) pair.sendBarrier(kPairs, name);
  pair.fence();
  EXPECT_EQ(pair.agent.ask("waiting"), "1") << "one sync only";
  EXPECT_EQ(pair.record(), "1 3");
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  pair.becomeIdle();
  EXPECT_EQ(pair.record(), "3 0");
  pair.fence();
  pair.update();
  EXPECT_EQ(pair.partner.receive(), barrierReply(3));
  pair.becomeIdle();
  EXPECT_EQ(pair.record(), "0 0");
  pair.update();
  pair.becomeIdle();
  pair.fence();
}

TEST(BarrierAgent, APeriodicSyncAnswersTheOneThatWaits) {
  StartedAgent pair;
  pair.hold();
  pair.update();
  pair.sendBarrier(kPairs, 1);
  pair.sendBarrier(kPairs, 2);
  pair.fence();
  EXPECT_EQ(pair.agent.ask("waiting"), "2");
  pair.release();  // the periodic one completes first and answers 1, the barrier's own answers 2
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  EXPECT_EQ(pair.partner.receive(), barrierReply(2));
  pair.becomeIdle();
  EXPECT_EQ(pair.record(), "0 0");
  pair.fence();
}

// Both of a double barrier: the second is answered by a sync that began after the first was
// handled.
TEST(BarrierAgent, AnswersBothOfADouble) {
  StartedAgent pair;
  pair.hold();
  pair.sendBarrier(kPairs, 100);
  pair.sendBarrier(kPairs, 110);
  pair.fence();
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(100));
  pair.becomeIdle();
  const uint64_t first_sync = lastReadTimeOf(pair.block(kPairs));
  pair.update();
  EXPECT_EQ(pair.partner.receive(), barrierReply(110));
  EXPECT_GE(lastReadTimeOf(pair.block(kPairs)), first_sync);
}

TEST(BarrierAgent, TwoOfOneMillisecondHaveOneName) {
  StartedAgent pair;
  pair.hold();
  pair.sendBarrier(kPairs, 5);
  pair.sendBarrier(kPairs, 5);
  pair.fence();
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(5));
  pair.becomeIdle();
  pair.update();
  EXPECT_EQ(pair.partner.receive(), barrierReply(5));
  pair.becomeIdle();
  pair.fence();
}

TEST(BarrierAgent, KeepsTheBarriersOfTablesApart) {
  StartedAgent pair;
  pair.enable(kNoPairs, 0);
  pair.fence();
  pair.hold();
  pair.sendBarrier(kPairs, 1);
  pair.sendBarrier(kNoPairs, 2);
  pair.fence();
  EXPECT_EQ(pair.agent.ask("waiting"), "2");
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  EXPECT_EQ(pair.partner.receive(), barrierReply(2));
}

TEST(BarrierAgent, AnswersThePartnerThatStartedTheCounters) {
  StartedAgent pair;
  RawPartner other(kPid + 1);
  other.registerWithAgent();
  other.send(barrier(other.pid(), kPairs, 9));
  EXPECT_EQ(pair.partner.receive(), barrierReply(9));
  other.send(barrier(other.pid(), 0, 10));
  EXPECT_EQ(other.receive(), barrierReply(10)) << "and nothing before";
}

TEST(BarrierAgent, AnswersForAPidThatNeverRegistered) {
  StartedAgent pair;
  pair.partner.send(barrier(999, kPairs, 11));
  EXPECT_EQ(pair.partner.receive(), barrierReply(11));
  pair.fence();
}

TEST(BarrierAgent, ServesTwoPartnersWithCountersOfTheirOwn) {
  StartedAgent pair;
  RawPartner other(kPid + 1);
  other.registerWithAgent();
  pair.segment.makeBlock(std::to_string(kNoPairs), 0);
  other.send(counterConfig(other.pid(), kNoPairs, 1));
  for (uint64_t i = 1; i <= 200; ++i) {  // 0 would be none
    pair.sendBarrier(kPairs, i);
    other.send(barrier(other.pid(), kNoPairs, 1000 + i));
    ASSERT_EQ(pair.partner.receive(), barrierReply(i));
    ASSERT_EQ(other.receive(), barrierReply(1000 + i));
  }
}

// Handled in the order in which they came: what was sent before a barrier is done when it is
// answered.
TEST(BarrierAgent, ABarrierAfterTheEndOfTheCountersIsPlain) {
  StartedAgent pair;
  pair.disable(kPairs);
  pair.sendBarrier(kPairs, 1);
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  EXPECT_EQ(pair.agent.ask("waiting"), "0");
}

// A sync under way is not cancelled: it answers the barrier that waits for it, and only that.
TEST(BarrierAgent, ASyncUnderWayAnswersItsBarrierAfterTheEndOfTheCounters) {
  StartedAgent pair;
  pair.hold();
  pair.sendBarrier(kPairs, 1);
  pair.sendBarrier(kPairs, 2);
  pair.disable(kPairs);
  pair.fence();
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  pair.becomeIdle();
  pair.fence();
}

TEST(BarrierAgent, SeveralSyncsUnderWayAnswerAfterTheEndOfTheCountersAsBefore) {
  StartedAgent pair;
  pair.hold();
  pair.update();
  pair.sendBarrier(kPairs, 1);
  pair.sendBarrier(kPairs, 2);
  pair.disable(kPairs);
  pair.fence();
  EXPECT_EQ(pair.agent.ask("waiting"), "2");
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  EXPECT_EQ(pair.partner.receive(), barrierReply(2));
  pair.becomeIdle();
  pair.fence();
}

// No sync was made for it, so no answer says that there was one.
TEST(BarrierAgent, TheEndOfTheCountersAnswersNoBarrierThatWaitsForTheNextSync) {
  StartedAgent pair;
  pair.letBarrierTwoWait();
  EXPECT_EQ(pair.record(), "2 0");
  pair.sendBarrier(kPairs, 3);
  pair.fence();
  EXPECT_EQ(pair.record(), "2 3");
  pair.disable(kPairs);
  pair.fence();
  EXPECT_EQ(pair.record(), "none");
  pair.update();
  pair.becomeIdle();
  pair.fence();
}

TEST(BarrierAgent, TheEndOfTheCountersOfAPartnerThatHasGoneIsHandled) {
  StartedAgent pair;
  pair.segment.makeBlock(std::to_string(kNoPairs), 0);
  {
    RawPartner other(kPid + 1);
    other.registerWithAgent();
    other.send(counterConfig(other.pid(), kNoPairs, 1));
    pair.hold();
    for (const uint64_t name : {1, 2}) other.send(barrier(other.pid(), kNoPairs, name));
    other.send(barrier(other.pid(), 0, 3));
    EXPECT_EQ(other.receive(), barrierReply(3));
    pair.release();
    EXPECT_EQ(other.receive(), barrierReply(1));
    pair.becomeIdle();
  }
  pair.disable(kNoPairs);
  pair.sendBarrier(kNoPairs, 4);  // of a table whose counters have ended
  EXPECT_EQ(pair.partner.receive(), barrierReply(4));
  EXPECT_EQ(pair.agent.standardError(), "");
}

// Each is sent because the answer to its predecessor has come, and nothing else makes syncs.
TEST(BarrierAgent, AnswersBarriersThatFollowEachOther) {
  constexpr uint64_t kBarriers = kSanitized ? 1000 : 10000;
  StartedAgent pair;
  for (uint64_t name = 1; name <= kBarriers; ++name) {
    pair.sendBarrier(kPairs, name);
    ASSERT_EQ(pair.partner.receive(), barrierReply(name));
  }
  pair.fence();
}

// 0 says that no barrier waits.
TEST(BarrierAgent, NeverAnswersABarrierForATableThatIsNamedZero) {
  StartedAgent pair;
  pair.sendBarrier(kPairs, 0);
  pair.fence();
  pair.becomeIdle();
  pair.update();
  pair.becomeIdle();
  pair.fence();
  pair.sendBarrier(0, 0);
  EXPECT_EQ(pair.partner.receive(), barrierReply(0)) << "a plain one is answered";
}

TEST(BarrierAgent, ALateSyncIsStillAnswered) {
  StartedAgent pair(
      Child::Environment{{"JX_MODEL_FAULTS", "jx_rt_table_operations_execute:0:delay=30"}});
  for (uint64_t i = 1; i <= 5; ++i) {
    pair.sendBarrier(kPairs, i);
    EXPECT_EQ(pair.partner.receive(), barrierReply(i));
  }
}

// An agent that is a Partner too sends the queued barrier to itself, and finds it under way.
TEST(BarrierAgent, SendsAQueuedBarrierToItselfIfItIsAPartnerToo) {
  StartedAgent pair;
  ASSERT_EQ(pair.agent.ask("become-partner"), "true") << pair.agent.standardError();
  pair.hold();
  for (const uint64_t name : {1, 2, 3}) pair.sendBarrier(kPairs, name);
  pair.fence();
  EXPECT_EQ(pair.record(), "1 3");
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  ASSERT_TRUE(waitUntil([&] { return pair.record() == "3 3"; })) << pair.record();
  pair.update();
  EXPECT_EQ(pair.partner.receive(), barrierReply(3));
  ASSERT_TRUE(waitUntil([&] { return pair.record() == "3 3"; })) << pair.record();
  pair.fence();
}

TEST(BarrierAgent, TheEndOfTheCountersAnswersNothingIfItIsAPartnerToo) {
  StartedAgent pair;
  ASSERT_EQ(pair.agent.ask("become-partner"), "true") << pair.agent.standardError();
  pair.hold();
  for (const uint64_t name : {1, 2}) pair.sendBarrier(kPairs, name);
  pair.fence();
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  ASSERT_TRUE(waitUntil([&] { return pair.record() == "2 2"; })) << pair.record();
  pair.disable(kPairs);
  pair.fence();
  pair.fence();
}

// The barrier that the sync sends anew finds no counters, and is answered as a plain one: once.
TEST(BarrierAgent, AQueuedBarrierOfAStoppedTableIsPlainIfItIsAPartnerToo) {
  StartedAgent pair;
  ASSERT_EQ(pair.agent.ask("become-partner"), "true") << pair.agent.standardError();
  pair.hold();
  for (const uint64_t name : {1, 2}) pair.sendBarrier(kPairs, name);
  pair.disable(kPairs);
  pair.fence();
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  EXPECT_EQ(pair.partner.receive(), barrierReply(2));
  pair.becomeIdle();
  pair.fence();
}

// The second sync finds no barrier: the one that the first sync sent anew has its answer.
TEST(BarrierAgent, SeveralSyncsOfAStoppedTableAnswerABarrierOnceIfItIsAPartnerToo) {
  StartedAgent pair;
  ASSERT_EQ(pair.agent.ask("become-partner"), "true") << pair.agent.standardError();
  pair.hold();
  pair.update();
  for (const uint64_t name : {1, 2}) pair.sendBarrier(kPairs, name);
  pair.disable(kPairs);
  pair.fence();
  EXPECT_EQ(pair.agent.ask("waiting"), "2");
  pair.release();
  EXPECT_EQ(pair.partner.receive(), barrierReply(1));
  EXPECT_EQ(pair.partner.receive(), barrierReply(2));
  pair.becomeIdle();
  pair.fence();
  pair.fence();  // one of them is behind what the agent sent to itself
}

}  // namespace
}  // namespace jextest
