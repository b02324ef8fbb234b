// The Partner's barriers: what it sends, and what it makes of the answers of a raw agent.
#include <gtest/gtest.h>

#include "wire/counting_pair.h"

namespace jextest {
namespace {

/// A Partner whose counters of "pairs" are started, and the agent's end of its reverse path.
struct BarrierPair : PartnerBesideRawAgent {
  BarrierPair() : reverse(RawAgent::connectTo(address)) {
    partner.ask("init limits pairs");
    agent.receive();
  }

  uint64_t number(const std::string& command) { return std::stoull(partner.ask(command)); }
  std::vector<uint64_t> bins() { return numbersIn(partner.ask("bins")); }

  /// Answers a barrier and waits until the Partner has seen it.
  void reply(uint64_t timestamp) {
    const std::vector<uint64_t> before = bins();
    reverse.send(barrierReply(timestamp));
    EXPECT_TRUE(waitUntil([&] { return number("last") == timestamp && bins() != before; }));
    // What the receive thread does last stands before its answer to a heartbeat.
    reverse.send({255, 0, 0, 0});
    EXPECT_EQ(agent.receive(), request(9, pid()));
  }

  RawSocket reverse;
};

void expectBarrier(const Bytes& message, uint32_t pid, uint32_t table_id, uint64_t timestamp) {
  ASSERT_EQ(message.size(), 284u);
  EXPECT_EQ(u32At(message, 0), 10u);
  EXPECT_EQ(u32At(message, 4), pid);
  EXPECT_EQ(u64At(message, 8), 284u);
  EXPECT_EQ(u32At(message, 16), table_id);
  for (size_t i = 20; i < 276; ++i) ASSERT_EQ(message[i], 0) << i;
  EXPECT_EQ(u64At(message, 276), timestamp);
}

TEST(BarrierPartner, SendsAPlainBarrier) {
  BarrierPair pair;
  const uint64_t before = steadyMilliseconds();
  const uint64_t timestamp = pair.number("barrier");
  EXPECT_LE(before, timestamp);
  EXPECT_LE(timestamp, steadyMilliseconds());
  expectBarrier(pair.agent.receive(), pair.pid(), 0, timestamp);
  EXPECT_EQ(pair.number("requested"), timestamp);
  pair.expectNothingElse();
}

TEST(BarrierPartner, SendsABarrierForATable) {
  BarrierPair pair;
  const uint64_t timestamp = pair.number("sync pairs");
  expectBarrier(pair.agent.receive(), pair.pid(), kPairs, timestamp);
  EXPECT_EQ(pair.number("requested"), timestamp);
  pair.expectNothingElse();
}

TEST(BarrierPartner, SendsTwoBarriersTenMillisecondsApart) {
  BarrierPair pair;
  for (const bool null_handle : {false, true}) {
    const uint32_t table_id = null_handle ? 0 : kPairs;
    const uint64_t before = steadyMilliseconds();
    const uint64_t second = pair.number(null_handle ? "double-null" : "double pairs");
    EXPECT_LE(before + 10, second);
    EXPECT_LE(second, steadyMilliseconds() + 10);
    expectBarrier(pair.agent.receive(), pair.pid(), table_id, second - 10);
    expectBarrier(pair.agent.receive(), pair.pid(), table_id, second);
    EXPECT_EQ(pair.number("requested"), second);
  }
  pair.expectNothingElse();
}

TEST(BarrierPartner, StartsWithNothingAnswered) {
  BarrierPair pair;
  EXPECT_EQ(pair.number("last"), 0u);
  EXPECT_EQ(pair.number("requested"), 0u);
  EXPECT_EQ(pair.number("longest"), 0u);
  EXPECT_EQ(pair.bins(), std::vector<uint64_t>(32, 0));
}

TEST(BarrierPartner, ClearsWhatItAskedForWhenThatIsAnswered) {
  BarrierPair pair;
  const uint64_t timestamp = pair.number("barrier");
  pair.agent.receive();
  pair.reply(timestamp - 1);
  EXPECT_EQ(pair.number("requested"), timestamp) << "that was another one's";
  pair.reply(timestamp);
  EXPECT_EQ(pair.number("requested"), 0u);
  EXPECT_EQ(pair.number("last"), timestamp);
}

TEST(BarrierPartner, RemembersTheNewestOnly) {
  BarrierPair pair;
  const uint64_t first = pair.number("barrier");
  uint64_t second = first;
  ASSERT_TRUE(waitUntil([&] { return (second = pair.number("barrier")) != first; }));
  EXPECT_EQ(pair.number("requested"), second);
  pair.agent.receive();
  Bytes ignored;
  while (u64At(ignored, 276) != second) ignored = pair.agent.receive();
  pair.reply(first);
  EXPECT_EQ(pair.number("requested"), second);
  EXPECT_EQ(pair.number("last"), first);
  pair.reply(second);
  EXPECT_EQ(pair.number("requested"), 0u);
}

TEST(BarrierPartner, WaitsForTheSecondOfTwo) {
  BarrierPair pair;
  const uint64_t second = pair.number("double pairs");
  pair.agent.receive();
  pair.agent.receive();
  pair.reply(second - 10);
  EXPECT_EQ(pair.number("requested"), second);
  pair.reply(second);
  EXPECT_EQ(pair.number("requested"), 0u);
  EXPECT_EQ(pair.number("last"), second);
}

TEST(BarrierPartner, TakesAnAnswerToWhatItNeverAsked) {
  BarrierPair pair;
  pair.reply(steadyMilliseconds() - 1000000);
  EXPECT_EQ(pair.bins().at(31), 1u);
  EXPECT_GE(pair.number("longest"), 1000000u);
}

TEST(BarrierPartner, LooksAtTheFirstByteOfAnAnswer) {
  BarrierPair pair;
  const uint64_t timestamp = pair.number("barrier");
  pair.agent.receive();
  Bytes answer = barrierReply(timestamp);
  answer[1] = answer[2] = answer[3] = 0xAA;
  pair.reverse.send(answer);
  EXPECT_TRUE(waitUntil([&] { return pair.number("last") == timestamp; }));
}

TEST(BarrierPartner, CountsEveryAnswerOnce) {
  BarrierPair pair;
  constexpr uint64_t kAnswers = 1000;
  const uint64_t past = steadyMilliseconds() - 2000;
  for (uint64_t i = 0; i < kAnswers; ++i) pair.reverse.send(barrierReply(past));
  EXPECT_TRUE(waitUntil([&] { return pair.bins().at(31) == kAnswers; }));
  uint64_t sum = 0;
  for (const uint64_t count : pair.bins()) sum += count;
  EXPECT_EQ(sum, kAnswers);
}

TEST(BarrierPartner, AnswersFromNowAreShort) {
  BarrierPair pair;
  // An answer is in the bin of its own age, which is at least 0 and at most what passes here.
  for (int i = 0; i < 5; ++i) {
    const uint64_t before = pair.number("now");
    const std::vector<uint64_t> bins_before = pair.bins();
    pair.reverse.send(barrierReply(before));
    ASSERT_TRUE(waitUntil([&] { return pair.bins() != bins_before; }));
    const uint64_t passed = pair.number("now") - before;
    const std::vector<uint64_t> bins_after = pair.bins();
    const uint64_t limit = passed / 5 == 0 ? 0 : std::min<uint64_t>(passed / 5, 32) - 1;
    for (size_t bin = limit + 1; bin < 32; ++bin) EXPECT_EQ(bins_after[bin], bins_before[bin]);
  }
}

TEST(BarrierPartner, TheLongestRoundTripOnlyGrows) {
  BarrierPair pair;
  pair.reply(steadyMilliseconds() - 500000);
  const uint64_t longest = pair.number("longest");
  EXPECT_GE(longest, 500000u);
  EXPECT_LT(longest, 500000u + 120000u);
  pair.reply(steadyMilliseconds() - 1000);
  EXPECT_EQ(pair.number("longest"), longest);
  pair.reply(steadyMilliseconds() - 2000000);
  EXPECT_GE(pair.number("longest"), 2000000u);
}

}  // namespace
}  // namespace jextest
