// slice-agent and switchctl as people and scripts run them: what they print, where, and how they
// end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "support/child.h"
#include "support/private_world.h"
#include "support/switch_device.h"
#include "support/wait_until.h"

namespace {

using jextest::Child;
using jextest::finish;
using jextest::Finished;
using jextest::isOneLine;
using jextest::listingOf;
using jextest::programFile;
using jextest::switchctl;
using jextest::Words;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kSocketFile = "/tmp/Partner0";

/// An agent that has not said anything yet.
Child agent(const Words& arguments, const Child::Environment& environment = {}) {
  return Child(JEX_SLICE_AGENT, arguments, environment);
}

/// Arguments that load the three programs of this project.
Words allPrograms() {
  return {"--program", programFile("l2_switch"), "--program", programFile("router"),
          "--program", programFile("limits")};
}

size_t tablesIn(const std::string& program) {
  return json::parse(std::ifstream(programFile(program))).at("tables").size();
}

/// A copy of a program under another name and id, so that table names are there twice.
std::string renamedProgram(const std::string& program, const std::string& name, int id) {
  json description = json::parse(std::ifstream(programFile(program)));
  description["name"] = name;
  description["id"] = id;
  const std::string path = jextest::runDirectory() + "/" + name + ".json";
  std::ofstream(path) << description;
  return path;
}

TEST(SliceAgent, SaysWhenItServesAndHowManyTablesItHas) {
  Child sut = agent(allPrograms());
  const size_t tables = tablesIn("l2_switch") + tablesIn("router") + tablesIn("limits");
  EXPECT_EQ(sut.readLine(), "slice-agent: ready, device 0, " + std::to_string(tables) +
                                " tables, ipc:///tmp/Partner0");
  EXPECT_EQ(access(kSocketFile, F_OK), 0);
}

TEST(SliceAgent, EndsWithStatusZeroOnSigtermAndSigintAndLeavesNoSocketFile) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Child sut = agent({"--program", programFile("l2_switch"), "--control", "off"});
    ASSERT_THAT(sut.readLine(), StartsWith("slice-agent: ready"));
    sut.signal(signal);
    const jextest::Exit exit = sut.waitForExit();
    EXPECT_EQ(exit.signal, 0);
    EXPECT_EQ(exit.code, 0);
    EXPECT_EQ(sut.standardError(), "");
    EXPECT_NE(access(kSocketFile, F_OK), 0);
  }
}

TEST(SliceAgent, RefusesToStartBesideAnotherOneWhichGoesOn) {
  Child first = agent({"--program", programFile("l2_switch")});
  ASSERT_THAT(first.readLine(), StartsWith("slice-agent: ready"));
  const Finished sut = finish(agent({"--program", programFile("l2_switch"), "--control", "off"}));
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_EQ(sut.error, "slice-agent: another agent serves ipc:///tmp/Partner0\n");
  EXPECT_THAT(sut.output, IsEmpty());
  EXPECT_FALSE(first.ended());
  EXPECT_THAT(switchctl({"health"}).output, ElementsAre("SERVING"));
}

TEST(SliceAgent, ReplacesTheSocketFileOfAKilledOne) {
  {
    Child killed = agent({"--program", programFile("l2_switch"), "--control", "off"});
    ASSERT_THAT(killed.readLine(), StartsWith("slice-agent: ready"));
    killed.signal(SIGKILL);
    killed.waitForExit();
  }
  ASSERT_EQ(access(kSocketFile, F_OK), 0);
  Child sut = agent({"--program", programFile("l2_switch"), "--control", "off"});
  EXPECT_THAT(sut.readLine(), StartsWith("slice-agent: ready"));
}

TEST(SliceAgent, SaysInOneLineWhatIsWrongWithAProgram) {
  const std::string path = jextest::runDirectory() + "/broken.json";
  std::ofstream(path) << "{";
  for (const std::string& file : {path, std::string("/nonexistent.json")}) {
    const Finished sut = finish(agent({"--program", file, "--control", "off"}));
    EXPECT_TRUE(sut.endedWith(1));
    EXPECT_THAT(sut.error, HasSubstr(file));
    EXPECT_TRUE(isOneLine(sut.error)) << sut.error;
    EXPECT_THAT(sut.output, IsEmpty());
  }
}

