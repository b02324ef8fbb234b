#include "rules.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <string_view>
#include <tuple>
#include <vector>

#include "random.h"

namespace jexdata {
namespace {

constexpr uint8_t kTcpProtocol = 6;

/// An address prefix.
struct Block {
  uint32_t address = 0;
  uint32_t length = 0;
};

struct Ports {
  uint32_t low = 0;
  uint32_t high = 0xFFFF;
};

struct Rule {
  Block src, dst;
  Ports sport, dport;
  uint32_t protocol = 0, protocol_mask = 0;
  uint32_t flags = 0, flags_mask = 0;

  auto key() const {
    return std::make_tuple(src.address, src.length, dst.address, dst.length, sport.low, sport.high,
                           dport.low, dport.high, protocol, protocol_mask, flags, flags_mask);
  }
};

/// How narrow a rule is: bits of addresses and protocol, and the halvings that make a port range.
uint32_t narrowness(const Rule& rule) {
  const auto bits = [](const Ports& ports) {
    uint32_t halvings = 0;
    for (uint32_t size = ports.high - ports.low + 1; size < 0x10000; size *= 2) ++halvings;
    return halvings;
  };
  return rule.src.length + rule.dst.length + bits(rule.sport) + bits(rule.dport) +
         (rule.protocol_mask != 0 ? 8 : 0);
}

class Rules {
 public:
  Rules(uint64_t seed, std::string_view name, RuleKind kind, size_t count)
      : random_(seed, name), kind_(kind) {
    // Sites have networks, networks have hosts: prefixes of rules nest.
    const auto sites = static_cast<uint32_t>(4 + count / 100);
    for (uint32_t i = 0; i < sites; ++i) {
      const uint32_t length = random_.between(12, 18);
      const uint32_t first = random_.between(11, 126);
      sites_.push_back(inside({first << 24, 8}, length));
    }
    for (uint32_t i = 0; i < sites * 8; ++i) {
      const Block& site = any(sites_);
      networks_.push_back(inside(site, random_.between(20, 28)));
    }
  }

  std::vector<Rule> drawn(size_t count) {
    std::set<decltype(Rule().key())> seen;
    std::vector<Rule> rules;
    while (rules.size() < count) {
      const Rule rule = draw();
      if (seen.insert(rule.key()).second) rules.push_back(rule);
    }
    return ordered(std::move(rules));
  }

 private:
  const Block& any(const std::vector<Block>& prefixes) {
    return prefixes[random_.below(static_cast<uint32_t>(prefixes.size()))];
  }

  Block inside(const Block& around, uint32_t length) {
    const uint32_t free = ~uint32_t{0} >> around.length;
    const uint32_t mask = ~uint32_t{0} << (32 - length);
    return {(around.address | (random_.bits32() & free)) & mask, length};
  }

  Block address(uint32_t open_per_mille) {
    if (random_.chance(open_per_mille)) return {};
    switch (random_.below(8)) {
      case 0:
        return any(sites_);
      case 1:
      case 2:
      case 3:
        return any(networks_);
      default: {
        const Block& network = any(networks_);
        return inside(network, random_.chance(700) ? 32 : random_.between(network.length, 32));
      }
    }
  }

  Ports service() {
    constexpr uint16_t kServices[] = {20,  21,  22,  25,  53,   67,   80,   110,  123,  143, 161,
                                      179, 389, 443, 445, 1433, 1521, 3306, 3389, 5060, 8080};
    const uint16_t port = random_.chance(800) ? kServices[random_.below(std::size(kServices))]
                                              : static_cast<uint16_t>(random_.between(1024, 65535));
    return {port, port};
  }

  Ports range() {
    constexpr Ports kUsual[] = {{0, 1023}, {1024, 65535}, {6000, 6063}, {49152, 65535}};
    if (random_.chance(600)) return kUsual[random_.below(std::size(kUsual))];
    const uint32_t low = random_.between(1, 60000);
    return {low, low + random_.between(1, 4000)};
  }

