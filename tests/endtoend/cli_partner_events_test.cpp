// Counters, barriers and notifications as people use them: slice-agent and partner-shell as
// processes, and packets between them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "endtoend/terminal.h"
#include "support/child.h"
#include "support/wait_until.h"

namespace {

using jextest::Bytes;
using jextest::Child;
using jextest::finish;
using jextest::Finished;
using jextest::frameFrom;
using jextest::pathOf;
using jextest::ShellProcess;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::Terminal;
using jextest::waitUntil;
using jextest::withProgram;
using jextest::Words;
using jextest::writeCapture;
using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

void inject(int port, const std::vector<Bytes>& frames) {
  static int captures = 0;
  const std::string capture = writeCapture("in" + std::to_string(captures++) + ".pcap", frames);
  const Finished run = switchctl({"inject", "--port", std::to_string(port), capture});
  EXPECT_TRUE(run.endedWith(0)) << run.error;
}

json pairAt(ShellProcess& shell, int index) {
  const std::vector<json> lines =
      shell.list("counters-read port_counters " + std::to_string(index) + " 1");
  EXPECT_EQ(lines.size(), 1u);
  return lines.empty() ? json() : lines[0];
}

json pairOf(int index, int packets, int bytes) {
  return {{"index", index}, {"packets", packets}, {"bytes", bytes}};
}

class PartnerEvents : public testing::Test {
 protected:
  void start(const Words& agent_arguments = {}) {
    agent_ = startSwitch("l2_switch", agent_arguments);
    shell_ = std::make_unique<ShellProcess>("l2_switch");
  }

  /// Ends the shell as `quit` does; the agent has to have understood all of it.
  Finished quit() {
    shell_->process().say("quit");
    Finished end = finish(std::move(shell_->process()));
    EXPECT_TRUE(end.endedWith(0)) << end.error;
    return end;
  }

  std::unique_ptr<Child> agent_;
  std::unique_ptr<ShellProcess> shell_;
};

const Words kNoUpdates = {"--counter-update-ms", "0"};

TEST_F(PartnerEvents, CountersAreWhatWasCountedBeforeTheBarrier) {
  start(kNoUpdates);
  shell_->ask("counters-start port_counters");
  inject(3, {frameFrom(1), frameFrom(2)});
  inject(4, {frameFrom(1)});
  EXPECT_EQ(pairAt(*shell_, 3), pairOf(3, 0, 0)) << "before any sync";
  shell_->ask("barrier port_counters timeout=240000");
  EXPECT_EQ(pairAt(*shell_, 3), pairOf(3, 2, 120));
  EXPECT_EQ(pairAt(*shell_, 4), pairOf(4, 1, 60));
  EXPECT_EQ(pairAt(*shell_, 5), pairOf(5, 0, 0));
}

TEST_F(PartnerEvents, CountersFollowByThemselvesWithUpdates) {
  for (const Words& more : {Words{"--counter-update-ms", "5"},
                            Words{"--counter-update-ms", "5", "--model-counter-update"}}) {
    start(more);
    shell_->ask("counters-start port_counters");
    inject(3, {frameFrom(1)});
    EXPECT_TRUE(waitUntil([&] { return pairAt(*shell_, 3) == pairOf(3, 1, 60); }));
    quit();
    agent_->signal(SIGTERM);
    EXPECT_TRUE(finish(std::move(*agent_)).endedWith(0));
  }
}

// The second barrier of a double one waits for a sync that the agent starts of its own accord.
TEST_F(PartnerEvents, ADoubleBarrierIsAnsweredAfterASecondSync) {
  start({"--counter-update-ms", "20"});
  shell_->ask("counters-start port_counters");
  inject(3, {frameFrom(1)});
  const json answer = shell_->ask("barrier port_counters double timeout=240000");
  EXPECT_GE(answer.at("round_trip"), 0.0);
  EXPECT_EQ(pairAt(*shell_, 3), pairOf(3, 1, 60));
  EXPECT_EQ(shell_->ask("latency").at("answers"), 2);
}

TEST_F(PartnerEvents, CountersCanBeStoppedAndStartedAgain) {
  start(kNoUpdates);
  inject(3, {frameFrom(1)});
  for (int i = 0; i < 20; ++i) {  // an agent that misses a start stops
    shell_->ask("counters-start port_counters");
    shell_->ask("counters-stop port_counters");
  }
  shell_->ask("counters-start port_counters");
  shell_->ask("barrier port_counters timeout=240000");
  EXPECT_EQ(pairAt(*shell_, 3), pairOf(3, 1, 60));
  EXPECT_FALSE(agent_->ended());
}

TEST_F(PartnerEvents, ABarrierSaysThatAStoppedAgentDoesNotAnswer) {
  start(kNoUpdates);
  shell_->ask("barrier timeout=240000");
  agent_->stop();
  EXPECT_THAT(shell_->refusalOf("barrier timeout=50"), HasSubstr("no answer within 50 ms"));
  agent_->signal(SIGCONT);
  shell_->ask("barrier timeout=240000");
  // Counted just after it has been seen; the late one counts too.
  EXPECT_TRUE(waitUntil([&] { return shell_->ask("latency").at("answers") == 3; }));
}

TEST_F(PartnerEvents, LatencyCountsEachBarrier) {
  start(kNoUpdates);
  EXPECT_EQ(shell_->ask("latency").at("answers"), 0);
  uint64_t last = 0;
  for (int i = 0; i < 5; ++i) {
    const json answer = shell_->ask("barrier timeout=240000");
    EXPECT_GT(answer.at("timestamp"), last) << "each has a name of its own";
    last = answer.at("timestamp");
  }
  json latency;
  EXPECT_TRUE(waitUntil([&] {  // an answer is counted just after it has been seen
    latency = shell_->ask("latency");
    return latency.at("answers") == 5;
  }));
  EXPECT_EQ(latency.at("max_is_round_trip"), true);
  EXPECT_EQ(latency.at("bins").size(), 32u);
}

TEST_F(PartnerEvents, LatencyIsDrawnOnATerminal) {
  agent_ = startSwitch("l2_switch", kNoUpdates);
  Terminal terminal(JEX_PARTNER_SHELL, withProgram("l2_switch", {"--device", "1"}),
                    {{"TERM", "xterm"}, {"HOME", pathOf("")}, {"INPUTRC", "/dev/null"}});
  std::string screen;
  ASSERT_TRUE(terminal.awaitText("partner-shell> ", &screen)) << screen;
  terminal.type("barrier\r");
  ASSERT_TRUE(terminal.awaitText("round trip", &screen)) << screen;
  terminal.type("latency\r");
  ASSERT_TRUE(terminal.awaitText("ok 1 answer", &screen)) << screen;
  EXPECT_THAT(screen, HasSubstr("  ####"));
}

TEST_F(PartnerEvents, DigestsAreDrainedByTheirFields) {
  start();
  shell_->ask("queue-create q 100");
  shell_->ask("digest-register mac_learn q");
  shell_->ask("barrier timeout=240000");  // the agent listens now
  inject(3, {frameFrom(1)});
  inject(4, {frameFrom(2)});
  const std::vector<json> lines = shell_->list("drain q max=2 wait=40000");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].at("kind"), "digest");
  EXPECT_EQ(lines[0].at("digest"), "mac_learn");
  EXPECT_EQ(lines[0].at("fields"),
            (json{{"ethernet.src", "02:00:00:00:00:01"}, {"meta.ingress_port", "3"}}));
  EXPECT_EQ(lines[1].at("fields"),
            (json{{"ethernet.src", "02:00:00:00:00:02"}, {"meta.ingress_port", "4"}}));
  shell_->ask("digest-deregister mac_learn");
  shell_->ask("barrier timeout=240000");
  inject(3, {frameFrom(3)});
  EXPECT_THAT(shell_->list("drain q wait=20"), IsEmpty());
  EXPECT_THAT(shell_->refusalOf("digest-register mac_learn q"), HasSubstr("only once"));
  EXPECT_EQ(shell_->ask("queue-destroy q").at("notifications"), 0);
}

