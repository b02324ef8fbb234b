#include "scenario.h"

#include <algorithm>

namespace bench {
namespace {

using jxpipelinetest::Packed;
using jxpipelinetest::Prefix;
using jxpipelinetest::Rule;
using jxpipelinetest::Testbed;

constexpr uint32_t kNextHops = 64;

Packed keyOf(const Rule& rule) {
  return Packed()
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
}

/// The first rule has the greatest priority. All permit, so that every packet goes all the way.
void addRules(Testbed& router, const std::vector<Rule>& rules) {
  const auto count = static_cast<uint32_t>(rules.size());
  for (uint32_t i = 0; i < count; ++i) {
    router.addAction("acl", i + 1, keyOf(rules[i]), "permit", Packed().add(i + 1, 4), count - i);
  }
}

void addRoutes(Testbed& router, const std::vector<Prefix>& routes, size_t count) {
  std::vector<uint32_t> members;
  for (uint32_t hop = 1; hop <= kNextHops; ++hop) {
    const Packed params = Packed().add(hop, 2).add(hop, 6).add(hop, 6).add(hop, 4);
    members.push_back(router.addMember("nexthops", hop, "set_nexthop", params));
  }
  for (uint32_t i = 0; i < count; ++i) {
    const Prefix route = i == 0 ? Prefix{} : routes[i - 1];  // the default route first
    router.add("ipv4_lpm", i + 1, Packed().add(route.address, 4).add(route.length, 1), 0,
               jxpipelinetest::memberResult(members[i % kNextHops]));
  }
}

}  // namespace

Scenario switchWith(const std::set<uint64_t>& macs) {
  Scenario scenario{"l2_switch, " + std::to_string(macs.size()) + " addresses", "dmac",
                    Testbed::delivered("l2_switch")};
  uint32_t handle = 0;
  for (const uint64_t mac : macs) {
    ++handle;
    const Packed source = Packed().add(mac, 6).add(kIngressPort, 2);
    scenario.testbed->addAction("smac", handle, source, "known", Packed());
    scenario.testbed->addAction("dmac", handle, Packed().add(mac, 6), "forward",
                                Packed().add(kIngressPort + 1, 2));
  }
  return scenario;
}

Scenario routerWith(const std::vector<Prefix>& routes, size_t count,
                    const std::vector<Rule>& rules) {
  count = std::min(count, routes.size() + 1);
  Scenario scenario{
      "router, " + std::to_string(count) + " routes, " + std::to_string(rules.size()) + " rules",
      "ipv4_lpm", Testbed::delivered("router")};
  addRoutes(*scenario.testbed, routes, count);
  addRules(*scenario.testbed, rules);
  return scenario;
}

}  // namespace bench
