// Counters and barriers of Partners and an agent that are both the library.
#include <gtest/gtest.h>

#include <csignal>

#include "wire/counting_pair.h"

namespace jextest {
namespace {

uint64_t number(Child& process, const std::string& command) {
  return std::stoull(process.ask(command));
}

/// Waits until the Partner's last complete barrier is `timestamp`.
void expectAnswered(Child& partner, uint64_t timestamp) {
  EXPECT_TRUE(waitUntil([&] { return number(partner, "last") == timestamp; }))
      << partner.standardError();
}

/// Sends a barrier by `command` and waits for its answer. A barrier is named by its millisecond: in
/// that of the last one, the answer to that would pass for its own.
void expectBarrier(Child& partner, const std::string& command) {
  EXPECT_TRUE(waitUntil([&] { return number(partner, "now") > number(partner, "last"); }));
  expectAnswered(partner, number(partner, command));
}

Child startedCountingPartner(const CountingPartnerOptions& options = {}) {
  Child partner = startCountingPartner(options);
  EXPECT_EQ(partner.ask("start"), "true") << partner.standardError();
  return partner;
}

TEST(CounterPair, APartnerReadsWhatTheAgentSynced) {
  Child agent = startCountingAgent();
  Child partner = startedCountingPartner();
  ASSERT_EQ(partner.ask("init limits pairs"), "true handle");
  for (uint64_t round = 1; round <= 20; ++round) {
    ASSERT_EQ(agent.ask("packets 0 1 100"), "status 0");
    const uint64_t before = number(partner, "now");
    expectBarrier(partner, "sync pairs");
    const std::string read = partner.ask("read pairs 0 1");
    const std::string values = std::to_string(round) + ":" + std::to_string(100 * round);
    EXPECT_EQ(read.substr(read.rfind(' ') + 1), values);
    EXPECT_GE(std::stoull(read.substr(5)), before);
  }
  EXPECT_EQ(partner.ask("free pairs"), "done");
  expectBarrier(partner, "barrier");
  EXPECT_EQ(agent.ask("record " + std::to_string(kPairs)), "none");
}

TEST(CounterPair, ADoubleBarrierIsComplete) {
  Child agent = startCountingAgent();
  Child partner = startedCountingPartner();
  ASSERT_EQ(partner.ask("init limits pairs"), "true handle");
  const uint64_t second = number(partner, "double pairs");
  // The host program's timer.
  EXPECT_TRUE(waitUntil([&] {
    agent.ask("update");
    return number(partner, "last") == second;
  }));
  EXPECT_EQ(number(partner, "requested"), 0u);
}

TEST(CounterPair, TwoPartnersSendBarriersAtOnce) {
  Child agent = startCountingAgent();
  Child first = startedCountingPartner();
  Child second = startedCountingPartner({2, "limits"});
  ASSERT_EQ(first.ask("init limits pairs"), "true handle");
  constexpr uint64_t kBarriers = 5000;
  first.say("barriers " + std::to_string(kBarriers));
  second.say("barriers " + std::to_string(kBarriers));
  for (Child* partner : {&first, &second}) {
    const uint64_t last = numbersIn(partner->readLine()).at(1);
    expectAnswered(*partner, last);
    EXPECT_TRUE(waitUntil([&] {
      uint64_t answers = 0;
      for (const uint64_t count : numbersIn(partner->ask("bins"))) answers += count;
      return answers == kBarriers;
    }));
  }
  EXPECT_EQ(first.ask("read pairs 0 1"), "true 0 0:0");
}

// Whoever starts counters later takes the segment's name; the agent has the older one.
TEST(CounterPair, TheAgentStopsForALaterPartnersCounters) {
  Child agent = startCountingAgent();
  Child first = startedCountingPartner();
  ASSERT_EQ(first.ask("init limits pairs"), "true handle");
  expectBarrier(first, "sync pairs");
  Child second = startedCountingPartner({2, "limits"});
  ASSERT_EQ(second.ask("init limits no_pairs"), "true handle");
  expectStop(agent, {"Error: Cannot find counter for table in SHM", "JexPartnerLibCounter",
                     "PartnerLib::setCountersSync(", "ptr"});
}

TEST(CounterPair, OutlivesAPartnerThatIsKilledWhileItsCountersSync) {
  Child agent = startCountingAgent();
  {
    Child partner = startedCountingPartner();
    ASSERT_EQ(partner.ask("init limits pairs"), "true handle");
    expectBarrier(partner, "sync pairs");
    ASSERT_EQ(agent.ask("idle"), "done");
    ASSERT_EQ(agent.ask("hold"), "done");
    ASSERT_EQ(agent.ask("update"), "true");
    partner.signal(SIGKILL);
    EXPECT_EQ(partner.waitForExit().signal, SIGKILL);
  }
  ASSERT_EQ(agent.ask("release"), "done");
  ASSERT_EQ(agent.ask("idle"), "done");
  Child next = startedCountingPartner();
  expectBarrier(next, "barrier");
  ASSERT_EQ(agent.ask("update"), "true");
  ASSERT_EQ(agent.ask("idle"), "done");
  expectBarrier(next, "barrier");
  EXPECT_EQ(agent.standardError(), "");
}

TEST(CounterPair, CountsAMillionEntries) {
  const std::string program = counterProgram(41, {1000000});
  Child agent = startCountingAgent({0, program});
  Child partner = startedCountingPartner({1, program});
  ASSERT_EQ(partner.ask("init counters t1"), "true handle");
  ASSERT_EQ(agent.ask("packets 500 4 100"), "status 0");
  expectBarrier(partner, "sync t1");
  EXPECT_EQ(partner.ask("read-all t1 1000000"), "sums 4 400");
  EXPECT_EQ(partner.ask("free t1"), "done");
  expectBarrier(partner, "barrier");
}

// Every barrier is answered, and once.
TEST(CounterPair, AnswersAMillionBarriers) {
  constexpr uint64_t kBarriers = kSanitized ? 20000 : 1000000;
  constexpr uint64_t kAtOnce = 10000;
  Child agent = startCountingAgent();
  Child partner = startedCountingPartner();
  uint64_t last = 0;
  for (uint64_t sent = 0; sent < kBarriers; sent += kAtOnce) {
    const auto times = numbersIn(partner.ask("barriers " + std::to_string(kAtOnce)));
    ASSERT_EQ(times.size(), 2u) << partner.standardError() << agent.standardError();
    ASSERT_LE(last, times[0]);
    last = times[1];
  }
  expectAnswered(partner, last);
  uint64_t answers = 0;
  EXPECT_TRUE(waitUntil([&] {
    answers = 0;
    for (const uint64_t count : numbersIn(partner.ask("bins"))) answers += count;
    return answers >= kBarriers;
  }));
  EXPECT_EQ(answers, kBarriers);
  EXPECT_EQ(agent.standardError(), "");
}

}  // namespace
}  // namespace jextest
