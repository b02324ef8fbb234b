// partner-shell as people and scripts run it, with an agent behind it: what it answers, what both
// devices hold then, and how it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "endtoend/cli_run.h"
#include "endtoend/switch_run.h"
#include "endtoend/terminal.h"
#include "support/bytes.h"
#include "support/child.h"
#include "support/private_world.h"
#include "support/raw_socket.h"
#include "support/switch_device.h"
#include "support/wait_until.h"

namespace {

using jextest::Child;
using jextest::finish;
using jextest::Finished;
using jextest::isOneLine;
using jextest::listingOf;
using jextest::programFile;
using jextest::saysReady;
using jextest::switchctl;
using jextest::Terminal;
using jextest::waitUntil;
using jextest::Words;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kReady = "partner-shell: ready";

Words withPrograms(Words arguments) {
  Words all = {"--program", programFile("l2_switch"), "--program", programFile("router")};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

Child startShell(const Words& arguments = {}) {
  return Child(JEX_PARTNER_SHELL, withPrograms(arguments));
}

Child startedShell(const Words& arguments = {}) {
  Child shell = startShell(arguments);
  if (std::count(arguments.begin(), arguments.end(), "--json") > 0) {
    EXPECT_TRUE(saysReady(shell)) << shell.standardError();
  } else {
    EXPECT_EQ(shell.readLine(), kReady) << shell.standardError();
  }
  return shell;
}

Child startAgent() { return Child(JEX_SLICE_AGENT, withPrograms({"--heartbeat-ms", "0"})); }

Child servingAgent() {
  Child agent = startAgent();
  EXPECT_THAT(agent.readLine(), StartsWith("slice-agent: ready"));
  return agent;
}

/// A file of the run directory.
std::string writtenFile(const std::string& name, const std::string& content) {
  const std::string path = jextest::runDirectory() + "/" + name;
  std::ofstream(path) << content;
  return path;
}

std::string gzipFile(const std::string& name, const std::string& content) {
  const std::string path = jextest::runDirectory() + "/" + name;
  gzFile file = gzopen(path.c_str(), "wb");
  EXPECT_EQ(gzwrite(file, content.data(), static_cast<unsigned>(content.size())),
            static_cast<int>(content.size()));
  EXPECT_EQ(gzclose(file), Z_OK);
  return path;
}

Words physicalEntries(const std::string& table) {
  return switchctl({"entries", table, "--json"}).output;
}

/// Waits until the physical device holds `lines` in `table`.
void expectPhysical(const std::string& table, const Words& lines) {
  Words found;
  waitUntil([&] { return (found = physicalEntries(table)) == lines; });
  EXPECT_EQ(found, lines) << "physical device: " << table;
}

/// `shell`, which prints JSON, and the physical device hold `lines` in `table`.
void expectBoth(Child& shell, const std::string& table, const Words& lines) {
  EXPECT_EQ(listingOf(shell, "dump " + table), lines) << table;
  expectPhysical(table, lines);
}

void given(Child& shell, const Words& commands) {
  for (const std::string& command : commands) {
    const std::string answer = shell.ask(command);
    ASSERT_TRUE(answer.rfind("ok", 0) == 0 || answer.rfind("{\"ok\":true", 0) == 0)
        << command << ": " << answer;
  }
}

std::string memberCommand(int id) {
  const std::string number = std::to_string(id);
  return "member-add nexthops member=" + number + " -> set_nexthop port=" + number +
         " dmac=02:00:00:00:00:0" + number + " smac=02:00:00:00:01:0" + number;
}

std::string memberLine(int handle, int id, int port) {
  const std::string number = std::to_string(id);
  return R"({"handle":)" + std::to_string(handle) + R"(,"key":{"$MEMBER_ID":")" + number +
         R"("},"action":"set_nexthop","params":{"port":")" + std::to_string(port) +
         R"(","dmac":"02:00:00:00:00:0)" + number + R"(","smac":"02:00:00:00:01:0)" + number +
         R"(","counter":"0"}})";
}

std::string routeLine(int handle, const std::string& prefix, const std::string& target) {
  return R"({"handle":)" + std::to_string(handle) + R"(,"key":{"ipv4.dst":")" + prefix + R"("},)" +
         target + "}";
}

/// With an agent that carries the same programs and sends no heartbeats.
class PartnerShell : public testing::Test {
 protected:
  Child agent_ = servingAgent();
};

/// A command, what answers it, and what a table holds on both devices then.
struct Step {
  std::string command, answer, table;
  Words lines;
};

