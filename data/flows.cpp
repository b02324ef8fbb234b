#include "flows.h"

#include <cstdio>
#include <vector>

#include "random.h"

namespace jexdata {
namespace {

constexpr uint32_t kRows = 7000;
constexpr uint32_t kSources = 24;
constexpr uint32_t kDestinations = 480;
constexpr uint64_t kFlowsBegin = 1'767'225'600;  // Unix seconds

struct Ends {
  const char* protocol;
  uint32_t src, dst;
  uint32_t sport, dport;
};

std::string dottedText(uint32_t address) {
  return std::to_string(address >> 24) + '.' + std::to_string(address >> 16 & 0xFF) + '.' +
         std::to_string(address >> 8 & 0xFF) + '.' + std::to_string(address & 0xFF);
}

Ends drawEnds(Random* random, const std::vector<uint32_t>& destinations) {
  Ends ends{};
  const uint32_t kind = random->below(100);
  ends.protocol = kind < 58 ? "tcp" : kind < 99 ? "udp" : "icmp";
  ends.src = 0x0A140000 + random->between(1, kSources);  // 10.20.0.0/16
  ends.dst = destinations[random->below(kDestinations)];
  ends.sport = random->between(32768, 60999);
  constexpr uint16_t kServices[] = {53, 80, 123, 443, 993, 3478, 8443, 51413};
  ends.dport = random->chance(800) ? kServices[random->below(std::size(kServices))]
                                   : random->between(1024, 65535);
  return ends;
}

}  // namespace

std::string flowTable(uint64_t seed) {
  Random random(seed, "flows");
  std::vector<uint32_t> destinations;
  while (destinations.size() < kDestinations) {
    const uint32_t first = random.between(11, 126);
    destinations.push_back(first << 24 | random.below(1U << 24));
  }
  std::string text = "start,duration_s,proto,src,sport,dst,dport,packets,bytes\n";
  uint64_t now_us = 0;
  Ends ends{};
  for (uint32_t row = 0; row < kRows; ++row) {
    now_us += random.between(1, 24'600'000);  // about a day in all
    const bool again = row > 0 && random.chance(15);
    if (!again) ends = drawEnds(&random, destinations);
    const bool ported = ends.protocol[0] != 'i';
    const uint32_t duration_ms = random.below(120'000);
    const uint32_t packets = random.between(1, 400);
    const uint32_t bytes = packets * random.between(60, 1400);
    char line[200];
    std::snprintf(line, sizeof line, "%llu.%06llu,%u.%03u,%s,%s,%s,%s,%s,%u,%u\n",
                  static_cast<unsigned long long>(kFlowsBegin + now_us / 1'000'000),
                  static_cast<unsigned long long>(now_us % 1'000'000), duration_ms / 1000,
                  duration_ms % 1000, ends.protocol, dottedText(ends.src).c_str(),
                  ported ? std::to_string(ends.sport).c_str() : "", dottedText(ends.dst).c_str(),
                  ported ? std::to_string(ends.dport).c_str() : "", packets, bytes);
    text += line;
  }
  return text;
}

}  // namespace jexdata
