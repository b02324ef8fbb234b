// Packet tests and set-up of devices with the programs that people run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "support/child.h"
#include "support/private_world.h"
#include "support/switch_device.h"

namespace {

using jextest::Child;
using jextest::finish;
using jextest::Finished;
using jextest::programFile;
using jextest::switchctl;
using jextest::Words;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kHosts = "020000000001 88b5";  // source and type of the frames below

std::string fileOf(const std::string& name, const std::string& text) {
  const std::string path = jextest::runDirectory() + '/' + name;
  std::ofstream(path) << text;
  return path;
}

/// Two known addresses; what is sent to them comes out.
const std::string kGood =
    "add dmac ethernet.dst:0x020000000002 forward(port:2)  # by its full name\n"
    "add dmac dst:0x020000000003 forward(port:510)\n"
    "packet 1 020000000002 " +
    kHosts +
    " 0001\n"
    "expect 2 020000000002 " +
    kHosts +
    " 0001$\n"
    "packet 1 020000000003 " +
    kHosts +
    " 0002\n"
    "packet 1 020000000002 " +
    kHosts +
    " 0003\n"
    "expect 510 020000000003 " +
    kHosts +
    " ****\n"
    "expect 2 020000000002\n"
    "check_counter port_counters(1) packets == 3\n"
    "counter_read port_counters 1\n";

Finished onOwnDevice(const std::string& test, const std::string& program = "l2_switch") {
  return switchctl({"stf", test, "--program", programFile(program)});
}

TEST(Stf, EndsWithZeroWhereAllIsAsExpected) {
  const std::string test = fileOf("good.stf", kGood);
  const Finished sut = onOwnDevice(test);
  EXPECT_TRUE(sut.endedWith(0));
  EXPECT_EQ(sut.error, "");
  EXPECT_THAT(sut.output, ElementsAre(test + ":10: counter port_counters[1]: 3 packets, 48 bytes",
                                      test + ": as expected, 3 packets in, 3 out"));
}

TEST(Stf, NeedsNeitherAnAgentNorAFixedName) {
  const std::string test = fileOf("good.stf", kGood);
  Child agent(JEX_SLICE_AGENT, {"--program", programFile("l2_switch")});
  ASSERT_THAT(agent.readLine(), StartsWith("slice-agent: ready"));
  std::vector<Child> side_by_side;
  for (int i = 0; i < 4; ++i) {
    side_by_side.emplace_back(JEX_SWITCHCTL,
                              Words{"stf", test, "--program", programFile("l2_switch")});
  }
  for (Child& sut : side_by_side) EXPECT_TRUE(finish(std::move(sut)).endedWith(0));
  EXPECT_THAT(switchctl({"count", "dmac"}).output, ElementsAre("0"));
}

/// The lines about a test whose line `line` is replaced, without the file's name.
Finished changed(int line, const std::string& text) {
  std::string test;
  size_t begin = 0;
  for (int number = 1; begin < kGood.size(); ++number) {
    const size_t end = kGood.find('\n', begin);
    test += (number == line ? text : kGood.substr(begin, end - begin)) + '\n';
    begin = end + 1;
  }
  const std::string path = fileOf("changed.stf", test);
  Finished sut = onOwnDevice(path);
  for (std::string& output : sut.output) {
    if (output.rfind(path, 0) == 0) output.erase(0, path.size() + 1);
  }
  if (const size_t at = sut.error.find(path); at != std::string::npos) {
    sut.error.erase(at, path.size() + 1);
  }
  return sut;
}

TEST(Stf, SeesOneWrongDigit) {
  const Finished sut = changed(4, "expect 2 020000000002 " + kHosts + " 0011$");
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_THAT(sut.output, Contains("4: port 2: expected 02000000000202000000000188b50011$, got "
                                   "02000000000202000000000188b50001: digit 31 is 0, not 1"));
}

TEST(Stf, SeesTheWrongOrder) {
  const Finished sut = changed(8, "expect 2 020000000002 " + kHosts + " 0001$");
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_THAT(sut.output, Contains(AllOf(StartsWith("8: port 2: "), HasSubstr("digit 32 is 3"))));
}

TEST(Stf, SeesAPacketTooMany) {
  const Finished sut = changed(8, "");
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_THAT(sut.output, Contains("6: port 2: expected no packet, got "
                                   "02000000000202000000000188b50003"));
}

TEST(Stf, SeesAPacketThatIsMissing) {
  const Finished sut = changed(6, "");
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_THAT(sut.output, Contains("8: port 2: expected 020000000002, got no packet"));
}

TEST(Stf, SeesAPacketAtAPortThatIsToBeSilent) {
  const Finished sut = changed(2, "add dmac dst:0x020000000003 forward(port:9)");
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_THAT(sut.output, Contains(StartsWith("5: port 9: expected no packet, got ")));
}

TEST(Stf, SeesACounterThatDiffers) {
  const Finished sut = changed(9, "check_counter port_counters(1) bytes < 48");
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_THAT(sut.output, Contains("9: counter port_counters[1]: expected bytes < 48, got 48"));
}

TEST(Stf, EndsWithTwoAndOneLineWhereItCannotBeRun) {
  EXPECT_EQ(changed(3, "packet 1 0").error,
            "switchctl: 3: a packet of 1 digits: two are needed for each byte\n");
  EXPECT_EQ(changed(2, "add smuck dst:1 forward(port:3)").error,
            "switchctl: 2: there is no table smuck in program l2_switch\n");
  EXPECT_EQ(changed(2, "add dmac dst:0x020000000002 forward(port:3)").error,
            "switchctl: 2: table dmac has an entry with this key already: delete that one first\n");
  EXPECT_EQ(changed(9, "check_counter port_counters(512)").error,
            "switchctl: 9: port_counters has no index 512: its last one is 511\n");
  EXPECT_EQ(changed(9, "register_write r 0 1").error,
            "switchctl: 9: there is no register r in program l2_switch\n");
  EXPECT_EQ(changed(9, "mirroring_add 1 2").error,
            "switchctl: 9: program l2_switch has no registers, meters, value sets, multicast "
            "groups or clone sessions on this device: they belong to the compiled program that "
            "packets run through\n");
  EXPECT_TRUE(changed(9, "expect 2").endedWith(2));
  const Finished no_file = onOwnDevice("/nonexistent.stf");
  EXPECT_TRUE(no_file.endedWith(2));
  EXPECT_EQ(no_file.error, "switchctl: cannot read /nonexistent.stf: No such file or directory\n");
  const Finished no_program =
      switchctl({"stf", fileOf("good.stf", kGood), "--program", "/nonexistent.json"});
  EXPECT_TRUE(no_program.endedWith(2));
  EXPECT_THAT(no_program.error, HasSubstr("/nonexistent.json"));
  EXPECT_THAT(no_program.output, IsEmpty());
}

TEST(Stf, RemovesAllThatItHasAdded) {
  const std::string again = "remove all\n" + kGood;
  const Finished sut =
      onOwnDevice(fileOf("again.stf", "add dmac dst:0x020000000002 forward(port:7)\n" + again));
  EXPECT_TRUE(sut.endedWith(0)) << sut.error;
}

TEST(Stf, AddsMembersGroupsPrioritiesAndRanges) {
  // IPv4, 10.0.0.1 to 10.1.0.9, UDP from port 1000 to 53.
  const std::string head = "020000000001 020000000009 0800 ";
  const std::string packet =
      "450000200000 0000 4011 65c0 0a000001 0a010009 03e8 0035 000c 0000 01020304";
  const std::string test =
      fileOf("router.stf",
             "member nexthops 5 set_nexthop(port:3, dmac:0x0200000000aa, smac:0x0200000000bb)\n"
             "member nexthops 6 set_nexthop(port:3, dmac:0x0200000000aa, smac:0x0200000000bb)\n"
             "group nexthops 1 5 6\n"
             "add ipv4_lpm dst:0x0a010000/16 group(1)\n"
             "add acl 10 dport:50->60 deny(counter:1)\n"
             "packet 1 " +
                 head + packet +
                 "\n"
                 "add acl 20 src:0x0a****** protocol:0x11 permit()\n"
                 "packet 1 " +
                 head + packet +
                 "\n"
                 "expect 3 0200000000aa 0200000000bb 0800 45\n"
                 "check_counter acl_counters(1) packets == 1\n");
  const Finished sut = onOwnDevice(test, "router");
  EXPECT_TRUE(sut.endedWith(0)) << sut.error << testing::PrintToString(sut.output);
}

TEST(Stf, SaysInJsonWhatDiffers) {
  const std::string test = fileOf("json.stf", "expect 4 00\n");
  const Finished sut = switchctl({"--json", "stf", test, "--program", programFile("l2_switch")});
  EXPECT_TRUE(sut.endedWith(1));
  ASSERT_EQ(sut.output.size(), 1U);
  const auto said = nlohmann::json::parse(sut.output[0]);
  EXPECT_EQ(said.at("as_expected"), false);
  EXPECT_EQ(said.at("differences").at(0).at("line"), 1);
}

// --- against an agent

/// An agent that serves, with what it was started with.
Child agentToSetUp(const Words& more = {}) {
  Words arguments = {"--program", programFile("l2_switch")};
  arguments.insert(arguments.end(), more.begin(), more.end());
  Child agent(JEX_SLICE_AGENT, arguments);
  EXPECT_THAT(agent.readLine(), StartsWith("slice-agent: ready"));
  return agent;
}

TEST(Stf, RunsOnARunningAgent) {
  const Child agent = agentToSetUp();
  const Finished sut = switchctl({"stf", fileOf("good.stf", kGood)});
  EXPECT_TRUE(sut.endedWith(0)) << sut.error;
  EXPECT_THAT(switchctl({"count", "dmac"}).output, ElementsAre("2"));
}

TEST(Stf, EndsWithTwoWhereNobodyAnswers) {
  const Finished sut = switchctl({"stf", fileOf("good.stf", kGood), "--target", "127.0.0.1:1"});
  EXPECT_TRUE(sut.endedWith(2));
  EXPECT_THAT(sut.error, StartsWith("switchctl: cannot reach 127.0.0.1:1: "));
}

TEST(Configure, IsCarriedOutBeforeTheAgentIsReady) {
  const std::string file = fileOf("setup",
                                  "# what the operator sets\n"
                                  "add dmac dst:0x020000000002 forward(port:2)\n"
                                  "setdefault dmac forward(port:7)\n");
  const Child agent = agentToSetUp({"--configure", file});
  EXPECT_THAT(switchctl({"entries", "dmac"}).output,
              ElementsAre("#2147483648 ethernet.dst=02:00:00:00:00:02 -> forward port=2",
                          "default -> forward port=7"));
}

TEST(Configure, EndsTheStartOverAnErrorAndLeavesNothing) {
  const std::string file = fileOf("setup", "\nadd dmac dst:0x02 forward(port:512)\n");
  for (const char* const control : {"127.0.0.1:50051", "off"}) {
    const Finished sut =
        finish(Child(JEX_SLICE_AGENT, {"--program", programFile("l2_switch"), "--configure", file,
                                       "--control", control}));
    EXPECT_TRUE(sut.endedWith(2));
    EXPECT_EQ(sut.error,
              "slice-agent: " + file + ":2: action forward, port: 512 does not fit 9 bits\n");
    EXPECT_THAT(sut.output, IsEmpty());
    EXPECT_NE(access("/tmp/Partner0", F_OK), 0);
  }
}

TEST(Configure, RefusesLinesThatSetNothingUp) {
  const std::string file = fileOf("setup", "packet 1 00\n");
  const Finished sut =
      finish(Child(JEX_SLICE_AGENT, {"--program", programFile("l2_switch"), "--configure", file}));
  EXPECT_TRUE(sut.endedWith(2));
  EXPECT_EQ(sut.error,
            "slice-agent: " + file + ":1: packet belongs to packet tests: it sets nothing up\n");
}

TEST(Configure, WorksOnARunningDevice) {
  const Child agent = agentToSetUp();
  EXPECT_TRUE(switchctl({"set", "add", "dmac", "dst:0x09", "forward(port:", "6)"}).endedWith(0));
  EXPECT_TRUE(switchctl({"set", "counter_write", "port_counters", "4", "5", "6"}).endedWith(0));
  EXPECT_TRUE(
      switchctl({"configure", fileOf("setup", "setdefault dmac forward(port:7)\n")}).endedWith(0));
  EXPECT_THAT(switchctl({"entries", "dmac"}).output,
              ElementsAre("#2147483648 ethernet.dst=00:00:00:00:00:09 -> forward port=6",
                          "default -> forward port=7"));
  EXPECT_THAT(switchctl({"entries", "port_counters", "--non-zero"}).output,
              ElementsAre(HasSubstr("packets=5 bytes=6")));
  const Finished refused = switchctl({"set", "add", "dmac", "dst:0x09", "flood()"});
  EXPECT_TRUE(refused.endedWith(1));
  EXPECT_EQ(refused.error,
            "switchctl: table dmac has an entry with this key already: delete that one first\n");
  EXPECT_TRUE(switchctl({"clones"}).endedWith(1));
}

TEST(Trace, TakesATypedPacket) {
  const Child agent = agentToSetUp();
  ASSERT_TRUE(switchctl({"set", "setdefault", "dmac", "forward(port:7)"}).endedWith(0));
  const Finished sut =
      switchctl({"trace", "--port", "1", "020000000003", "020000000001", "88b5", "0001"});
  EXPECT_TRUE(sut.endedWith(0)) << sut.error;
  EXPECT_THAT(sut.output, AllOf(Contains("packet 1, 16 bytes, l2_switch, from port 1"),
                                Contains("  forwarded to port 7")));
  EXPECT_THAT(switchctl({"trace", "--port", "1", "0102zz"}).error,
              StartsWith("switchctl: cannot read 0102zz: "));
}

}  // namespace
