// Primitives, branches, outcomes, counters, digests and traces.
#include <gtest/gtest.h>

#include "model/base/clock.h"
#include "unit/pipeline/testbed.h"

namespace jxpipelinetest {
namespace {

using jxmodel::DropReason;
using jxmodel::Outcome;
using Kind = jxmodel::Outcome::Kind;

/// A program with these steps, and an action of each primitive that takes a parameter.
std::string programWith(const std::string& control) {
  return R"({"name": "test", "id": 1,
    "fields": [{"name": "ethernet.dst", "width": 48}, {"name": "ethernet.src", "width": 48},
               {"name": "ipv4.dst", "width": 32}, {"name": "ipv4.ttl", "width": 8},
               {"name": "vlan.vid", "width": 12}, {"name": "meta.ingress_port", "width": 9},
               {"name": "meta.egress_port", "width": 9}, {"name": "own.mark", "width": 20}],
    "actions": [{"name": "to", "params": [{"name": "port", "width": 9}],
                 "body": [{"op": "forward", "port": {"param": "port"}}]},
                {"name": "mark", "params": [{"name": "mark", "width": 20}],
                 "body": [{"op": "set", "field": "own.mark", "from": {"param": "mark"}}]},
                {"name": "refuse", "body": [{"op": "drop"}, {"op": "forward", "port": 9}]}],
    "tables": [{"name": "hosts", "kind": "match", "size": 16, "idle_timeout": true,
                "key": [{"field": "ipv4.dst", "match": "exact"}],
                "actions": ["to", "mark", "refuse"],
                "default": {"action": "to", "params": {"port": 50}}},
               {"name": "plain", "kind": "match", "size": 16,
                "key": [{"field": "ipv4.dst", "match": "exact"}], "actions": ["to"]},
               {"name": "pairs", "kind": "counter", "size": 8}],
    "learn": [{"name": "seen", "fields": ["ethernet.src", "vlan.vid", "meta.ingress_port"]}],
    "control": [)" +
         control + "]}";
}

const Flow kControlFlow{0x0A000001, 0x0A000002, 17, 1000, 2000};

Outcome runOnce(const std::string& control, Bytes frame = ipv4Frame(kControlFlow)) {
  return Testbed(programWith(control)).run(&frame);
}

TEST(Control, ForwardSendsToThePort) {
  const Outcome outcome = runOnce(R"({"op": "forward", "port": 7})");
  EXPECT_EQ(outcome.kind, Kind::kForwarded);
  EXPECT_EQ(outcome.port, 7U);
}

TEST(Control, TheLastForwardCounts) {
  EXPECT_EQ(
      runOnce(R"({"op": "flood"}, {"op": "forward", "port": 7}, {"op": "forward", "port": 8})")
          .port,
      8U);
  EXPECT_EQ(runOnce(R"({"op": "forward", "port": 7}, {"op": "flood"})").kind, Kind::kFlooded);
}

TEST(Control, DropEndsThePacket) {
  const Outcome outcome = runOnce(R"({"op": "drop"}, {"op": "forward", "port": 7})");
  EXPECT_EQ(outcome.kind, Kind::kDropped);
  EXPECT_EQ(outcome.reason, DropReason::kDropAction);
}

TEST(Control, WithoutAPortThePacketIsDropped) {
  const Outcome outcome = runOnce("");
  EXPECT_EQ(outcome.kind, Kind::kDropped);
  EXPECT_EQ(outcome.reason, DropReason::kNoEgress);
}

TEST(Control, SetRewritesFieldsOfThePacket) {
  Testbed sut(programWith(R"({"op": "set", "field": "ethernet.dst", "from": "0a:0b:0c:0d:0e:0f"},
                             {"op": "set", "field": "ethernet.src", "from": {"field": "ethernet.dst"}},
                             {"op": "forward", "port": 1})"));
  Bytes frame = ipv4Frame(kControlFlow);
  sut.run(&frame);
  EXPECT_EQ(numberAt(frame, kEthernetDst, 6), 0x0A0B0C0D0E0FU);
  EXPECT_EQ(numberAt(frame, kEthernetSrc, 6), 0x0A0B0C0D0E0FU);
}

TEST(Control, MetadataOfTheProgramStartsAtZeroForEachPacket) {
  Testbed sut(programWith(R"({"if": {"left": {"field": "own.mark"}, "op": "==", "right": 0},
      "then": [{"op": "set", "field": "own.mark", "from": "0xABCDE"},
               {"if": {"left": {"field": "own.mark"}, "op": "==", "right": "0xABCDE"},
                "then": [{"op": "forward", "port": 1}]}]})"));
  for (int i = 0; i < 2; ++i) {
    Bytes frame = ipv4Frame(kControlFlow);
    EXPECT_EQ(sut.run(&frame).kind, Kind::kForwarded);
  }
}

TEST(Control, TheEgressPortIsAField) {
  EXPECT_EQ(runOnce(R"({"op": "forward", "port": 7},
      {"if": {"left": {"field": "meta.egress_port"}, "op": "==", "right": 7},
       "then": [{"op": "forward", "port": 8}]})")
                .port,
            8U);
}

TEST(Control, DecrementTakesOneAndKeepsTheChecksum) {
  Testbed sut(
      programWith(R"({"op": "decrement", "field": "ipv4.ttl"}, {"op": "forward", "port": 1})"));
  Bytes frame = ipv4Frame(kControlFlow, 64);
  EXPECT_EQ(sut.run(&frame).kind, Kind::kForwarded);
  EXPECT_EQ(frame, ipv4Frame(kControlFlow, 63));
}

TEST(Control, DecrementDropsWhatExpires) {
  const std::string control =
      R"({"op": "decrement", "field": "ipv4.ttl"}, {"op": "forward", "port": 1})";
  EXPECT_EQ(runOnce(control, ipv4Frame(kControlFlow, 2)).kind, Kind::kForwarded);
  EXPECT_EQ(runOnce(control, ipv4Frame(kControlFlow, 1)).reason, DropReason::kExpired);
  EXPECT_EQ(runOnce(control, ipv4Frame(kControlFlow, 0)).reason, DropReason::kExpired);
  EXPECT_EQ(runOnce(control, otherFrame()).kind, Kind::kForwarded);  // has nothing to expire
}

TEST(Control, BranchesOnHeaders) {
  const std::string control = R"({"if": {"valid": "vlan"}, "then": [{"op": "forward", "port": 1}],
      "else": [{"if": {"valid": "ipv4"}, "then": [{"op": "forward", "port": 2}],
                "else": [{"op": "forward", "port": 3}]}]})";
  EXPECT_EQ(runOnce(control, taggedFrame(kControlFlow, 5)).port, 1U);
  EXPECT_EQ(runOnce(control, ipv4Frame(kControlFlow)).port, 2U);
  EXPECT_EQ(runOnce(control, otherFrame()).port, 3U);
}

struct CompareCase {
  const char* op;
  bool below, equal, above;
};
class Compare : public testing::TestWithParam<CompareCase> {};

TEST_P(Compare, OrdersNumbers) {
  const auto holds = [](uint8_t ttl) {
    return runOnce(std::string(R"({"if": {"left": {"field": "ipv4.ttl"}, "op": ")") +
                       GetParam().op +
                       R"(", "right": 100}, "then": [{"op": "forward", "port": 1}]})",
                   ipv4Frame(kControlFlow, ttl))
               .kind == Kind::kForwarded;
  };
  EXPECT_EQ(holds(99), GetParam().below);
  EXPECT_EQ(holds(100), GetParam().equal);
  EXPECT_EQ(holds(101), GetParam().above);
}