  void drawPorts(Rule* rule) {
    if (kind_ == RuleKind::kAccessList) {
      rule->dport = random_.chance(130) ? range() : service();
      if (random_.chance(40)) rule->sport = range();
      if (random_.chance(150)) rule->dport = {};
      return;
    }
    if (random_.chance(300)) rule->sport = random_.chance(500) ? range() : service();
    rule->dport = random_.chance(350) ? range() : service();
    if (random_.chance(200)) rule->dport = {};
  }

  Rule draw() {
    Rule rule;
    const bool access = kind_ == RuleKind::kAccessList;
    rule.src = address(access ? 250 : 120);
    rule.dst = address(access ? 30 : 120);
    const uint32_t open = access ? 80 : 250;
    if (random_.chance(open)) {
      // No protocol has ports that every protocol has.
      if (random_.chance(300)) drawPorts(&rule);
      return rule;
    }
    constexpr uint8_t kProtocols[] = {kTcpProtocol, kTcpProtocol, kTcpProtocol, 17, 17, 1, 47, 50};
    rule.protocol = kProtocols[random_.below(std::size(kProtocols))];
    rule.protocol_mask = 0xFF;
    if (random_.chance(20)) {  // a group of protocols
      rule.protocol_mask = 0xFFU << random_.between(1, 4) & 0xFF;
      rule.protocol &= rule.protocol_mask;
    }
    if (rule.protocol == kTcpProtocol || rule.protocol == 17) drawPorts(&rule);
    if (rule.protocol == kTcpProtocol && random_.chance(access ? 170 : 400)) drawFlags(&rule);
    return rule;
  }

  void drawFlags(Rule* rule) {
    constexpr uint16_t kFlags[] = {0x02, 0x04, 0x10, 0x12};  // SYN, RST, ACK, SYN and ACK
    rule->flags = kFlags[random_.below(std::size(kFlags))];
    rule->flags_mask = random_.chance(500) ? rule->flags : 0x12U | rule->flags;
  }

  /// Narrow rules come first, as people write them, but not strictly: some wide rules hide others.
  std::vector<Rule> ordered(std::vector<Rule> rules) {
    struct Place {
      uint32_t rank;
      size_t index;
      bool operator<(const Place& other) const {
        return rank != other.rank ? rank > other.rank : index < other.index;
      }
    };
    std::vector<Place> places;
    for (size_t i = 0; i < rules.size(); ++i) {
      const uint32_t shift = random_.chance(50) ? 60 : random_.below(24);
      places.push_back({narrowness(rules[i]) + shift, i});
    }
    std::sort(places.begin(), places.end());
    std::vector<Rule> sorted;
    for (const Place& place : places) sorted.push_back(rules[place.index]);
    return sorted;
  }

  Random random_;
  const RuleKind kind_;
  std::vector<Block> sites_;
  std::vector<Block> networks_;
};

std::string lineOf(const Rule& rule) {
  char line[160];
  std::snprintf(line, sizeof line,
                "@%u.%u.%u.%u/%u\t%u.%u.%u.%u/%u\t%u : %u\t%u : %u\t0x%02X/0x%02X\t0x%04X/0x%04X\n",
                rule.src.address >> 24, rule.src.address >> 16 & 0xFF, rule.src.address >> 8 & 0xFF,
                rule.src.address & 0xFF, rule.src.length, rule.dst.address >> 24,
                rule.dst.address >> 16 & 0xFF, rule.dst.address >> 8 & 0xFF,
                rule.dst.address & 0xFF, rule.dst.length, rule.sport.low, rule.sport.high,
                rule.dport.low, rule.dport.high, rule.protocol, rule.protocol_mask, rule.flags,
                rule.flags_mask);
  return line;
}

}  // namespace

std::string ruleSet(uint64_t seed, const std::string& name, RuleKind kind, size_t count) {
  std::string text;
  for (const Rule& rule : Rules(seed, name, kind, count).drawn(count)) text += lineOf(rule);
  return text;
}

}  // namespace jexdata
