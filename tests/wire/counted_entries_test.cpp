// A program's own entries, what it holds constant, members as defaults and counters of single
// entries, between a Partner and an agent that are both the library.
#include <gtest/gtest.h>

#include <fstream>

#include "jxsdk/types.h"
#include "support/private_world.h"
#include "support/processes.h"
#include "support/stop.h"
#include "support/wait_until.h"
#include "wire/counting_pair.h"

namespace jextest {
namespace {

/// Packets are counted by the port where they come in; ports 0 and 3 have entries from the start.
std::string describedProgram() {
  const std::string file = runDirectory() + "/counted.json";
  std::ofstream(file) << R"({"name": "counted", "id": 9,
    "fields": [{"name": "meta.ingress_port", "width": 9}, {"name": "ipv4.dst", "width": 32}],
    "actions": [{"name": "to", "params": [{"name": "port", "width": 9}]}, {"name": "nop"}],
    "tables": [
      {"name": "ports", "kind": "match", "size": 16, "actions": ["to", "nop"],
       "key": [{"field": "meta.ingress_port", "match": "exact"}],
       "entries": [{"key": {"meta.ingress_port": 3}, "action": "nop"},
                   {"key": {"meta.ingress_port": 0}, "action": "to", "params": {"port": 1}}]},
      {"name": "fixed", "kind": "match", "size": 4, "actions": ["to", "nop"],
       "key": [{"field": "ipv4.dst", "match": "lpm"}], "default": {"action": "nop"},
       "entries": [{"key": {"ipv4.dst": {"value": "10.0.0.0", "prefix": 8}}, "action": "nop"}],
       "constant_entries": true, "constant_default": true},
      {"name": "routes", "kind": "match", "size": 8, "action_data": "hops", "selector": "groups",
       "key": [{"field": "ipv4.dst", "match": "ternary"}]},
      {"name": "hops", "kind": "action_data", "size": 8, "actions": ["to"]},
      {"name": "groups", "kind": "selector", "size": 8, "action_data": "hops", "max_members": 4,
       "hash": ["ipv4.dst"]},
      {"name": "hits", "kind": "counter", "counts": "ports"}],
    "control": [{"apply": "ports"}]})";
  return file;
}

TEST(CountedEntries, BothSidesHoldTheSameAndRefusalsStayAtThePartner) {
  const std::string program = describedProgram();
  AgentOptions agent_options;
  agent_options.programs = {program};
  PartnerOptions options;
  options.programs = {program};
  options.handle_base = 700;
  Child agent = startAgent(agent_options);
  Child partner = startedPartner(options);
  const auto from_the_start = dumpOf(partner);
  EXPECT_EQ(from_the_start.size(), 3U);
  EXPECT_EQ(dumpOf(agent), from_the_start);

  const std::string refused = "status " + std::to_string(JX_NOT_SUPPORTED);
  EXPECT_EQ(partner.ask("add fixed 1 nop"), refused);
  EXPECT_EQ(partner.ask("default fixed to"), refused);
  EXPECT_EQ(partner.ask("clear-default fixed"), refused);
  for (const char* write :
       {"add ports 20 to 5", "add ports 21 nop", "default ports to 6", "delete ports 20",
        "member-add hops 40 to", "group-create groups 50 40:1", "default-refer routes $GROUP_ID 50",
        "refer routes 3 $MEMBER_ID 40", "default-refer routes $MEMBER_ID 40"}) {
    ASSERT_EQ(partner.ask(write), "status 0") << write;
  }
  const auto written = dumpOf(partner);
  EXPECT_EQ(written.size(), from_the_start.size() + 6);
  expectDump(agent, written);
  EXPECT_EQ(partner.ask("group-destroy groups 50"), "status 0");
  EXPECT_EQ(partner.ask("member-delete hops 40"),
            "status " + std::to_string(JX_ACTION_DATA_REFERENCED));
  expectDump(agent, dumpOf(partner));
  EXPECT_EQ(linesWith(agent.standardError(), "Error: ").size(), 0U);
  EXPECT_EQ(linesWith(partner.standardError(), "Error: ").size(), 0U);
}

TEST(CountedEntries, APartnerReadsTheHitsOfEachEntry) {
  CountingAgentOptions agent_options;
  CountingPartnerOptions options;
  agent_options.program = options.program = describedProgram();
  Child agent = startCountingAgent(agent_options);
  Child partner = startCountingPartner(options);
  ASSERT_EQ(partner.ask("start"), "true") << partner.standardError();
  ASSERT_EQ(partner.ask("init counted hits"), "true handle") << partner.standardError();
  ASSERT_EQ(agent.ask("packets 0 2 100"), "status 0");
  ASSERT_EQ(agent.ask("packets 1 1 100"), "status 0");
  ASSERT_EQ(agent.ask("packets 3 1 64"), "status 0");
  const uint64_t sent = std::stoull(partner.ask("sync hits"));
  ASSERT_TRUE(waitUntil([&] { return std::stoull(partner.ask("last")) == sent; }))
      << partner.standardError();
  const std::string read = partner.ask("read hits 0 16");
  // "true TIME", then the counters: port 3 has the first entry, port 0 the second, port 1 none.
  std::string values = " 1:64 2:200";
  for (int i = 2; i < 16; ++i) values += " 0:0";
  EXPECT_EQ(read.substr(read.find(' ', 5)), values) << read;
  EXPECT_EQ(partner.ask("free hits"), "done");
}

}  // namespace
}  // namespace jextest
