// The commands on a virtual device whose updates nobody takes: what they answer, and what the
// tables hold then.
#include "shell.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "request.h"
#include "shell_on_device.h"

namespace jexapps {
namespace {

using Words = std::vector<std::string>;

class ShellTest : public ShellOnDevice {
 protected:
  void givenMembers() {
    given(
        {"member-add nexthops member=1 -> set_nexthop port=1 dmac=02:00:00:00:00:01 "
         "smac=02:00:00:00:01:01",
         "member-add nexthops member=2 -> set_nexthop port=2 dmac=02:00:00:00:00:02 "
         "smac=02:00:00:00:01:02"});
  }
};

TEST_F(ShellTest, AnEntryIsAddedModifiedAndDeleted) {
  EXPECT_EQ(answer("add dmac ethernet.dst=02:00:00:00:00:01 -> forward port=3"), "ok handle 1000");
  EXPECT_EQ(answer("dump dmac"),
            "#1000 ethernet.dst=02:00:00:00:00:01 -> forward port=3\nok 1 entry");
  EXPECT_EQ(answer("modify dmac ethernet.dst=02:00:00:00:00:01 -> forward port=4"), "ok");
  EXPECT_EQ(answer("dump dmac"),
            "#1000 ethernet.dst=02:00:00:00:00:01 -> forward port=4\nok 1 entry");
  EXPECT_EQ(answer("delete dmac ethernet.dst=0x020000000001"), "ok");
  EXPECT_EQ(answer("count dmac"), "ok 0 entries");
  EXPECT_EQ(answer("delete dmac ethernet.dst=0x020000000001"),
            "error: entry ethernet.dst=02:00:00:00:00:01 does not exist in dmac");
}

TEST_F(ShellTest, ADefaultIsSetAndCleared) {
  EXPECT_EQ(answer("default dmac -> forward port=7"), "ok");
  EXPECT_EQ(answer("dump dmac"), "default -> forward port=7\nok 0 entries");
  EXPECT_EQ(answer("clear-default dmac"), "ok");
  EXPECT_EQ(answer("dump dmac"), "ok 0 entries");
}

TEST_F(ShellTest, AnIdleTimeStandsOnEitherSide) {
  const std::string key = "add smac ethernet.src=02:00:00:00:00:01 meta.ingress_port=";
  const auto action = sut_->table("smac").actions.at(0).name;
  EXPECT_EQ(answer(key + "1 ttl=5000 -> " + action), "ok handle 1000");
  EXPECT_EQ(answer(key + "2 -> " + action + " ttl=0x10"), "ok handle 1001");
  const std::string dump = answer("dump smac");
  EXPECT_NE(dump.find("#1000 ethernet.src=02:00:00:00:00:01 meta.ingress_port=1 -> " + action +
                      " ttl=5000\n"),
            std::string::npos)
      << dump;
  EXPECT_NE(dump.find(action + " ttl=16\n"), std::string::npos) << dump;
}

TEST_F(ShellTest, TernaryEntriesHaveAPriorityThatMoves) {
  EXPECT_EQ(answer("add acl ipv4.src=10.0.0.0&&&255.0.0.0 l4.dport=80..443 priority=3 -> deny"),
            "ok handle 1000");
  EXPECT_EQ(answer("dump acl"),
            "#1000 ipv4.src=10.0.0.0&&&255.0.0.0 ipv4.dst=* ipv4.protocol=* l4.sport=* "
            "l4.dport=80..443 priority=3 -> deny counter=0\nok 1 entry");
  EXPECT_EQ(answer("move acl ipv4.src=10.0.0.0&&&255.0.0.0 l4.dport=80..443 priority=9"), "ok");
  EXPECT_NE(answer("dump acl").find(" priority=9 "), std::string::npos);
  EXPECT_EQ(answer("move acl ipv4.src=10.0.0.0&&&255.0.0.0 l4.dport=80..443"),
            "error: priority=N is missing");
}

TEST_F(ShellTest, MembersGroupsAndFallback) {
  givenMembers();
  given({"member-add nexthops member=3 -> set_nexthop port=3 dmac=1 smac=2 counter=5",
         "group-create ecmp_groups group=7 max=8 members=1,2", "group-create ecmp_groups group=8",
         "group-add ecmp_groups group=8 member=2", "group-deactivate ecmp_groups group=7 member=2",
         "group-remove ecmp_groups group=7 member=1", "fallback ecmp_groups member=1"});
  useFormat(/*json=*/true);
  std::istringstream lines(answer("dump ecmp_groups"));
  std::string line;
  ASSERT_TRUE(std::getline(lines, line));
  const auto group = nlohmann::json::parse(line);
  EXPECT_EQ(group["key"]["$GROUP_ID"], "7");
  EXPECT_EQ(group["max"], 8);
  EXPECT_EQ(group["members"], nlohmann::json::parse(R"([{"member":2,"active":false}])"));
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(nlohmann::json::parse(line)["members"],
            nlohmann::json::parse(R"([{"member":2,"active":true}])"));
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(line, R"({"fallback":true,"member":1})");
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_EQ(line, R"({"ok":true,"entries":2})");

  EXPECT_EQ(answer("group-activate ecmp_groups group=7 member=2"), R"({"ok":true})");
  EXPECT_EQ(answer("clear-fallback ecmp_groups"), R"({"ok":true})");
  EXPECT_EQ(answer("group-destroy ecmp_groups group=8"), R"({"ok":true})");
  EXPECT_EQ(answer("count ecmp_groups"), R"({"ok":true,"entries":1})");
  EXPECT_EQ(answer("member-modify nexthops member=3 -> set_nexthop port=4 dmac=1 smac=2 counter=5"),
            R"({"ok":true})");
  EXPECT_EQ(answer("member-delete nexthops member=3"), R"({"ok":true})");
}

TEST_F(ShellTest, EntriesReferToMembersAndGroups) {
  givenMembers();
  given({"group-create ecmp_groups group=7 members=1,2",
         "add ipv4_lpm ipv4.dst=10.0.0.0/8 -> member=1",
         "add ipv4_lpm ipv4.dst=10.1.0.0/16 -> group=7", "default ipv4_lpm -> member=2"});
  const std::string dump = answer("dump ipv4_lpm");
  EXPECT_NE(dump.find(" ipv4.dst=10.0.0.0/8 -> member=1\n"), std::string::npos) << dump;
  EXPECT_NE(dump.find(" ipv4.dst=10.1.0.0/16 -> group=7\ndefault -> member=2\nok 2 entries"),
            std::string::npos)
      << dump;
  EXPECT_EQ(answer("add ipv4_lpm ipv4.dst=11.0.0.0/8 -> member=9"),
            "error: member 9 does not exist in nexthops");
  useFormat(/*json=*/true);
  EXPECT_EQ(
      answer("member-delete nexthops member=1"),
      R"({"ok":false,"error":"member 1 of nexthops is in use: an entry, a group or the fallback )"
      R"(refers to it","status":16})");
}