INSTANTIATE_TEST_SUITE_P(
    All, Compare,
    testing::Values(CompareCase{"==", false, true, false}, CompareCase{"!=", true, false, true},
                    CompareCase{"<", true, false, false}, CompareCase{"<=", true, true, false},
                    CompareCase{">", false, false, true}, CompareCase{">=", false, true, true}));

TEST(Control, ComparesUnderAMask) {
  const std::string control = R"({"if": {"left": {"field": "ipv4.ttl"}, "op": "==", "right": "0x40",
      "mask": "0xF0"}, "then": [{"op": "forward", "port": 1}]})";
  EXPECT_EQ(runOnce(control, ipv4Frame(kControlFlow, 0x4F)).kind, Kind::kForwarded);
  EXPECT_EQ(runOnce(control, ipv4Frame(kControlFlow, 0x5F)).kind, Kind::kDropped);
}

TEST(Control, GoesOnByHitAndMiss) {
  Testbed sut(
      programWith(R"({"apply": "plain", "on_hit": [{"op": "count", "table": "pairs", "index": 1}],
      "on_miss": [{"op": "count", "table": "pairs", "index": 2}, {"op": "forward", "port": 6}]},
      {"op": "count", "table": "pairs", "index": 3})"));
  Bytes frame = ipv4Frame(kControlFlow);
  EXPECT_EQ(sut.run(&frame).port, 6U);
  sut.addAction("plain", 100, Packed().add(kControlFlow.dst, 4), "to", Packed().add(5, 2));
  EXPECT_EQ(sut.run(&frame).port, 5U);
  const auto packets = [&](uint32_t index) {
    return sut.table("pairs").counters->read(index).packets;
  };
  EXPECT_EQ(packets(1), 1U);
  EXPECT_EQ(packets(2), 1U);
  EXPECT_EQ(packets(3), 2U);
}