void expectSteps(Child& shell, const std::vector<Step>& steps) {
  for (const Step& step : steps) {
    SCOPED_TRACE(step.command);
    EXPECT_EQ(shell.ask(step.command), step.answer);
    expectBoth(shell, step.table, step.lines);
  }
}

constexpr const char* kOk = R"({"ok":true})";
constexpr const char* kFirstHandle = R"({"ok":true,"handle":1})";
constexpr const char* kSecondHandle = R"({"ok":true,"handle":2})";

TEST_F(PartnerShell, ChangesEntriesOnBothDevices) {
  Child sut = startedShell({"--json"});
  const std::string key = R"({"handle":1,"key":{"ethernet.dst":"02:00:00:00:00:01"},"action":)";
  const std::string to3 = key + R"("forward","params":{"port":"3"}})";
  const std::string to4 = key + R"("forward","params":{"port":"4"}})";
  const std::string flood = R"({"default":true,"action":"flood","params":{}})";
  expectSteps(
      sut,
      {{"add dmac ethernet.dst=02:00:00:00:00:01 -> forward port=3", kFirstHandle, "dmac", {to3}},
       {"modify dmac ethernet.dst=0x020000000001 -> forward port=4", kOk, "dmac", {to4}},
       {"default dmac -> flood", kOk, "dmac", {to4, flood}},
       {"clear-default dmac", kOk, "dmac", {to4}},
       {"delete dmac ethernet.dst=2199023255553", kOk, "dmac", {}},
       {"add smac ethernet.src=02:00:00:00:00:01 meta.ingress_port=7 ttl=3600000 -> known",
        kFirstHandle,
        "smac",
        {R"({"handle":1,"key":{"ethernet.src":"02:00:00:00:00:01","meta.ingress_port":"7"},)"
         R"("action":"known","params":{},"ttl":3600000})"}}});
}

TEST_F(PartnerShell, MovesEntriesOfAPriorityOnBothDevices) {
  Child sut = startedShell({"--json"});
  const auto line = [](int priority) {
    return R"({"handle":1,"key":{"ipv4.src":"10.0.0.0&&&255.0.0.0","ipv4.dst":"*",)"
           R"("ipv4.protocol":"6","l4.sport":"1..1023","l4.dport":"*"},"priority":)" +
           std::to_string(priority) + R"(,"action":"deny","params":{"counter":"0"}})";
  };
  const std::string key = " acl ipv4.src=10.0.0.0&&&255.0.0.0 ipv4.protocol=6 l4.sport=1..1023";
  expectSteps(sut, {{"add" + key + " -> deny priority=10", kFirstHandle, "acl", {line(10)}},
                    {"move" + key + " priority=3", kOk, "acl", {line(3)}},
                    {"delete" + key, kOk, "acl", {}}});
}

TEST_F(PartnerShell, ChangesMembersAndWhatRefersToThemOnBothDevices) {
  Child sut = startedShell({"--json"});
  expectSteps(
      sut,
      {{memberCommand(1), kFirstHandle, "nexthops", {memberLine(1, 1, 1)}},
       {memberCommand(2), kSecondHandle, "nexthops", {memberLine(1, 1, 1), memberLine(2, 2, 2)}},
       {"member-modify nexthops member=1 -> set_nexthop port=9 dmac=02:00:00:00:00:01 "
        "smac=02:00:00:00:01:01",
        kOk,
        "nexthops",
        {memberLine(1, 1, 9), memberLine(2, 2, 2)}},
       {"add ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=1",
        kFirstHandle,
        "ipv4_lpm",
        {routeLine(1, "10.0.0.0/8", R"("member":1)")}},
       {"modify ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=2",
        kOk,
        "ipv4_lpm",
        {routeLine(1, "10.0.0.0/8", R"("member":2)")}},
       {"add ipv6_lpm ipv6.dst=2001:db8::/32 -> member=2",
        kFirstHandle,
        "ipv6_lpm",
        {R"({"handle":1,"key":{"ipv6.dst":"2001:db8::/32"},"member":2})"}},
       {"default ipv6_lpm -> member=2",
        kOk,
        "ipv6_lpm",
        {R"({"handle":1,"key":{"ipv6.dst":"2001:db8::/32"},"member":2})",
         R"({"default":true,"member":2})"}},
       {"member-delete nexthops member=1", kOk, "nexthops", {memberLine(2, 2, 2)}}});
}