TEST_F(ShellTest, MistakesAreNamed) {
  const std::pair<const char*, const char*> kMistakes[] = {
      {"fly", "unknown command 'fly'; help lists them"},
      {"count", "TABLE is missing; usage: count TABLE"},
      {"count nowhere", "no table 'nowhere'; tables lists them"},
      {"count acl -> x", "count takes no ->; usage: count TABLE"},
      {"count acl x=1", "unknown 'x=' of count"},
      {"count port_counters",
       "port_counters is a counter table, which is never filled; tables lists its size"},
      {"default dmac",
       "the -> part is missing; usage: default TABLE -> ACTION PARAM=VALUE... | "
       "member=ID | group=ID"},
      {"add dmac -> forward port=1", "field 'ethernet.dst' of table dmac is missing"},
      {"add dmac ethernet.dst=1 vlan=2 -> forward port=1",
       "table dmac has no key field 'vlan'; it has: ethernet.dst"},
      {"add dmac ethernet.dst=1 -> forward", "parameter 'port' of action forward is missing"},
      {"add dmac ethernet.dst=1 -> forward port=512", "value '512' does not fit port (9 bits)"},
      {"add dmac ethernet.dst=1 -> forward port=1 speed=3",
       "action forward has no parameter 'speed'; it has: port"},
      {"add dmac ethernet.dst=1 -> member=1",
       "entries of dmac refer to no members; they take an action: forward, flood"},
      {"add dmac ethernet.dst=1 priority=3 -> forward port=1", "entries of dmac have no priority"},
      {"add dmac ethernet.dst=1 ttl=3 -> forward port=1",
       "entries of dmac have no idle time (ttl)"},
      {"add ipv4_lpm ipv4.dst=10.0.0.0/8 -> group=1 member=1",
       "an entry of ipv4_lpm takes member=ID or group=ID after the ->"},
      {"add ipv4_lpm ipv4.dst=10.0.0.0/8 ->",
       "an entry of ipv4_lpm takes member=ID or group=ID after the ->"},
      {"add nexthops member=1 -> set_nexthop", "nexthops is no match table but action_data"},
      {"member-add acl member=1 -> deny", "acl is no action_data table but match_direct"},
      {"group-create ecmp_groups", "group=ID is missing"},
      {"group-create ecmp_groups group=1 members=1,x", "members 'x' is no number"},
      {"group-add ecmp_groups group=1", "member=ID is missing"},
      {"move dmac ethernet.dst=1 priority=3", "entries of dmac have no priority"},
      {"modify acl priority=3 -> deny", "modify leaves the priority as it is; move changes it"},
      {"quit now=1", "quit stands alone"},
      {"exit now=1", "exit stands alone"},
      {"load-routes ipv4_lpm",
       "FILE is missing; usage: load-routes TABLE FILE [limit=N] "
       "[nexthops=ID,ID,...] [groups=ID,ID,...] [on-error=continue] "
       "[-> ACTION PARAM=VALUE...]"},
  };
  for (const auto& [line, reason] : kMistakes) {
    EXPECT_EQ(answer(line), std::string("error: ") + reason);
  }
}