TEST(Control, AMissRunsTheDefault) {
  Testbed sut(programWith(R"({"apply": "hosts"})"));
  jxmodel::MatchTable& hosts = *sut.table("hosts").match;
  Bytes frame = ipv4Frame(kControlFlow);
  EXPECT_EQ(sut.run(&frame).port, 50U);  // of the description
  const Packed port = Packed().add(51, 2);
  jxmodel::MatchResult result;
  result.action = sut.action("to", port);
  ASSERT_EQ(hosts.setDefault(900, result), JX_SUCCESS);
  EXPECT_EQ(sut.run(&frame).port, 51U);
  hosts.clearDefault();
  EXPECT_EQ(sut.run(&frame).port, 50U);
}

TEST(Control, ADropInAnActionEndsThePacket) {
  Testbed sut(programWith(R"({"apply": "hosts"}, {"op": "forward", "port": 3})"));
  sut.addAction("hosts", 100, Packed().add(kControlFlow.dst, 4), "refuse", Packed());
  Bytes frame = ipv4Frame(kControlFlow);
  EXPECT_EQ(sut.run(&frame).reason, DropReason::kDropAction);
}

TEST(Control, CountsPacketsAndBytesAtTheIndex) {
  Testbed sut(
      programWith(R"({"op": "count", "table": "pairs", "index": {"field": "meta.ingress_port"}})"));
  Bytes frame = ipv4Frame(kControlFlow);
  sut.run(&frame, 3);
  sut.run(&frame, 3);
  sut.run(&frame, 8);  // beyond the end
  EXPECT_EQ(sut.table("pairs").counters->read(3).packets, 2U);
  EXPECT_EQ(sut.table("pairs").counters->read(3).bytes, 2 * frame.size());
  EXPECT_EQ(sut.pipeline().counts().bad_counter_indices, 1U);
}

TEST(Control, DigestsCarryFieldsInOrder) {
  Testbed sut(programWith(R"({"op": "digest", "learn": "seen"})"));
  Bytes frame = taggedFrame(kControlFlow, 0x123);
  sut.run(&frame, 0x101);
  ASSERT_EQ(sut.digests.size(), 1U);
  EXPECT_EQ(sut.digests[0].learn, 0U);
  EXPECT_EQ(sut.digests[0].values, (Bytes{2, 0, 0, 0, 0, 2, 0x01, 0x23, 0x01, 0x01}));
}

TEST(Control, MalformedPacketsAreCountedByReason) {
  Testbed sut(programWith(R"({"op": "forward", "port": 1})"));
  Bytes frame = ipv4Frame(kControlFlow);
  frame.resize(20);
  const Outcome outcome = sut.run(&frame);
  EXPECT_EQ(outcome.reason, DropReason::kMalformed);
  EXPECT_EQ(outcome.parse, jxmodel::ParseStatus::kTruncatedIpv4);
  const jxmodel::PipelineCounts counts = sut.pipeline().counts();
  EXPECT_EQ(counts.received, 1U);
  EXPECT_EQ(counts.malformed[static_cast<size_t>(outcome.parse)], 1U);
  EXPECT_EQ(counts.dropped[static_cast<size_t>(DropReason::kMalformed)], 1U);
}

TEST(Control, HitsAreNotedWithTheTimeOfTheClock) {
  Testbed sut(programWith(R"({"apply": "hosts"})"));
  const uint32_t slot =
      sut.addAction("hosts", 100, Packed().add(kControlFlow.dst, 4), "to", Packed().add(5, 2));
  EXPECT_EQ(sut.table("hosts").match->lastHitOf(slot), 0U);
  jxmodel::Clock::instance().set(JX_MODEL_CLOCK_STOPPED, 777);
  Bytes frame = ipv4Frame(kControlFlow);
  sut.run(&frame);
  jxmodel::Clock::instance().set(JX_MODEL_CLOCK_REAL, 0);
  EXPECT_EQ(sut.table("hosts").match->lastHitOf(slot), 777U);
}