TEST(SliceAgent, TakesAWrongCommandLineForAUsageError) {
  const std::string program = programFile("l2_switch");
  for (const Words& arguments :
       {Words{}, Words{"--program", program, "--device", "256"},
        Words{"--program", program, "--heartbeat-ms", "-1"},
        Words{"--program", program, "--counter-update-ms", "soon"},
        Words{"--program", program, "--clock", "sundial"},
        Words{"--program", program, "--timeout-ms", "-5"}, Words{"--program", program, "extra"}}) {
    const Finished sut = finish(agent(arguments));
    EXPECT_TRUE(sut.endedWith(2));
    EXPECT_THAT(sut.error, AllOf(StartsWith("slice-agent: "), HasSubstr("--help")));
    EXPECT_TRUE(isOneLine(sut.error)) << sut.error;
  }
}

TEST(SliceAgent, OffersNoControlServerWhereItIsSwitchedOff) {
  Child sut = agent({"--program", programFile("l2_switch"), "--control", "off"});
  ASSERT_THAT(sut.readLine(), StartsWith("slice-agent: ready"));
  const Finished asked = switchctl({"health"});
  EXPECT_TRUE(asked.endedWith(1));
  EXPECT_THAT(asked.error, StartsWith("switchctl: cannot reach 127.0.0.1:50051: "));
  EXPECT_TRUE(isOneLine(asked.error)) << asked.error;
}

TEST(SliceAgent, TellsWhichFreePortItsControlServerTook) {
  Child sut = agent({"--program", programFile("l2_switch"), "--control", "127.0.0.1:0"});
  ASSERT_THAT(sut.readLine(), StartsWith("slice-agent: ready"));
  const std::string log = sut.standardError();
  const std::string intro = "slice-agent: control server on ";
  ASSERT_THAT(log, StartsWith(intro));
  const std::string address = log.substr(intro.size(), log.size() - intro.size() - 1);
  EXPECT_THAT(switchctl({"health", "--target", address}).output, ElementsAre("SERVING"));
}

TEST(SliceAgent, DoesNotStartWhereItsControlAddressIsTaken) {
  // A physical device in another agent's place: only the control address is in the way.
  Child holder = agent({"--program", programFile("l2_switch")});
  ASSERT_THAT(holder.readLine(), StartsWith("slice-agent: ready"));
  ASSERT_EQ(unlink(kSocketFile), 0);
  const Finished sut = finish(agent({"--program", programFile("l2_switch")}));
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_EQ(sut.error, "slice-agent: cannot serve control on 127.0.0.1:50051: IO error\n");
}

TEST(SliceAgent, SaysWhichSdkCallFailed) {
  const Finished sut = finish(agent({"--program", programFile("l2_switch"), "--control", "off"},
                                    {{"JX_MODEL_FAULTS", "pipe_mgr_init:1:status=2"}}));
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_EQ(sut.error, "slice-agent: cannot bring up the pipeline manager: No system resources\n");
}

TEST(SliceAgent, ListsEveryOptionInItsHelp) {
  const Finished sut = finish(agent({"--help"}));
  EXPECT_TRUE(sut.endedWith(0));
  const std::string help = testing::PrintToString(sut.output);
  for (const char* option :
       {"--program", "--device", "--timeout-ms", "--heartbeat-ms", "--counter-update-ms",
        "--control", "--port", "--clock", "--version"}) {
    EXPECT_THAT(help, HasSubstr(option));
  }
}

/// switchctl against an agent that carries the project's programs.
class Switchctl : public testing::Test {
 protected:
  void SetUp() override { ASSERT_THAT(agent_.readLine(), StartsWith("slice-agent: ready")); }

  Child agent_ = agent(allPrograms());
};

TEST_F(Switchctl, TakesOptionsBeforeAndAfterTheCommand) {
  const Words expected{"{\"status\":\"SERVING\"}"};
  EXPECT_EQ(switchctl({"--json", "--target", "127.0.0.1:50051", "health"}).output, expected);
  EXPECT_EQ(switchctl({"health", "--json", "--target", "127.0.0.1:50051"}).output, expected);
}