TEST_F(ShellTest, AnUnknownActionNamesTheOnesThereAre) {
  EXPECT_EQ(
      answer("add dmac ethernet.dst=1 -> fly port=1"),
      "error: table dmac has no action 'fly'; it has: " + namesOf(sut_->table("dmac").actions));
}

TEST_F(ShellTest, ErrorsOfAScriptNameTheLine) {
  sut_->run("fly", 12);
  EXPECT_EQ(stream_.str(), "error: line 12: unknown command 'fly'; help lists them\n");
  useFormat(/*json=*/true);
  stream_.str("");
  sut_->run("fly", 12);
  EXPECT_EQ(stream_.str(),
            "{\"ok\":false,\"line\":12,\"error\":\"unknown command 'fly'; help lists them\"}\n");
}

TEST_F(ShellTest, EmptyLinesAndCommentsAreAnsweredByNothing) {
  EXPECT_EQ(sut_->run(""), Shell::Outcome::kNothing);
  EXPECT_EQ(sut_->run("  # tables"), Shell::Outcome::kNothing);
  EXPECT_EQ(sut_->run("quit"), Shell::Outcome::kQuit);
  EXPECT_EQ(sut_->run("exit"), Shell::Outcome::kQuit);
  EXPECT_EQ(stream_.str(), "");
}

TEST_F(ShellTest, TablesAreListedWithTheirPrograms) {
  useFormat(/*json=*/true);
  const auto result = nlohmann::json::parse(answer("tables"));
  ASSERT_EQ(result["tables"].size(), sut_->tables().size());
  const auto& first = result["tables"][0];
  EXPECT_EQ(first["program"], "l2_switch");
  EXPECT_EQ(first["kind"], "match_direct");
  EXPECT_EQ(first["entries"], 0);
  EXPECT_GT(first["size"], 0);
  EXPECT_GT(first["handle"], 0);
  EXPECT_GT(first["id"], 0);
}

TEST_F(ShellTest, ATableMayBeNamedWithItsProgram) {
  EXPECT_EQ(answer("count router.acl"), "ok 0 entries");
  EXPECT_EQ(answer("count l2_switch.acl"), "error: no table 'l2_switch.acl'; tables lists them");
}

TEST_F(ShellTest, HelpKnowsEveryCommand) {
  EXPECT_EQ(answer("help count"),
            "count TABLE\n    Counts the entries, without the default.\nok 1 command");
  EXPECT_EQ(answer("help count x -> y=1 z"), answer("help count"));
  useFormat(/*json=*/true);
  EXPECT_EQ(nlohmann::json::parse(answer("help"))["commands"].size(), commands().size());
  const auto help = nlohmann::json::parse(answer("help count"));
  EXPECT_EQ(help["commands"][0]["usage"], "count TABLE");
  EXPECT_EQ(nlohmann::json::parse(answer("help fly"))["ok"], false);
}

TEST_F(ShellTest, ADumpThatIsInterruptedSaysSo) {
  given({"add dmac ethernet.dst=1 -> flood"});
  stop_ = true;
  EXPECT_EQ(answer("dump dmac"), "error: interrupted");
}

class LoadRoutesTest : public ShellTest {
 protected:
  void SetUp() override {
    ShellTest::SetUp();
    givenMembers();
    path_ = std::filesystem::temp_directory_path() /
            ("load-routes-" + std::to_string(getpid()) + ".txt");
  }
  void TearDown() override {
    std::filesystem::remove(path_);
    ShellTest::TearDown();
  }

  nlohmann::json load(const std::string& content, const std::string& table,
                      const std::string& options = "") {
    std::ofstream(path_) << content;
    useFormat(/*json=*/true);
    return nlohmann::json::parse(answer("load-routes " + table + " " + path_.string() + options));
  }

  std::filesystem::path path_;
};