TEST(Control, TracesTheWayOfAPacket) {
  Testbed sut(
      programWith(R"({"if": {"valid": "vlan"}, "then": [{"op": "drop"}]}, {"apply": "hosts"})"));
  sut.addAction("hosts", 100, Packed().add(kControlFlow.dst, 4), "to", Packed().add(5, 2));
  Bytes frame = ipv4Frame(kControlFlow);
  jxmodel::Trace trace;
  sut.run(&frame, 4, &trace);
  EXPECT_EQ(trace.text(),
            "test, from port 4\n"
            "  if vlan is valid: no\n"
            "  table hosts: hit, entry 100, to(port=0x0005)\n"
            "  forwarded to port 5");
  EXPECT_EQ(
      trace.json(),
      R"({"egress_port":5,"ingress_port":4,"outcome":"forwarded to port 5","program":"test",)"
      R"("steps":[{"holds":false,"if":"vlan is valid"},{"action":"to","entry":100,"hit":true,)"
      R"("parameters":{"port":"0x0005"},"table":"hosts"}]})");
}

TEST(Control, ATracedPacketCountsNowhereAndHitsNothing) {
  Testbed sut(programWith(
      R"({"op": "count", "table": "pairs", "index": 1}, {"op": "count", "table": "pairs", "index":
          {"field": "meta.ingress_port"}}, {"apply": "hosts"})"));
  const uint32_t slot =
      sut.addAction("hosts", 100, Packed().add(kControlFlow.dst, 4), "to", Packed().add(5, 2));
  Bytes frame = ipv4Frame(kControlFlow);
  jxmodel::Trace trace;
  EXPECT_EQ(sut.run(&frame, 400, &trace).port, 5U);
  EXPECT_EQ(sut.table("pairs").counters->read(1).packets, 0U);
  EXPECT_EQ(sut.table("hosts").match->lastHitOf(slot), 0U);
  const jxmodel::PipelineCounts counts = sut.pipeline().counts();
  EXPECT_EQ(counts.received + counts.received_bytes + counts.bad_counter_indices, 0U);
}

class RecordedEgress : public jxmodel::Egress {
 public:
  void send(uint32_t port, jxmodel::PacketBuffer&&) override {
    calls.push_back("send " + std::to_string(port));
  }
  void flood(uint32_t ingress_port, jxmodel::PacketBuffer&&) override {
    calls.push_back("flood not " + std::to_string(ingress_port));
  }
  std::vector<std::string> calls;
};

TEST(Control, FloodsEverywhereButBack) {
  const Testbed flooding(programWith(R"({"op": "flood"})"));
  const Testbed sending(programWith(R"({"op": "forward", "port": 4})"));
  const Testbed dropping(programWith(""));
  const Bytes frame = ipv4Frame(kControlFlow);
  RecordedEgress egress;
  for (const Testbed* sut : {&flooding, &sending, &dropping}) {
    sut->pipeline().forward(4, jxmodel::PacketBuffer(frame.data(), frame.size()), egress, nullptr);
  }
  EXPECT_EQ(egress.calls, (std::vector<std::string>{"flood not 4", "send 4"}));
}

std::string refusalOf(const std::string& json) {
  try {
    const Testbed sut(json);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

TEST(Control, RefusesFieldsOfAnotherWidth) {
  EXPECT_EQ(refusalOf(R"({"name": "wide", "id": 1, "fields": [{"name": "ipv4.ttl", "width": 16}],
                          "actions": [], "tables": [{"name": "c", "kind": "counter", "size": 1}], "control": []})"),
            "program wide: field ipv4.ttl has 16 bits, of packets it has 8");
}

TEST(Control, RefusesToChangeWhatIsFixed) {
  EXPECT_EQ(
      refusalOf(R"({"name": "fixed", "id": 1, "fields": [{"name": "ipv4.protocol", "width": 8}],
                          "actions": [], "tables": [{"name": "c", "kind": "counter", "size": 1}],
                          "control": [{"op": "set", "field": "ipv4.protocol", "from": 6}]})"),
      "program fixed: field ipv4.protocol cannot be changed");
}

}  // namespace
}  // namespace jxpipelinetest
