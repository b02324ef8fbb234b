// Both halves together as real processes: what Partners write, the physical device holds, whatever
// is killed, stopped or started anew meanwhile.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "support/processes.h"
#include "support/stop.h"
#include "support/wait_until.h"

namespace jextest {
namespace {

const std::vector<std::string> kAllPrograms = {"l2_switch", "router", "limits"};

/// Writes of a load: fewer where every one of them is watched.
constexpr int kWrites = kSanitized ? 5000 : 100000;

AgentOptions agentOfAll() {
  AgentOptions options;
  options.programs = kAllPrograms;
  return options;
}

PartnerOptions partnerOfAll() {
  PartnerOptions options;
  options.programs = kAllPrograms;
  return options;
}

/// Partner `number` of several that share the physical device's tables.
PartnerOptions sharingPartner(uint32_t number) {
  PartnerOptions options = partnerOfAll();
  options.owner = number;
  options.shared = true;
  options.handle_base = number * 1000000;
  return options;
}

std::string mix(uint64_t seed, int writes) {
  return "mix " + std::to_string(seed) + " " + std::to_string(writes);
}

/// The dumps of all of them, as one device holds them that began as they did: what a device holds
/// from the start stands in each dump, and once in the union.
std::vector<std::string> unionOf(std::vector<Child>& partners) {
  std::vector<std::string> all;
  for (Child& partner : partners) {
    const auto lines = dumpOf(partner);
    std::vector<std::string> merged;
    std::set_union(all.begin(), all.end(), lines.begin(), lines.end(), std::back_inserter(merged));
    all = std::move(merged);
  }
  return all;
}

TEST(Replication, KeepsBothDevicesEqualUnderARandomMix) {
  Child agent = startAgent(agentOfAll());
  Child partner = startedPartner(partnerOfAll());
  for (uint64_t seed = 1; seed <= 4; ++seed) {
    ASSERT_EQ(partner.ask(mix(seed, kWrites / 4)), "done") << partner.standardError();
    const auto written = dumpOf(partner);
    EXPECT_GT(written.size(), 500u) << "the load leaves something to compare";
    expectDump(agent, written);
  }
  EXPECT_EQ(linesWith(agent.standardError(), "Error: ").size(), 0u);
}

TEST(Replication, ServesSeveralPartnersAtOnce) {
  constexpr uint32_t kPartners = 3;
  Child agent = startAgent(agentOfAll());
  std::vector<Child> partners;
  for (uint32_t i = 1; i <= kPartners; ++i) partners.push_back(startedPartner(sharingPartner(i)));
  for (uint32_t i = 0; i < kPartners; ++i) partners[i].say(mix(i, kWrites / 5));
  for (Child& partner : partners) ASSERT_EQ(partner.readLine(), "done") << partner.standardError();
  expectDump(agent, unionOf(partners));
  EXPECT_EQ(linesWith(agent.standardError(), "Error: ").size(), 0u);
}

TEST(Replication, HeartbeatsRunBesideALoad) {
  Child agent = startAgent(agentOfAll());
  Child partner = startedPartner(partnerOfAll());
  partner.say(mix(7, kWrites / 5));
  for (int i = 0; i < 200; ++i) ASSERT_EQ(agent.ask("heartbeat"), "true") << agent.standardError();
  ASSERT_EQ(partner.readLine(), "done") << partner.standardError();
  expectDump(agent, dumpOf(partner));
}

TEST(Replication, AShutDownPartnerLeavesItsEntriesOnTheDevice) {
  Child agent = startAgent(agentOfAll());
  Child partner = startedPartner(partnerOfAll());
  ASSERT_EQ(partner.ask(mix(11, 300)), "done");
  const auto written = dumpOf(partner);
  ASSERT_EQ(partner.ask("shutdown"), "done");
  expectDump(agent, written);
}

/// Whether the device of `agent` holds an entry whose dump line contains `text`.
bool holds(Child& agent, const std::string& text) {
  const auto lines = dumpOf(agent);
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

// What the first agent had not taken is lost without a word; sending goes on with the next one.
TEST(Disturbance, PartnersGoOnWithAnAgentThatIsStartedAnew) {
  auto agent = std::make_unique<Child>(startAgent());
  Child first = startedPartner(sharingPartner(1));
  Child second = startedPartner(sharingPartner(2));
  ASSERT_EQ(first.ask("add exact_direct 1 nop"), "status 0");
  ASSERT_EQ(second.ask("add exact_direct 1 nop"), "status 0");
  agent->signal(SIGKILL);
  EXPECT_EQ(agent->waitForExit().signal, SIGKILL);
  agent.reset();
  Child next = startAgent();
  // Each write is a new entry: the new agent's device holds none of the old ones.
  for (Child* partner : {&first, &second}) {
    int n = 100;
    const std::string handle_base = partner == &first ? "#100" : "#200";
    EXPECT_TRUE(waitUntil([&] {
      EXPECT_EQ(partner->ask("add exact_direct " + std::to_string(n++) + " nop"), "status 0")
          << partner->standardError();
      return holds(next, "exact_direct " + handle_base) || testing::Test::HasFailure();
    }));
    EXPECT_FALSE(partner->ended());
  }
}

TEST(Disturbance, AnAgentServesOthersAfterAPartnerWasKilledInMidLoad) {
  Child agent = startAgent(agentOfAll());
  for (uint32_t trial = 1; trial <= 5; ++trial) {
    Child victim = startedPartner(sharingPartner(trial));
    victim.say(mix(trial, 100000000));
    ASSERT_TRUE(waitUntil([&] {  // it is in the middle of it
      return holds(agent, "#" + std::to_string(trial) + "0000") || testing::Test::HasFailure();
    })) << agent.standardError();
    victim.signal(SIGKILL);
    EXPECT_EQ(victim.waitForExit().signal, SIGKILL);
  }
  Child partner = startedPartner(sharingPartner(10));
  ASSERT_EQ(partner.ask("add exact_direct 1 nop"), "status 0");
  EXPECT_TRUE(waitUntil([&] { return holds(agent, "exact_direct #10000000"); }));
  EXPECT_FALSE(agent.ended()) << agent.standardError();
}

// The attempts of a Partner last about eight seconds.
TEST(DisturbanceSlow, AStoppedAgentEndsASenderAndServesOthersWhenItGoesOn) {
  Child agent = startAgent(agentOfAll());
  Child sender = startedPartner(sharingPartner(1));
  Child idle = startedPartner(sharingPartner(2));
  ASSERT_EQ(idle.ask("add exact_direct 1 nop"), "status 0");
  ASSERT_TRUE(waitUntil([&] { return holds(agent, "exact_direct #2000000"); }));
  agent.stop();
  sender.say(mix(1, 100000000));
  sender.waitForExit();
  const auto errors = linesWith(sender.standardError(), "Error: ");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].rfind("Error: SOCKET Send ERROR(max retry) ", 0), 0u) << errors[0];
  EXPECT_GT(errors[0].size(), std::string("Error: SOCKET Send ERROR(max retry) ").size())
      << "nanomsg's text of its last error follows";
  expectStop(sender, {errors[0], "JexPartnerLibSocket", "PartnerLib::socketSend(", "false"});