TEST_F(LoadRoutesTest, SpreadsRoutesOverTheMembersInTurn) {
  const auto result =
      load("10.0.0.0/8\n11.0.0.0/8\n2001:db8::/32\n12.0.0.0/8\n", "ipv4_lpm", " nexthops=2,1");
  EXPECT_EQ(result["ok"], true) << result;
  EXPECT_EQ(result["loaded"], 3);
  EXPECT_EQ(result["skipped"], 1);
  EXPECT_TRUE(result.contains("seconds"));
  EXPECT_TRUE(result.contains("rate"));
  useFormat(/*json=*/false);
  const std::string dump = answer("dump ipv4_lpm");
  EXPECT_NE(dump.find("=10.0.0.0/8 -> member=2\n"), std::string::npos) << dump;
  EXPECT_NE(dump.find("=11.0.0.0/8 -> member=1\n"), std::string::npos) << dump;
  EXPECT_NE(dump.find("=12.0.0.0/8 -> member=2\n"), std::string::npos) << dump;
}

TEST_F(LoadRoutesTest, TakesEveryMemberIfNoneIsNamedAndGroupsToo) {
  given({"group-create ecmp_groups group=7 members=1,2"});
  EXPECT_EQ(load("2001:db8::/32\n2001:db9::/32\n10.0.0.0/8\n", "ipv6_lpm")["loaded"], 2);
  EXPECT_EQ(load("10.0.0.0/8\n", "ipv4_lpm", " groups=7")["loaded"], 1);
  useFormat(/*json=*/false);
  EXPECT_NE(answer("dump ipv6_lpm").find("=2001:db9::/32 -> member=2\n"), std::string::npos);
  EXPECT_NE(answer("dump ipv4_lpm").find("=10.0.0.0/8 -> group=7\n"), std::string::npos);
}

TEST_F(LoadRoutesTest, StopsAtTheLimit) {
  EXPECT_EQ(load("10.0.0.0/8\n11.0.0.0/8\n12.0.0.0/8\n", "ipv4_lpm", " limit=2")["loaded"], 2);
  EXPECT_EQ(load("12.0.0.0/8\n", "ipv4_lpm", " limit=0")["loaded"], 0);
}

TEST_F(LoadRoutesTest, SaysWhichLinesWereNotLoadedAndWhatWas) {
  const auto result = load("10.0.0.0/8\n# two\nnonsense\n10.0.0.0/8\n11.0.0.0/8\n", "ipv4_lpm",
                           " on-error=continue");
  EXPECT_EQ(result["ok"], false);
  EXPECT_EQ(result["loaded"], 2);
  EXPECT_EQ(result["failed"], 2);
  ASSERT_EQ(result["reasons"].size(), 2u);
  EXPECT_EQ(result["reasons"][0], path_.string() + ":3: 'nonsense' is no PREFIX/LENGTH");
  EXPECT_EQ(result["reasons"][1],
            path_.string() + ":4: entry ipv4.dst=10.0.0.0/8 exists already in ipv4_lpm");
  EXPECT_NE(result["error"].get<std::string>().find("; loaded 2 routes in "), std::string::npos);
}

TEST_F(LoadRoutesTest, StopsAtTheFirstLineThatIsRefused) {
  const auto result = load("10.0.0.0/8\n11.1.0.0/8\n12.0.0.0/8\n", "ipv4_lpm");
  EXPECT_EQ(result["ok"], false);
  EXPECT_EQ(result["loaded"], 1);
  EXPECT_EQ(result["failed"], 1);
  const std::string expected = path_.string() +
                               ":2: '11.1.0.0/8' has bits beyond the prefix; 11.0.0.0/8?" +
                               "; on-error=continue skips it; loaded 1 route in ";
  EXPECT_EQ(result["error"].get<std::string>().substr(0, expected.size()), expected);
  EXPECT_EQ(load("", "ipv4_lpm", " on-error=fly")["error"],
            "on-error is stop or continue, not 'fly'");
}

TEST_F(LoadRoutesTest, EndsEarlyWhenAskedTo) {
  std::string routes;
  for (int i = 0; i < 10000; ++i) {
    routes += "10." + std::to_string(i / 256) + "." + std::to_string(i % 256) + ".0/24\n";
  }
  stop_ = true;
  const auto result = load(routes, "ipv4_lpm");
  EXPECT_EQ(result["ok"], false);
  EXPECT_LT(result["loaded"], 10000);
  EXPECT_EQ(result["error"].get<std::string>().substr(0, 11), "interrupted");
}

TEST_F(LoadRoutesTest, RefusesTablesThatHoldNoRoutes) {
  EXPECT_EQ(load("", "acl")["error"], "table acl has no LPM field of 32 or 128 bits");
  EXPECT_EQ(
      load("", "dmac")["error"],
      "table dmac has the exact field 'ethernet.dst' in its key: routes say nothing about it");
}

}  // namespace
}  // namespace jexapps