TEST_F(PartnerShell, ChangesGroupsOnBothDevices) {
  Child sut = startedShell({"--json"});
  given(sut, {memberCommand(1), memberCommand(2)});
  const auto group = [](const std::string& members) {
    return R"({"handle":1,"key":{"$GROUP_ID":"7"},"max":4,"members":[)" + members + "]}";
  };
  const std::string one = R"({"member":1,"active":true})";
  const std::string two = R"({"member":2,"active":true})";
  const std::string idle_two = R"({"member":2,"active":false})";
  const std::string fallback = R"({"fallback":true,"member":1})";
  const std::string table = "ecmp_groups";
  const std::string both = group(one + "," + two);
  expectSteps(
      sut,
      {{"group-create ecmp_groups group=7 max=4 members=1", kFirstHandle, table, {group(one)}},
       {"group-add ecmp_groups group=7 member=2", kOk, table, {both}},
       {"group-deactivate ecmp_groups group=7 member=2", kOk, table, {group(one + "," + idle_two)}},
       {"group-activate ecmp_groups group=7 member=2", kOk, table, {both}},
       {"fallback ecmp_groups member=1", kOk, table, {both, fallback}},
       {"clear-fallback ecmp_groups", kOk, table, {both}},
       {"add ipv4_lpm ipv4.dst=10.0.0.0/8 -> group=7",
        kFirstHandle,
        "ipv4_lpm",
        {routeLine(1, "10.0.0.0/8", R"("group":7)")}},
       {"delete ipv4_lpm ipv4.dst=10.0.0.0/8", kOk, "ipv4_lpm", {}},
       {"group-remove ecmp_groups group=7 member=1", kOk, table, {group(two)}},
       {"group-destroy ecmp_groups group=7", kOk, table, {}}});
}

TEST_F(PartnerShell, AnswersInTextUnlessJsonIsAskedFor) {
  Child sut = startedShell();
  EXPECT_EQ(sut.ask("add dmac ethernet.dst=02:00:00:00:00:01 -> forward port=3"), "ok handle 1");
  EXPECT_EQ(sut.ask("dump dmac"), "#1 ethernet.dst=02:00:00:00:00:01 -> forward port=3");
  EXPECT_EQ(sut.readLine(), "ok 1 entry");
  EXPECT_EQ(sut.ask("count dmac"), "ok 1 entry");
  EXPECT_EQ(sut.ask("count smac"), "ok 0 entries");
  EXPECT_EQ(sut.ask("default dmac -> flood"), "ok");
  EXPECT_EQ(sut.ask("help count"), "count TABLE");
  EXPECT_EQ(sut.readLine(), "    Counts the entries, without the default.");
  EXPECT_EQ(sut.readLine(), "ok 1 command");
  EXPECT_EQ(sut.ask("fly"), "error: unknown command 'fly'; help lists them");
  sut.say("# no command");
  sut.say("");
  EXPECT_THAT(sut.ask("tables"), StartsWith("l2_switch.smac "));
}

TEST_F(PartnerShell, ListsTheTablesThatTheAgentHas) {
  Child sut = startedShell({"--json"});
  given(sut, {memberCommand(1)});
  const json answer = json::parse(sut.ask("tables"));
  EXPECT_EQ(answer.at("ok"), true);
  expectPhysical("nexthops", {memberLine(1, 1, 1)});
  const Finished physical = switchctl({"tables", "--json"});
  ASSERT_EQ(physical.output.size(), 1u) << physical.error;
  json expected = json::parse(physical.output[0]);
  for (json& table : expected) table.erase("device");
  EXPECT_EQ(answer.at("tables"), expected);
}

/// What every table of both devices holds.
std::vector<Words> dumpOfAll(Child& shell) {
  std::vector<Words> all;
  const json answer = json::parse(shell.ask("tables"));
  for (const json& table : answer.at("tables")) {
    all.push_back(listingOf(shell, "dump " + table.at("name").get<std::string>()));
    all.push_back(physicalEntries(table.at("name")));
  }
  return all;
}

