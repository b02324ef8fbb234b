// Each match kind, as packets meet it.
#include <gtest/gtest.h>

#include "unit/pipeline/testbed.h"

namespace jxpipelinetest {
namespace {

std::string programMatching(const std::string& key) {
  return R"({"name": "test", "id": 1,
    "fields": [{"name": "ipv4.dst", "width": 32}, {"name": "l4.dport", "width": 16},
               {"name": "ipv4.protocol", "width": 8}],
    "actions": [{"name": "to", "params": [{"name": "port", "width": 9}],
                 "body": [{"op": "forward", "port": {"param": "port"}}]}],
    "tables": [{"name": "sut", "kind": "match", "size": 16, "key": [)" +
         key + R"(], "actions": ["to"]}], "control": [{"apply": "sut"}]})";
}

/// The port that a packet leaves through, 0 if it is dropped.
uint32_t portOf(Testbed& sut, const Flow& flow) {
  Bytes frame = ipv4Frame(flow);
  return sut.run(&frame).port;
}

Packed to(uint32_t port) { return Packed().add(port, 2); }

TEST(MatchKinds, Exact) {
  Testbed sut(programMatching(R"({"field": "ipv4.dst", "match": "exact"},
                                 {"field": "l4.dport", "match": "exact"})"));
  sut.addAction("sut", 1, Packed().add(0x0A000001, 4).add(80, 2), "to", to(1));
  EXPECT_EQ(portOf(sut, {1, 0x0A000001, 6, 5, 80}), 1U);
  EXPECT_EQ(portOf(sut, {1, 0x0A000001, 6, 5, 81}), 0U);
  EXPECT_EQ(portOf(sut, {1, 0x0A000002, 6, 5, 80}), 0U);
}

TEST(MatchKinds, TheLongestPrefixWins) {
  Testbed sut(programMatching(R"({"field": "ipv4.dst", "match": "lpm"})"));
  sut.addAction("sut", 1, Packed().add(0, 4).add(0, 1), "to", to(1));
  sut.addAction("sut", 2, Packed().add(0x0A000000, 4).add(8, 1), "to", to(2));
  sut.addAction("sut", 3, Packed().add(0x0A010000, 4).add(16, 1), "to", to(3));
  sut.addAction("sut", 4, Packed().add(0x0A010203, 4).add(32, 1), "to", to(4));
  EXPECT_EQ(portOf(sut, {1, 0x0B000000, 17, 5, 80}), 1U);
  EXPECT_EQ(portOf(sut, {1, 0x0A020000, 17, 5, 80}), 2U);
  EXPECT_EQ(portOf(sut, {1, 0x0A01FFFF, 17, 5, 80}), 3U);
  EXPECT_EQ(portOf(sut, {1, 0x0A010203, 17, 5, 80}), 4U);
}

TEST(MatchKinds, TernaryAndRangeByPriority) {
  Testbed sut(programMatching(R"({"field": "ipv4.dst", "match": "ternary"},
                                 {"field": "l4.dport", "match": "range"})"));
  const auto key = [](uint32_t value, uint32_t mask, uint32_t low, uint32_t high) {
    return Packed().add(value, 4).add(mask, 4).add(low, 2).add(high, 2);
  };
  sut.addAction("sut", 1, key(0x0A000000, 0xFF000000, 0, 65535), "to", to(1), 10);
  const uint32_t second =
      sut.addAction("sut", 2, key(0x0A000000, 0xFF000000, 80, 90), "to", to(2), 20);
  sut.addAction("sut", 3, key(0x00000001, 0x000000FF, 85, 85), "to", to(3), 30);
  EXPECT_EQ(portOf(sut, {1, 0x0A000001, 6, 5, 79}), 1U);
  EXPECT_EQ(portOf(sut, {1, 0x0A000001, 6, 5, 80}), 2U);
  EXPECT_EQ(portOf(sut, {1, 0x0A000001, 6, 5, 90}), 2U);
  EXPECT_EQ(portOf(sut, {1, 0x0A000001, 6, 5, 85}), 3U);
  EXPECT_EQ(portOf(sut, {1, 0x0B000002, 6, 5, 85}), 0U);
  sut.table("sut").match->move(second, 5);
  EXPECT_EQ(portOf(sut, {1, 0x0A000001, 6, 5, 80}), 1U);
}

TEST(MatchKinds, OptionalMatchesTheValueOrAnything) {
  Testbed sut(programMatching(R"({"field": "ipv4.protocol", "match": "optional"})"));
  sut.addAction("sut", 1, Packed().add(0, 1).add(0, 1), "to", to(1), 1);
  sut.addAction("sut", 2, Packed().add(6, 1).add(1, 1), "to", to(2), 2);
  EXPECT_EQ(portOf(sut, {1, 2, 17, 5, 80}), 1U);
  EXPECT_EQ(portOf(sut, {1, 2, 6, 5, 80}), 2U);
}

}  // namespace
}  // namespace jxpipelinetest