TEST_F(Switchctl, TakesOptionsBeforeBetweenAndBehindPositionalArguments) {
  const Words expected{"{\"table\":\"smac\",\"entries\":0}"};
  const Words options{"--json", "--target=127.0.0.1:50051", "--program", "l2_switch", "--device",
                      "0"};
  const auto with = [](Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
  };
  EXPECT_EQ(switchctl(with(options, {"count", "smac"})).output, expected);
  EXPECT_EQ(switchctl(with(with({"count"}, options), {"smac"})).output, expected);
  EXPECT_EQ(switchctl(with({"count", "smac"}, options)).output, expected);
  EXPECT_EQ(
      switchctl({"--json", "count", "--program", "l2_switch", "smac", "--device", "0"}).output,
      expected);
}

TEST_F(Switchctl, TakesACommandsOwnOptionsBeforeAndBehindItsFile) {
  // What is refused at last is the file, so all options of these were taken.
  const std::string refusal = "switchctl: cannot read nowhere.pcap: No such file or directory\n";
  for (const char* command : {"inject", "trace"}) {
    for (const Words& rest :
         {Words{"--port", "3", "nowhere.pcap"}, Words{"nowhere.pcap", "--port", "3"},
          Words{"nowhere.pcap", "--json", "--port=3", "--device", "0"},
          Words{"--device", "0", "nowhere.pcap", "--port", "3", "--json"}}) {
      Words words{command};
      words.insert(words.end(), rest.begin(), rest.end());
      const Finished sut = switchctl(words);
      EXPECT_TRUE(sut.endedWith(1)) << testing::PrintToString(words);
      EXPECT_EQ(sut.error, refusal) << testing::PrintToString(words);
    }
  }
}

TEST_F(Switchctl, TakesTheOptionsOfACaptureBehindItsFile) {
  // Each is refused for the value of the last option, so the ones before it were taken.
  for (const Words& wrong :
       {Words{"capture", "out.pcap", "--count", "3", "--direction", "in", "--port", "512"},
        Words{"capture", "--port", "3", "out.pcap", "--count", "3", "--direction", "aside"},
        Words{"capture", "out.pcap", "--port", "3", "--direction", "out", "--count", "few"}}) {
    const Finished sut = switchctl(wrong);
    EXPECT_TRUE(sut.endedWith(2)) << testing::PrintToString(wrong);
    EXPECT_THAT(sut.error, AllOf(HasSubstr(wrong[wrong.size() - 2]), HasSubstr(wrong.back()),
                                 HasSubstr("--help")));
  }
}

TEST_F(Switchctl, TakesTheNameOfACommandForATableWhereATableIsAskedFor) {
  EXPECT_EQ(switchctl({"count", "health", "--json"}).error,
            "switchctl: 127.0.0.1:50051: there is no table 'health'\n");
}

TEST_F(Switchctl, ListsTheProgramsInTheAgentsOrder) {
  const Finished sut = switchctl({"programs", "--json"});
  ASSERT_TRUE(sut.endedWith(0)) << sut.error;
  ASSERT_EQ(sut.output.size(), 1u);
  Words names;
  for (const json& program : json::parse(sut.output[0])) {
    names.push_back(program.at("program"));
    EXPECT_EQ(program.at("device"), 0);
    EXPECT_EQ(program.at("virtual"), false);
    EXPECT_EQ(program.at("tables"), tablesIn(names.back()));
  }
  EXPECT_THAT(names, ElementsAre("l2_switch", "router", "limits"));
}

TEST_F(Switchctl, DescribesTheTablesOfOneProgram) {
  const Finished sut = switchctl({"tables", "--json", "--program", "l2_switch"});
  ASSERT_TRUE(sut.endedWith(0)) << sut.error;
  ASSERT_EQ(sut.output.size(), 1u);
  const json tables = json::parse(sut.output[0]);
  ASSERT_EQ(tables.size(), tablesIn("l2_switch"));
  const json& smac = tables[0];
  EXPECT_EQ(smac.at("program"), "l2_switch");
  EXPECT_EQ(smac.at("name"), "smac");
  EXPECT_EQ(smac.at("id"), 0x10001);
  EXPECT_EQ(smac.at("handle"), 0x10010001);
  EXPECT_EQ(smac.at("kind"), "match_direct");
  EXPECT_GT(smac.at("size"), 0);
  EXPECT_EQ(smac.at("entries"), 0);
}

TEST_F(Switchctl, CountsATable) {
  EXPECT_THAT(switchctl({"count", "ipv4_lpm"}).output, ElementsAre("0"));
  EXPECT_THAT(switchctl({"--json", "count", "ipv4_lpm"}).output,
              ElementsAre("{\"table\":\"ipv4_lpm\",\"entries\":0}"));
}