TEST_F(PartnerShell, LeavesBothDevicesAsTheyWereAfterAnError) {
  Child sut = startedShell({"--json"});
  given(sut, {memberCommand(1), memberCommand(2), "group-create ecmp_groups group=7 members=1",
              "add ipv4_lpm ipv4.dst=10.0.0.0/8 -> group=7",
              "add ipv4_lpm ipv4.dst=11.0.0.0/8 -> member=2",
              "add dmac ethernet.dst=1 -> forward port=3", "add acl priority=4 -> deny"});
  ASSERT_TRUE(waitUntil([] { return switchctl({"count", "acl"}).output == Words{"1"}; }));
  const std::vector<Words> before = dumpOfAll(sut);
  const std::pair<std::string, std::string> errors[] = {
      {"fly", "unknown command 'fly'; help lists them"},
      {"count nowhere", "no table 'nowhere'; tables lists them"},
      {"add dmac ethernet.dst=2 vlan.id=3 -> forward port=3",
       "table dmac has no key field 'vlan.id'; it has: ethernet.dst"},
      {"add dmac ethernet.dst=2 -> forward port=512", "value '512' does not fit port (9 bits)"},
      {"add dmac ethernet.dst=0x1000000000000 -> flood",
       "value '0x1000000000000' does not fit ethernet.dst (48 bits)"},
      {"add dmac ethernet.dst=2 -> forward", "parameter 'port' of action forward is missing"},
      {"modify dmac ethernet.dst=1 -> forward port=4 port=5", "'port' is given twice"},
      {"add dmac ethernet.dst=1 -> forward port=4",
       "entry ethernet.dst=00:00:00:00:00:01 exists already in dmac"},
      {"modify dmac ethernet.dst=2 -> flood",
       "entry ethernet.dst=00:00:00:00:00:02 does not exist in dmac"},
      {"delete dmac ethernet.dst=2", "entry ethernet.dst=00:00:00:00:00:02 does not exist in dmac"},
      {"clear-default acl", "acl has no default entry"},
      {"add ipv4_lpm ipv4.dst=12.0.0.0/8 -> member=9", "member 9 does not exist in nexthops"},
      {"add ipv4_lpm ipv4.dst=12.0.0.0/8 -> group=9", "group 9 does not exist in ecmp_groups"},
      {"add ipv4_lpm ipv4.dst=12.1.0.0/8 -> member=1",
       "value '12.1.0.0/8' has bits beyond the prefix; 12.0.0.0/8?"},
      {"member-add nexthops member=1 -> set_nexthop port=5 dmac=1 smac=1",
       "member 1 exists already in nexthops"},
      {"member-delete nexthops member=1",
       "member 1 of nexthops is in use: an entry, a group or the fallback refers to it"},
      {"member-delete nexthops member=2",
       "member 2 of nexthops is in use: an entry, a group or the fallback refers to it"},
      {"group-create ecmp_groups group=7", "group 7 exists already in ecmp_groups"},
      {"group-create ecmp_groups group=8 members=1,9", "member 9 does not exist in nexthops"},
      {"group-add ecmp_groups group=7 member=1", "member 1 is already in group 7 of ecmp_groups"},
      {"group-destroy ecmp_groups group=7",
       "group 7 of ecmp_groups is in use: an entry refers to it"},
      {"fallback ecmp_groups member=9", "member 9 does not exist in nexthops"},
      {"add dmac \"ethernet.dst=2", "a double quote is not closed"},
  };
  for (const auto& [command, reason] : errors) {
    const json answer = json::parse(sut.ask(command));
    EXPECT_EQ(answer.at("ok"), false) << command;
    EXPECT_EQ(answer.at("error"), reason) << command;
  }
  // What had been sent by mistake would be there before this entry.
  given(sut, {"add acl ipv4.dst=1.2.3.4 priority=5 -> deny"});
  ASSERT_TRUE(waitUntil([] { return switchctl({"count", "acl"}).output == Words{"2"}; }));
  given(sut, {"delete acl ipv4.dst=1.2.3.4"});
  ASSERT_TRUE(waitUntil([] { return switchctl({"count", "acl"}).output == Words{"1"}; }));
  EXPECT_EQ(dumpOfAll(sut), before);
}

TEST_F(PartnerShell, EndsWithStatusZeroAtTheEndOfInputAndAfterQuit) {
  for (const bool quits : {false, true}) {
    Child sut = startedShell();
    if (quits) sut.say("quit");
    sut.closeInput();
    const Finished end = finish(std::move(sut));
    EXPECT_TRUE(end.endedWith(0)) << end.error;
    EXPECT_THAT(end.output, IsEmpty());
  }
  EXPECT_FALSE(agent_.ended());
}

TEST_F(PartnerShell, TakesALastLineWithoutAnEnd) {
  const std::string script = writtenFile("unended", "add dmac ethernet.dst=1 -> flood\ncount dmac");
  const Finished sut = finish(startShell({"--script", script}));
  EXPECT_TRUE(sut.endedWith(0)) << sut.error;
  EXPECT_THAT(sut.output, ElementsAre(kReady, "ok handle 1", "ok 1 entry"));
}