  agent.signal(SIGCONT);
  ASSERT_EQ(idle.ask("add exact_direct 2 nop"), "status 0");
  EXPECT_TRUE(waitUntil([&] { return holds(agent, "exact_direct #2000001"); }));
  Child next = startedPartner(sharingPartner(3));
  ASSERT_EQ(next.ask("add exact_direct 1 nop"), "status 0");
  EXPECT_TRUE(waitUntil([&] { return holds(agent, "exact_direct #3000000"); }));
  EXPECT_FALSE(agent.ended()) << agent.standardError();
}

// An update that the device refuses ends the agent; its Partner hears nothing of it.
TEST(Disturbance, ARefusedUpdateEndsTheAgentOnly) {
  Child agent = startAgent();
  PartnerOptions options;
  Child first = startedPartner(options);
  ASSERT_EQ(first.ask("add exact_direct 1 nop"), "status 0");
  options.device = 2;
  Child second = startedPartner(options);  // the same handles
  ASSERT_EQ(second.ask("add exact_direct 1 nop"), "status 0");
  expectStop(agent,
             {"Error: Match Table plcmt failed returns: Already exists", "JexPartnerLibMatchTable",
              "PartnerLib::matchTableDeserialize(", "status == JX_SUCCESS"});
  // Both Partners live, and a new agent would hear them.
  Child next = startAgent();
  int n = 100;
  EXPECT_TRUE(waitUntil([&] {
    EXPECT_EQ(first.ask("add exact_direct " + std::to_string(n++) + " nop"), "status 0");
    return holds(next, "exact_direct #") || testing::Test::HasFailure();
  }));
  EXPECT_FALSE(second.ended());
}

}  // namespace
}  // namespace jextest