TEST_F(Switchctl, SaysThatThereIsNoSuchTableProgramOrDevice) {
  for (const char* command : {"entries", "count"}) {
    const Finished sut = switchctl({command, "nowhere"});
    EXPECT_TRUE(sut.endedWith(1));
    EXPECT_EQ(sut.error, "switchctl: 127.0.0.1:50051: there is no table 'nowhere'\n");
    EXPECT_THAT(sut.output, IsEmpty());
  }
  EXPECT_EQ(switchctl({"count", "smac", "--program", "nothing"}).error,
            "switchctl: 127.0.0.1:50051: there is no program 'nothing'\n");
  EXPECT_EQ(switchctl({"tables", "--device", "7"}).error,
            "switchctl: 127.0.0.1:50051: there is no device 7\n");
}

TEST_F(Switchctl, TakesAWrongCommandLineForAUsageError) {
  for (const Words& arguments : {Words{}, Words{"frobnicate"}, Words{"entries"},
                                 Words{"health", "extra"}, Words{"tables", "--device", "256"}}) {
    const Finished sut = switchctl(arguments);
    EXPECT_TRUE(sut.endedWith(2));
    EXPECT_TRUE(isOneLine(sut.error)) << sut.error;
  }
}

TEST(SwitchctlOfTwins, HasToBeToldTheProgramOfANameThatIsThereTwice) {
  Child served = agent(
      {"--program", programFile("l2_switch"), "--program", renamedProgram("l2_switch", "twin", 9)});
  ASSERT_THAT(served.readLine(), StartsWith("slice-agent: ready"));
  const Finished unclear = switchctl({"count", "smac"});
  EXPECT_TRUE(unclear.endedWith(1));
  EXPECT_EQ(unclear.error,
            "switchctl: 127.0.0.1:50051: several tables are called 'smac', choose: device 0, "
            "program l2_switch; device 0, program twin\n");
  const Finished clear = switchctl({"count", "smac", "--program", "twin"});
  EXPECT_TRUE(clear.endedWith(0)) << clear.error;
  EXPECT_THAT(clear.output, ElementsAre("0"));
}

TEST_F(Switchctl, DumpsWhatThePartnerShellDumpsByteForByte) {
  Child shell(JEX_PARTNER_SHELL, {"--program", programFile("router"), "--device", "1", "--json"});
  ASSERT_TRUE(jextest::saysReady(shell)) << shell.standardError();
  for (const char* command :
       {"member-add nexthops member=1 -> set_nexthop port=1 dmac=02:00:00:00:00:01 "
        "smac=02:00:00:00:01:01",
        "member-add nexthops member=2 -> set_nexthop port=2 dmac=02:00:00:00:00:02 "
        "smac=02:00:00:00:01:02",
        "group-create ecmp_groups group=7 max=4 members=1,2",
        "group-deactivate ecmp_groups group=7 member=2", "fallback ecmp_groups member=1",
        "add ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=1",
        "add ipv4_lpm ipv4.dst=10.1.0.0/16 -> group=7",
        "add ipv6_lpm ipv6.dst=2001:db8::/32 -> member=2",
        "add acl ipv4.src=10.0.0.0&&&255.0.0.0 ipv4.dst=* ipv4.protocol=6 l4.sport=1..1023 "
        "l4.dport=* -> deny priority=10"}) {
    ASSERT_THAT(shell.ask(command), HasSubstr("\"ok\":true")) << command;
  }
  // The last update has arrived when the last table has its entry.
  ASSERT_TRUE(jextest::waitUntil([] { return switchctl({"count", "acl"}).output == Words{"1"}; }));
  for (const auto& [table, lines] : std::vector<std::pair<std::string, size_t>>{
           {"nexthops", 2}, {"ecmp_groups", 2}, {"ipv4_lpm", 2}, {"ipv6_lpm", 1}}) {
    const Words here = listingOf(shell, "dump " + table);
    EXPECT_GE(here.size(), lines) << table;
    const Finished there = switchctl({"entries", table, "--json"});
    EXPECT_TRUE(there.endedWith(0)) << there.error;
    EXPECT_EQ(there.output, here) << table;
  }
  EXPECT_EQ(switchctl({"entries", "acl", "--json"}).output, listingOf(shell, "dump acl"));
}

}  // namespace