// What has been sent stays on the physical device when the shell is gone.
TEST_F(PartnerShell, EndsWithStatusZeroOnSigtermAndSigint) {
  const std::string line =
      R"({"handle":1,"key":{"ethernet.dst":"00:00:00:00:00:01"},"action":"flood","params":{}})";
  Child first = startedShell();
  given(first, {"add dmac ethernet.dst=1 -> flood"});
  first.signal(SIGTERM);
  Finished sut = finish(std::move(first));
  EXPECT_TRUE(sut.endedWith(0)) << sut.error;
  expectPhysical("dmac", {line});
  Child second = startedShell();
  second.signal(SIGINT);
  sut = finish(std::move(second));
  EXPECT_TRUE(sut.endedWith(0)) << sut.error;
  EXPECT_FALSE(agent_.ended());
}

TEST_F(PartnerShell, NamesTheLinesOfAScriptThatFailedAndGoesOn) {
  const std::string script = writtenFile("failing",
                                         "# a remark\n"
                                         "count nowhere\n"
                                         "\n"
                                         "add dmac ethernet.dst=1 -> flood\n"
                                         "add dmac ethernet.dst=1 -> flood\n"
                                         "count dmac\n"
                                         "quit\n"
                                         "count smac\n");
  Finished sut = finish(startShell({"--script", script}));
  EXPECT_TRUE(sut.endedWith(1)) << sut.error;
  EXPECT_THAT(
      sut.output,
      ElementsAre(kReady, "error: line 2: no table 'nowhere'; tables lists them", "ok handle 1",
                  "error: line 5: entry ethernet.dst=00:00:00:00:00:01 exists already in dmac",
                  "ok 1 entry"));
  EXPECT_FALSE(agent_.ended());
}

TEST_F(PartnerShell, NamesTheLineInJsonToo) {
  const std::string script = writtenFile("failing.json", "count dmac\nfly\n");
  const Finished sut = finish(startShell({"--json", "--script", script, "--handle-base", "9"}));
  EXPECT_TRUE(sut.endedWith(1)) << sut.error;
  ASSERT_EQ(sut.output.size(), 2u);
  EXPECT_EQ(sut.output[0], R"({"ok":true,"entries":0})");
  EXPECT_EQ(json::parse(sut.output[1]),
            json::parse(R"({"ok":false,"line":2,)"
                        R"("error":"unknown command 'fly'; help lists them"})"));
}

TEST_F(PartnerShell, GivesOutHandlesFromItsBaseBesideAnotherShell) {
  Child low = startedShell({"--json", "--handle-base", "100"});
  Child high = startedShell({"--handle-base", "4000", "--device", "2", "--json"});
  EXPECT_EQ(low.ask("add dmac ethernet.dst=1 -> flood"), R"({"ok":true,"handle":100})");
  EXPECT_EQ(high.ask("add dmac ethernet.dst=2 -> flood"), R"({"ok":true,"handle":4000})");
  EXPECT_EQ(low.ask("add dmac ethernet.dst=3 -> flood"), R"({"ok":true,"handle":101})");
  EXPECT_EQ(high.ask("add dmac ethernet.dst=4 -> flood"), R"({"ok":true,"handle":4001})");
  const auto line = [](int handle, int address) {
    return R"({"handle":)" + std::to_string(handle) +
           R"(,"key":{"ethernet.dst":"00:00:00:00:00:0)" + std::to_string(address) +
           R"("},"action":"flood","params":{}})";
  };
  expectPhysical("dmac", {line(100, 1), line(4000, 2), line(101, 3), line(4001, 4)});
  EXPECT_THAT(listingOf(low, "dump dmac"), ElementsAre(line(100, 1), line(101, 3)));
  EXPECT_THAT(listingOf(high, "dump dmac"), ElementsAre(line(4000, 2), line(4001, 4)));
}

/// A shell with two members, that loads files of routes.
class PartnerShellRoutes : public PartnerShell {
 protected:
  void SetUp() override { given(sut_, {memberCommand(1), memberCommand(2)}); }

  json load(const std::string& arguments) {
    return json::parse(sut_.ask("load-routes " + arguments));
  }

  Child sut_ = startedShell({"--json"});
};