// A day of the device's time passes with one packet.
TEST_F(PartnerEvents, IdleEntriesAreDrainedByTheirKeys) {
  start({"--clock", "capture"});
  inject(3, {frameFrom(9)});  // the device's clock stands where the captures begin
  shell_->make({"add smac ethernet.src=02:00:00:00:00:01 meta.ingress_port=3 ttl=60000 -> known",
                "add smac ethernet.src=02:00:00:00:00:02 meta.ingress_port=3 ttl=900000 -> known"},
               {"smac"});
  shell_->ask("queue-create q 100");
  shell_->ask("idle-register smac q ttl-query=1000 max-ttl=0 min-ttl=0");
  shell_->ask("barrier timeout=240000");         // the agent watches now
  std::vector<Bytes> frames(100, frameFrom(9));  // one a second
  inject(3, frames);
  const std::vector<json> lines = shell_->list("drain q wait=40000");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].at("kind"), "idle");
  EXPECT_EQ(lines[0].at("table"), "smac");
  EXPECT_EQ(lines[0].at("key"),
            (json{{"ethernet.src", "02:00:00:00:00:01"}, {"meta.ingress_port", "3"}}));
  shell_->ask("idle-deregister smac");
  quit();
  EXPECT_FALSE(agent_->ended());
}

TEST_F(PartnerEvents, WhatWouldStopAProcessIsRefused) {
  start();
  shell_->ask("queue-create q 10");
  shell_->ask("idle-register smac q ttl-query=1000 max-ttl=0 min-ttl=0");
  shell_->ask("counters-start port_counters");
  for (const char* line :
       {"queue-create q 10", "queue-destroy q",
        "idle-register smac q ttl-query=1 max-ttl=1 min-ttl=1", "digest-deregister mac_learn",
        "counters-start port_counters", "counters-read port_counters 512 1",
        "idle-register dmac q ttl-query=1 max-ttl=1 min-ttl=1", "barrier dmac", "drain r"}) {
    EXPECT_THAT(shell_->refusalOf(line), Not(IsEmpty()));
  }
  shell_->ask("idle-deregister smac");
  EXPECT_THAT(shell_->refusalOf("idle-deregister smac"), HasSubstr("deregistered already"));
  shell_->ask("barrier timeout=240000");
  EXPECT_FALSE(agent_->ended());
}

// Without that the agent would stop when it has something to tell a shell that is gone.
TEST_F(PartnerEvents, AShellThatEndsTakesItsRegistrationsBack) {
  start({"--counter-update-ms", "5"});
  shell_->ask("queue-create q 10");
  shell_->ask("digest-register mac_learn q");
  shell_->ask("counters-start port_counters");
  shell_->ask("barrier timeout=240000");
  inject(3, {frameFrom(1)});
  ASSERT_THAT(shell_->list("drain q wait=40000"), testing::SizeIs(1));
  quit();
  inject(3, {frameFrom(3)});
  ShellProcess next("l2_switch");
  next.ask("queue-create q 10");
  next.ask("digest-register mac_learn q");
  next.ask("barrier timeout=240000");
  inject(3, {frameFrom(4)});
  EXPECT_THAT(next.list("drain q wait=40000"), testing::SizeIs(1));
  EXPECT_THAT(next.refusalOf("counters-start port_counters"), HasSubstr("another partner"));
  next.ask("barrier timeout=240000");
  EXPECT_FALSE(agent_->ended());
}

}  // namespace
