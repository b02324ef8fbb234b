// The examples as processes: how they start, wait for an agent and end, and what static_address, a
// partner in C, makes of the agent's tables.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "endtoend/cli_run.h"
#include "endtoend/learner.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/switch_device.h"
#include "support/wait_until.h"

namespace {

using jextest::Bytes;
using jextest::Child;
using jextest::directions;
using jextest::Finished;
using jextest::frameFrom;
using jextest::Learner;
using jextest::portOf;
using jextest::PortsByAddress;
using jextest::programFile;
using jextest::sources;
using jextest::startSwitch;
using jextest::switchctl;
using jextest::waitUntil;
using jextest::Words;
using jextest::writeCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr char kMac[] = "02:00:00:00:00:07";

Words addressOnPort3() { return {programFile("l2_switch"), kMac, "3"}; }

/// An example with arguments that make it start.
struct Example {
  const char* name;
  const char* path;
  Words (*arguments)();
};

const Example kExamples[] = {
    {"l2_learning", JEX_L2_LEARNING, [] { return Words{programFile("l2_switch")}; }},
    {"static_address", JEX_STATIC_ADDRESS, addressOnPort3},
};

class EachExample : public testing::TestWithParam<Example> {};

/// Whether a partner has bound its own socket, which it does before it waits for the agent.
bool aPartnerWaits() {
  for (const auto& file : std::filesystem::directory_iterator("/tmp")) {
    if (file.path().filename().string().rfind("Partner_", 0) == 0) return true;
  }
  return false;
}

TEST_P(EachExample, EndsAtASignalWhileItWaitsForAnAgent) {
  for (const int signal_number : {SIGINT, SIGTERM}) {
    Child sut(GetParam().path, GetParam().arguments());
    ASSERT_TRUE(waitUntil(aPartnerWaits)) << sut.standardError();
    sut.signal(signal_number);
    const Finished result = jextest::finish(std::move(sut));
    EXPECT_TRUE(result.endedWith(0)) << result.exit.signal << result.error;
    EXPECT_THAT(result.output, IsEmpty());
    for (const auto& file : std::filesystem::directory_iterator("/tmp")) {
      if (file.path().filename().string().rfind("Partner_", 0) == 0)
        std::filesystem::remove(file.path());
    }
  }
}

TEST_P(EachExample, ExplainsItself) {
  const std::string usage = std::string("usage: ") + GetParam().name + " PROGRAM-FILE ";
  for (const char* option : {"--help", "-h"}) {
    const Finished result = jextest::finish(Child(GetParam().path, {option}));
    EXPECT_TRUE(result.endedWith(0)) << result.error;
    ASSERT_THAT(result.output, Not(IsEmpty()));
    EXPECT_THAT(result.output[0], StartsWith(usage));
    EXPECT_GT(result.output.size(), 1u);
    EXPECT_EQ(result.error, "");
  }
}

std::string fileBehind(const Child& process, int fd) {
  return std::filesystem::read_symlink("/proc/" + std::to_string(process.pid()) + "/fd/" +
                                       std::to_string(fd))
      .string();
}

TEST_P(EachExample, GivesNoSocketTheNumberOfAClosedStandardDescriptor) {
  const auto agent = startSwitch("l2_switch");
  Words words{"-c", "exec \"$@\" <&- 2>&-", "sh", GetParam().path};
  for (const std::string& argument : GetParam().arguments()) words.push_back(argument);
  Child sut("/bin/sh", words);
  EXPECT_EQ(sut.readLine(), std::string(GetParam().name) + ": ready");
  // An initializer of a library, which comes before main, may have taken the lowest number.
  EXPECT_THAT(fileBehind(sut, 0), testing::AnyOf("/dev/null", "anon_inode:[eventfd]"));
  EXPECT_EQ(fileBehind(sut, 2), "/dev/null");
  sut.signal(SIGTERM);
  EXPECT_TRUE(jextest::finish(std::move(sut)).endedWith(0));
}

INSTANTIATE_TEST_SUITE_P(Examples, EachExample, testing::ValuesIn(kExamples),
                         [](const auto& example) { return example.param.name; });

// ---- static_address

TEST(StaticAddress, StandsInTheAgentsTableUntilASignalEndsIt) {
  const auto agent = startSwitch("l2_switch");
  for (const int signal_number : {SIGINT, SIGTERM}) {
    Child sut(JEX_STATIC_ADDRESS, addressOnPort3());
    // The agent has answered a barrier by then: nothing has to be awaited.
    ASSERT_EQ(sut.readLine(), "static_address: ready") << sut.standardError();
    EXPECT_EQ(directions(), (PortsByAddress{{kMac, "3"}}));
    sut.signal(signal_number);
    const Finished result = jextest::finish(std::move(sut));
    EXPECT_TRUE(result.endedWith(0)) << result.error;
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_TRUE(waitUntil([] { return directions().empty(); }));
  }
  EXPECT_THAT(switchctl({"health"}).output, ElementsAre("SERVING"));
}

TEST(StaticAddress, SaysThatTheAgentDoesNotAnswer) {
  // The agent applies the entry a minute late.
  Child agent(JEX_SLICE_AGENT, jextest::withProgram("l2_switch", {"--heartbeat-ms", "0"}),
              {{"JX_MODEL_FAULTS", "pipe_process_plcmt_info:1:delay=60000"}});
  ASSERT_THAT(agent.readLine(), StartsWith("slice-agent: ready")) << agent.standardError();
  const Finished result = jextest::finish(Child(JEX_STATIC_ADDRESS, addressOnPort3()));
  EXPECT_TRUE(result.endedWith(1)) << result.error;
  EXPECT_THAT(result.output, IsEmpty());
  EXPECT_THAT(result.error,
              testing::EndsWith("static_address: no answer from the agent for 5000 ms\n"));
}

TEST(StaticAddress, RefusesAWrongCommandLineWithItsUsage) {
  const std::string program = programFile("l2_switch");
  for (const Words& arguments : std::vector<Words>{{},
                                                   {program},
                                                   {program, kMac},
                                                   {program, kMac, "512"},
                                                   {program, kMac, "-1"},
                                                   {program, kMac, "3x"},
                                                   {program, kMac, ""},
                                                   {program, "02:00:00:00:00", "3"},
                                                   {program, "02:00:00:00:00:07:08", "3"},
                                                   {program, kMac, "3", "more"}}) {
    const Finished result = jextest::finish(Child(JEX_STATIC_ADDRESS, arguments));
    EXPECT_TRUE(result.endedWith(2)) << testing::PrintToString(arguments);
    EXPECT_EQ(result.error, "usage: static_address PROGRAM-FILE MAC PORT\n");
    EXPECT_THAT(result.output, IsEmpty());
  }
}

// ---- l2_learning and the two clocks of an agent, as the README tells

std::string learned(int host) {
  return "learned 02:00:00:00:00:0" + std::to_string(host) + " on port 1";
}
std::string aged(int host) { return "aged 02:00:00:00:00:0" + std::to_string(host) + " on port 1"; }

void play(const std::string& capture) {
  EXPECT_TRUE(switchctl({"port-add", "1=pcap:" + capture}).endedWith(0));
  EXPECT_TRUE(waitUntil([] { return portOf(1).at("input") == "exhausted"; }));
  EXPECT_TRUE(switchctl({"port-delete", "1"}).endedWith(0));
}

TEST(L2LearningClocks, AgeAddressesByTheTimeStampsOfACapture) {
  const auto agent = startSwitch("l2_switch", {"--clock", "capture"});
  Learner learner(300);
  play(writeCapture("both.in", {frameFrom(1), frameFrom(2)}));
  EXPECT_THAT(learner.lines(2), UnorderedElementsAre(learned(1), learned(2)));
  EXPECT_TRUE(waitUntil([] { return sources().size() == 2; }));
  // An hour in which host 2 speaks every second. Then the clock stands still.
  play(writeCapture("one.in", std::vector<Bytes>(3600, frameFrom(2))));
  EXPECT_THAT(learner.lines(1), ElementsAre(aged(1)));
  EXPECT_TRUE(waitUntil([] { return sources().size() == 1; }));
  EXPECT_THAT(learner.end(SIGTERM), IsEmpty());
}

TEST(L2LearningClocks, AgeAddressesByTheMachinesClockUnlessToldOtherwise) {
  const auto agent = startSwitch("l2_switch");
  Learner learner(1);
  play(writeCapture("both.in", {frameFrom(1), frameFrom(2)}));
  EXPECT_THAT(learner.lines(4), UnorderedElementsAre(learned(1), learned(2), aged(1), aged(2)));
}

}  // namespace