constexpr const char* kMixedRoutes =
    "10.0.0.0/8\n2001:db8::/32\n# a remark\n\n10.1.0.0/16\n10.2.0.0/16\n2001:db9::/32\n";

TEST_F(PartnerShellRoutes, LoadsAFileSpreadOverTheMembersIntoBothDevices) {
  const std::string path = writtenFile("routes.txt", kMixedRoutes);
  json answer = load("ipv4_lpm " + path + " nexthops=2,1");
  EXPECT_EQ(answer.at("ok"), true) << answer;
  EXPECT_EQ(answer.at("loaded"), 3);
  EXPECT_EQ(answer.at("skipped"), 2) << "lines of IPv6";
  EXPECT_GT(answer.at("rate"), 0);
  expectBoth(
      sut_, "ipv4_lpm",
      {routeLine(1, "10.0.0.0/8", R"("member":2)"), routeLine(2, "10.1.0.0/16", R"("member":1)"),
       routeLine(3, "10.2.0.0/16", R"("member":2)")});
  answer = load("ipv6_lpm " + path);
  EXPECT_EQ(answer.at("loaded"), 2) << answer;
  EXPECT_EQ(answer.at("skipped"), 3) << "lines of IPv4";
  expectBoth(sut_, "ipv6_lpm",
             {R"({"handle":1,"key":{"ipv6.dst":"2001:db8::/32"},"member":1})",
              R"({"handle":2,"key":{"ipv6.dst":"2001:db9::/32"},"member":2})"});
}

TEST_F(PartnerShellRoutes, LoadsAGzipFileUpToTheLimit) {
  const std::string path = gzipFile("routes.txt.gz", kMixedRoutes);
  const json answer = load("ipv4_lpm " + path + " limit=2 nexthops=1");
  EXPECT_EQ(answer.at("ok"), true) << answer;
  EXPECT_EQ(answer.at("loaded"), 2);
  expectBoth(
      sut_, "ipv4_lpm",
      {routeLine(1, "10.0.0.0/8", R"("member":1)"), routeLine(2, "10.1.0.0/16", R"("member":1)")});
}

TEST_F(PartnerShellRoutes, NamesLinesThatCannotBeLoadedAndLoadsTheOthers) {
  const std::string path =
      writtenFile("bad.txt", "10.0.0.0/8\n10.0.0.0/33\n# three\n10.0.0.0/8\n11.0.0.0/8\n");
  const json answer = load("ipv4_lpm " + path + " nexthops=1 on-error=continue");
  EXPECT_EQ(answer.at("ok"), false);
  EXPECT_EQ(answer.at("loaded"), 2);
  EXPECT_EQ(answer.at("failed"), 2);
  EXPECT_THAT(answer.at("error"),
              AllOf(HasSubstr(path + ":2: '10.0.0.0/33' has a prefix length beyond 32"),
                    HasSubstr(path + ":4: entry ipv4.dst=10.0.0.0/8 exists already in ipv4_lpm"),
                    HasSubstr("loaded 2")));
  expectBoth(
      sut_, "ipv4_lpm",
      {routeLine(1, "10.0.0.0/8", R"("member":1)"), routeLine(2, "11.0.0.0/8", R"("member":1)")});
}

TEST_F(PartnerShellRoutes, RefusesAFileOrMembersThatAreNotThere) {
  EXPECT_EQ(load("ipv4_lpm /nonexistent nexthops=1").at("error"),
            "/nonexistent: No such file or directory");
  const std::string path = writtenFile("one.txt", "10.0.0.0/8\n");
  EXPECT_THAT(load("ipv4_lpm " + path + " nexthops=9").at("error"),
              HasSubstr(path + ":1: member 9 does not exist in nexthops"));
  EXPECT_EQ(load("acl " + path).at("error"), "table acl has no LPM field of 32 or 128 bits");
  EXPECT_EQ(sut_.ask("count ipv4_lpm"), R"({"ok":true,"entries":0})");
}

