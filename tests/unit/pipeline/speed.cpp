// Packets a second through the router and the switch, on packets in memory, on one core.
#include <time.h>

#include <cstdio>
#include <random>

#include "unit/pipeline/data_files.h"
#include "unit/pipeline/testbed.h"

namespace jxpipelinetest {
namespace {

double cpuSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void measure(const char* what, Testbed& sut, const std::vector<Bytes>& frames) {
  std::vector<Bytes> work = frames;
  constexpr uint32_t kRounds = 20;
  uint64_t forwarded = 0;
  const double begin = cpuSeconds();
  for (uint32_t round = 0; round < kRounds; ++round) {
    for (Bytes& frame : work) {
      const auto kind = sut.run(&frame).kind;
      forwarded += kind != jxmodel::Outcome::Kind::kDropped ? 1 : 0;
    }
  }
  const double seconds = cpuSeconds() - begin;
  const double packets = static_cast<double>(kRounds) * static_cast<double>(frames.size());
  std::printf("%-50s %.2f million packets/s CPU, %.0f %% forwarded\n", what,
              packets / seconds / 1e6, static_cast<double>(forwarded) * 100 / packets);
}

void addRules(Testbed& router) {
  const std::vector<Rule> rules = loadRules("acl1_1k");
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
    result.action = router.action("permit", counter);
    router.table("acl").match->add(
        {i + 1, key.data(), static_cast<uint32_t>(rules.size()) - i, 0, result}, &slot);
  }
}

void run() {
  std::mt19937 random(3);
  const std::vector<Prefix> prefixes = loadPrefixes();
  std::vector<Bytes> frames;
  for (int i = 0; i < 20'000; ++i) {
    const Prefix& prefix = prefixes[random() % prefixes.size()];
    const auto bits = static_cast<uint32_t>(random());
    frames.push_back(ipv4Frame({bits, prefix.address | (bits & ~maskOf(prefix.length)), 6,
                                static_cast<uint16_t>(bits), 80},
                               255));
  }
  const auto switching = Testbed::delivered("l2_switch");
  measure("l2_switch, flooding, a digest each", *switching, frames);
  switching->digests.clear();
  const auto router = Testbed::delivered("router");
  const uint32_t member = router->addMember("nexthops", 1, "set_nexthop",
                                            Packed().add(1, 2).add(1, 6).add(1, 6).add(0, 4));
  for (uint32_t i = 0; i < 10; ++i) {
    router->add("ipv4_lpm", 2'000'000 + i, Packed().add(i << 28, 4).add(4, 1), 0,
                memberResult(member));
  }
  measure("router, 10 routes, no rules", *router, frames);
  for (uint32_t i = 0; i < prefixes.size(); ++i) {
    router->add("ipv4_lpm", i + 1, Packed().add(prefixes[i].address, 4).add(prefixes[i].length, 1),
                0, memberResult(member));
  }
  measure("router, 900,000 routes, no rules", *router, frames);
  addRules(*router);
  measure("router, 900,000 routes, 942 rules", *router, frames);
}

}  // namespace
}  // namespace jxpipelinetest

int main() { jxpipelinetest::run(); }
