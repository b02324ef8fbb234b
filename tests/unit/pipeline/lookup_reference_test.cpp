// Look-ups with whole rule sets and routing tables, each against a plain reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <unordered_map>

#include "support/test_data.h"
#include "unit/pipeline/data_files.h"
#include "unit/pipeline/testbed.h"

namespace jxpipelinetest {
namespace {

constexpr uint32_t kHeaders = 100'000;

/// A header near a rule: inside it, and then often a little beside it.
Flow nearRule(const Rule& rule, std::mt19937* random) {
  const auto draw = [random] { return static_cast<uint32_t>((*random)()); };
  const auto between = [&](uint32_t low, uint32_t high) {
    return static_cast<uint16_t>(low + draw() % (high - low + 1));
  };
  Flow flow;
  flow.src = rule.src | (draw() & ~rule.src_mask);
  flow.dst = rule.dst | (draw() & ~rule.dst_mask);
  flow.protocol = static_cast<uint8_t>(rule.protocol | (draw() & ~rule.protocol_mask & 0xFF));
  flow.sport = between(rule.sport_low, rule.sport_high);
  flow.dport = between(rule.dport_low, rule.dport_high);
  switch (draw() % 8) {
    case 0:
      flow.src ^= 1u << draw() % 32;
      break;
    case 1:
      flow.dst ^= 1u << draw() % 32;
      break;
    case 2:
      flow.dport = static_cast<uint16_t>(rule.dport_high + 1);
      break;
    case 3:
      flow.protocol = 6;
      break;
    default:
      break;
  }
  return flow;
}

void compareWithLinearSearch(const std::string& file) {
  const std::vector<Rule> rules = loadRules(file);
  ASSERT_GT(rules.size(), 800U);
  const auto router = Testbed::delivered("router");
  for (uint32_t i = 0; i < rules.size(); ++i) {
    const Rule& rule = rules[i];
    const Packed key = Packed()
                           .add(rule.src, 4)
                           .add(rule.src_mask, 4)
                           .add(rule.dst, 4)
                           .add(rule.dst_mask, 4)
                           .add(rule.protocol, 1)
                           .add(rule.protocol_mask, 1)
                           .add(rule.sport_low, 2)
                           .add(rule.sport_high, 2)
                           .add(rule.dport_low, 2)
                           .add(rule.dport_high, 2);
    uint32_t slot = 0;
    const Packed counter = Packed().add(0, 4);
    jxmodel::MatchResult result;
    result.action = router->action("permit", counter);
    const auto status = router->table("acl").match->add(
        {i + 1, key.data(), static_cast<uint32_t>(rules.size()) - i, 0, result}, &slot);
    // Rules that differ in TCP flags only are one entry here: the first one.
    ASSERT_TRUE(status == JX_SUCCESS || status == JX_ALREADY_EXISTS);
  }
  std::mt19937 random(42);
  const jxmodel::MatchTable& table = *router->table("acl").match;
  uint32_t as_drawn = 0, others = 0;  // rules found: the one that the header was drawn from or not
  for (uint32_t i = 0; i < kHeaders; ++i) {
    const size_t drawn = random() % rules.size();
    const Flow flow = nearRule(rules[drawn], &random);
    const auto first = std::find_if(rules.begin(), rules.end(),
                                    [&flow](const Rule& rule) { return rule.matches(flow); });
    const Packed values = Packed()
                              .add(flow.src, 4)
                              .add(flow.dst, 4)
                              .add(flow.protocol, 1)
                              .add(flow.sport, 2)
                              .add(flow.dport, 2);
    const jxmodel::ReadSection section;
    jxmodel::MatchTable::Applied applied;
    ASSERT_TRUE(table.tryApply(values.data(), &applied));
    ASSERT_EQ(applied.hit, first != rules.end());
    if (applied.hit) {
      ASSERT_EQ(applied.handle, first - rules.begin() + 1);
    }
    ++(first == rules.begin() + static_cast<std::ptrdiff_t>(drawn) ? as_drawn : others);
  }
  EXPECT_GT(as_drawn, kHeaders / 10);
  EXPECT_GT(others, kHeaders / 10);
}

class AclSet : public jextest::OverFiles {
 protected:
  AclSet() : OverFiles("rules", "acl", ".txt.gz") {}
};

TEST_P(AclSet, EveryLookUpIsThatOfALinearSearch) { forEachFile(compareWithLinearSearch); }

INSTANTIATE_TEST_SUITE_P(Sets, AclSet, testing::ValuesIn(jextest::madeAndReal("rules")),
                         jextest::inWords);

void compareWithWalk(const std::string& file) {
  const std::vector<Prefix> prefixes = loadPrefixes(file);
  ASSERT_GT(prefixes.size(), 500'000U);
  const auto router = Testbed::delivered("router");
  const uint32_t member = router->addMember("nexthops", 1, "set_nexthop",
                                            Packed().add(1, 2).add(1, 6).add(1, 6).add(0, 4));
  std::unordered_map<uint64_t, uint32_t> reference;  // handle by address and length
  for (uint32_t i = 0; i < prefixes.size(); ++i) {
    const Prefix& prefix = prefixes[i];
    router->add("ipv4_lpm", i + 1, Packed().add(prefix.address, 4).add(prefix.length, 1), 0,
                memberResult(member));
    reference[uint64_t{prefix.address} << 8 | prefix.length] = i + 1;
  }
  const auto walk = [&reference](uint32_t address) {
    for (uint32_t length = 33; length-- > 0;) {
      const auto found = reference.find(uint64_t{address & maskOf(length)} << 8 | length);
      if (found != reference.end()) return found->second;
    }
    return 0U;
  };
  std::mt19937 random(7);
  const jxmodel::MatchTable& table = *router->table("ipv4_lpm").match;
  uint32_t hits = 0;
  for (uint32_t i = 0; i < kHeaders; ++i) {
    auto address = static_cast<uint32_t>(random());
    if (i % 2 == 0) {  // inside a prefix, half of the time
      const Prefix& prefix = prefixes[random() % prefixes.size()];
      address = prefix.address | (address & ~maskOf(prefix.length));
    }
    const jxmodel::ReadSection section;
    jxmodel::MatchTable::Applied applied;
    ASSERT_TRUE(table.tryApply(Packed().add(address, 4).data(), &applied));
    ASSERT_EQ(applied.hit ? applied.handle : 0, walk(address));
    hits += applied.hit ? 1 : 0;
  }
  EXPECT_GT(hits, kHeaders / 2);
  EXPECT_LT(hits, kHeaders);
}

class Prefixes : public jextest::OverFiles {
 protected:
  Prefixes() : OverFiles("routes", "routes", "prefixes.txt.gz") {}
};

TEST_P(Prefixes, EveryLookUpIsThatOfAWalkOverLengths) { forEachFile(compareWithWalk); }

INSTANTIATE_TEST_SUITE_P(Tables, Prefixes, testing::ValuesIn(jextest::madeAndReal("routes")),
                         jextest::inWords);

}  // namespace
}  // namespace jxpipelinetest