// SIGTERM in mid-load: what was loaded until then is said, and the end is an orderly one.
TEST_F(PartnerShellRoutes, EndsALoadEarlyOnSigterm) {
  constexpr int kRoutes = 400000;
  std::string routes;
  for (int i = 0; i < kRoutes; ++i) {
    routes += "10." + std::to_string(i >> 14) + "." + std::to_string(i >> 6 & 255) + "." +
              std::to_string((i & 63) * 4) + "/30\n";
  }
  sut_.say("load-routes ipv4_lpm " + writtenFile("many.txt", routes) + " nexthops=1,2");
  ASSERT_TRUE(waitUntil([] { return switchctl({"count", "ipv4_lpm"}).output != Words{"0"}; }));
  sut_.signal(SIGTERM);
  const Finished end = finish(std::move(sut_));
  EXPECT_TRUE(end.endedWith(0)) << end.error;
  ASSERT_EQ(end.output.size(), 1u);
  const json answer = json::parse(end.output[0]);
  if (answer.at("ok") == true) {
    EXPECT_EQ(answer.at("loaded"), kRoutes) << "the load was over before the signal";
  } else {
    EXPECT_THAT(answer.at("error"), StartsWith("interrupted"));
    EXPECT_LT(answer.at("loaded"), kRoutes);
  }
  const std::string loaded = std::to_string(answer.at("loaded").get<int>());
  EXPECT_TRUE(waitUntil([&] { return switchctl({"count", "ipv4_lpm"}).output == Words{loaded}; }));
}

TEST(PartnerShellMessages, CreateAGroupWithItsMembersAsOne) {
  constexpr uint32_t kSelectorUpdate = 2, kGroupCreate = 0, kGroupMemberAdd = 2;
  constexpr size_t kFixedBytes = 56, kElementBytes = 8;
  jextest::RawAgent agent;
  Child sut = startShell();
  agent.receiveRegistration();
  ASSERT_EQ(sut.readLine(), kReady) << sut.standardError();
  given(sut,
        {memberCommand(1), memberCommand(2), "group-create ecmp_groups group=7 max=4 members=1,2",
         "group-create ecmp_groups group=8", "group-add ecmp_groups group=8 member=2"});
  for (int member = 0; member < 2; ++member) EXPECT_EQ(jextest::u32At(agent.receive(), 0), 1u);

  const jextest::Bytes with_members = agent.receive();
  EXPECT_EQ(jextest::u32At(with_members, 0), kSelectorUpdate);
  EXPECT_EQ(jextest::u32At(with_members, 28), kGroupCreate);
  EXPECT_EQ(with_members.size(), kFixedBytes + 2 * kElementBytes);
  EXPECT_EQ(jextest::u32At(with_members, 48), 2u);

  const jextest::Bytes without = agent.receive();
  EXPECT_EQ(jextest::u32At(without, 28), kGroupCreate);
  EXPECT_EQ(without.size(), kFixedBytes);
  EXPECT_EQ(jextest::u32At(without, 48), 0u);
  EXPECT_EQ(jextest::u32At(agent.receive(), 28), kGroupMemberAdd);
}

TEST(PartnerShellStart, WaitsForAnAgentAndServesOnceItIsThere) {
  Child sut = startShell({"--json"});
  ASSERT_TRUE(waitUntil([&] {
    return sut.standardError().find(
               "partner-shell: waiting for a slice agent: nobody has made "
               "/tmp/Partner0\n") != std::string::npos;
  })) << sut.standardError();
  EXPECT_FALSE(sut.ended());
  const Child agent = servingAgent();
  EXPECT_TRUE(saysReady(sut)) << sut.standardError();
  given(sut, {memberCommand(1)});
  expectBoth(sut, "nexthops", {memberLine(1, 1, 1)});
}

TEST(PartnerShellStart, CanBeEndedWhileItWaitsForAnAgent) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Child sut = startShell();
    ASSERT_TRUE(waitUntil([&] {
      return sut.standardError().find("waiting for a slice agent") != std::string::npos;
    })) << sut.standardError();
    sut.signal(signal);
    const Finished end = finish(std::move(sut));
    EXPECT_TRUE(end.endedWith(0)) << end.error;
    EXPECT_THAT(end.output, IsEmpty());
  }
}

// No agent is there: none of these gets as far as to wait for one.
TEST(PartnerShellStart, SaysInOneLineWhatIsWrongWithAProgram) {
  json without_size = json::parse(std::ifstream(programFile("router")));
  without_size["tables"][0]["size"] = "many";
  const std::pair<std::string, std::string> rows[] = {
      {writtenFile("broken.json", "{\n  \"name\": x\n}\n"), "line 2"},
      {writtenFile("wrong.json", without_size.dump()), "size"},
      {"/nonexistent.json", "No such file or directory"}};
  for (const auto& [path, reason] : rows) {
    const Finished sut = finish(Child(JEX_PARTNER_SHELL, {"--program", path}));
    EXPECT_TRUE(sut.endedWith(1)) << path;
    EXPECT_THAT(sut.error, AllOf(HasSubstr(path), HasSubstr(reason)));
    EXPECT_TRUE(isOneLine(sut.error)) << sut.error;
    EXPECT_THAT(sut.output, IsEmpty());
  }
}

TEST(PartnerShellStart, TakesAWrongCommandLineForAUsageError) {
  const std::string program = programFile("router");
  for (const Words& arguments : {Words{}, Words{"--program", program, "extra"},
                                 Words{"--program", program, "--device", "256"},
                                 Words{"--program", program, "--handle-base", "low"},
                                 Words{"--fly", "--program", program}}) {
    const Finished sut = finish(Child(JEX_PARTNER_SHELL, arguments));
    EXPECT_TRUE(sut.endedWith(2));
    EXPECT_THAT(sut.error, AllOf(StartsWith("partner-shell: "), HasSubstr("--help")));
    EXPECT_TRUE(isOneLine(sut.error)) << sut.error;
    EXPECT_THAT(sut.output, IsEmpty());
  }
}

TEST(PartnerShellStart, SaysThatThereIsNoSuchScript) {
  const Finished sut = finish(startShell({"--script", "/nonexistent"}));
  EXPECT_TRUE(sut.endedWith(1));
  EXPECT_EQ(sut.error, "partner-shell: /nonexistent: No such file or directory\n");
}

TEST(PartnerShellStart, ListsEveryOptionInItsHelp) {
  const Finished sut = finish(Child(JEX_PARTNER_SHELL, {"--help"}));
  EXPECT_TRUE(sut.endedWith(0));
  const std::string help = testing::PrintToString(sut.output);
  for (const char* option : {"--program", "--device", "--handle-base", "--json", "--script",
                             "--stop-on-error", "--control", "--version"}) {
    EXPECT_THAT(help, HasSubstr(option));
  }
}

/// On a terminal, with a home of its own for the history.
class PartnerShellTerminal : public PartnerShell {
 protected:
  void SetUp() override { mkdir(home_.c_str(), 0700); }

  Child::Environment environment() const {
    return {{"TERM", "xterm"},
            {"HOME", home_},
            {"XDG_STATE_HOME", Child::unset},
            {"INPUTRC", "/dev/null"}};
  }

  std::string screen_;
  const std::string home_ = jextest::runDirectory() + "/home";
};

constexpr const char* kPrompt = "partner-shell> ";
constexpr const char* kUp = "\x1b[A";
constexpr const char* kLeft = "\x1b[D";
constexpr const char* kEndOfInput = "\x04";

TEST_F(PartnerShellTerminal, EditsCompletesAndRemembersLines) {
  {
    Terminal sut(JEX_PARTNER_SHELL, withPrograms({}), environment());
    ASSERT_TRUE(sut.awaitText(kReady, &screen_)) << screen_;
    ASSERT_TRUE(sut.awaitText(kPrompt, &screen_)) << screen_;
    sut.type(std::string("cout smac") + kLeft + kLeft + kLeft + kLeft + kLeft + kLeft + "n\r");
    ASSERT_TRUE(sut.awaitText("ok 0 entries", &screen_)) << screen_;
    ASSERT_TRUE(sut.awaitText(kPrompt, &screen_)) << screen_;
    sut.type("tab\t\r");
    ASSERT_TRUE(sut.awaitText("tables", &screen_)) << screen_;
    ASSERT_TRUE(sut.awaitText("ok 10 tables", &screen_)) << screen_;
    ASSERT_TRUE(sut.awaitText(kPrompt, &screen_)) << screen_;
    sut.type(std::string(kUp) + kUp);
    ASSERT_TRUE(sut.awaitText("count smac", &screen_)) << screen_;
    sut.type("\r");
    ASSERT_TRUE(sut.awaitText("ok 0 entries", &screen_)) << screen_;
    ASSERT_TRUE(sut.awaitText(kPrompt, &screen_)) << screen_;
    sut.type(kEndOfInput);
    const jextest::Exit exit = sut.waitForExit();
    EXPECT_EQ(exit.signal, 0);
    EXPECT_EQ(exit.code, 0);
    EXPECT_TRUE(sut.isCooked());
  }
  Terminal next(JEX_PARTNER_SHELL, withPrograms({}), environment());
  ASSERT_TRUE(next.awaitText(kPrompt, &screen_)) << screen_;
  next.type(kUp);
  EXPECT_TRUE(next.awaitText("count smac", &screen_)) << "history of the last run: " << screen_;
}

}  // namespace
