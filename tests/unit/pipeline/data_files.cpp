#include "unit/pipeline/data_files.h"

#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <stdexcept>
#include <tuple>

namespace jxpipelinetest {
namespace {

void eachLine(const std::string& path, const std::function<void(const char*)>& use) {
  const gzFile file = gzopen(path.c_str(), "rb");
  if (file == nullptr) throw std::runtime_error("cannot open " + path);
  char line[512];
  while (gzgets(file, line, sizeof line) != nullptr) use(line);
  gzclose(file);
}

uint32_t addressOf(const unsigned* octets) {
  return octets[0] << 24 | octets[1] << 16 | octets[2] << 8 | octets[3];
}

Rule ruleOf(const char* line) {
  unsigned s[4], d[4], slen, dlen, sp[2], dp[2], protocol, mask;
  const int read = std::sscanf(line, "@%u.%u.%u.%u/%u %u.%u.%u.%u/%u %u : %u %u : %u %x/%x", &s[0],
                               &s[1], &s[2], &s[3], &slen, &d[0], &d[1], &d[2], &d[3], &dlen,
                               &sp[0], &sp[1], &dp[0], &dp[1], &protocol, &mask);
  if (read != 16) throw std::runtime_error(std::string("not a rule: ") + line);
  Rule rule;
  rule.src_mask = maskOf(slen);
  rule.src = addressOf(s) & rule.src_mask;
  rule.dst_mask = maskOf(dlen);
  rule.dst = addressOf(d) & rule.dst_mask;
  rule.sport_low = static_cast<uint16_t>(sp[0]);
  rule.sport_high = static_cast<uint16_t>(sp[1]);
  rule.dport_low = static_cast<uint16_t>(dp[0]);
  rule.dport_high = static_cast<uint16_t>(dp[1]);
  rule.protocol_mask = static_cast<uint8_t>(mask);
  rule.protocol = static_cast<uint8_t>(protocol & mask);
  return rule;
}

}  // namespace

std::vector<Rule> loadRules(const std::string& path) {
  std::vector<Rule> rules;
  eachLine(path, [&](const char* line) { rules.push_back(ruleOf(line)); });
  return rules;
}

std::vector<Prefix> loadPrefixes(const std::string& path) {
  std::vector<Prefix> prefixes;
  eachLine(path, [&](const char* line) {
    if (std::strchr(line, ':') != nullptr) return;  // IPv6
    unsigned octets[4], length;
    if (std::sscanf(line, "%u.%u.%u.%u/%u", &octets[0], &octets[1], &octets[2], &octets[3],
                    &length) != 5) {
      throw std::runtime_error(path + ": not a prefix: " + line);
    }
    prefixes.push_back({addressOf(octets), static_cast<uint8_t>(length)});
  });
  return prefixes;
}

std::vector<Flow> loadFlows(const std::string& path) {
  std::vector<Flow> flows;
  std::set<std::tuple<uint32_t, uint32_t, uint8_t, uint16_t, uint16_t>> seen;
  eachLine(path, [&](const char* line) {
    char protocol[8];
    unsigned s[4], d[4], sport, dport;
    if (std::sscanf(line, "%*[^,],%*[^,],%7[^,],%u.%u.%u.%u,%u,%u.%u.%u.%u,%u,", protocol, &s[0],
                    &s[1], &s[2], &s[3], &sport, &d[0], &d[1], &d[2], &d[3], &dport) != 11) {
      return;
    }
    const std::string name = protocol;
    if (name != "tcp" && name != "udp") return;
    const Flow flow{addressOf(s), addressOf(d), static_cast<uint8_t>(name == "tcp" ? 6 : 17),
                    static_cast<uint16_t>(sport), static_cast<uint16_t>(dport)};
    if (seen.emplace(flow.src, flow.dst, flow.protocol, flow.sport, flow.dport).second) {
      flows.push_back(flow);
    }
  });
  return flows;
}

}  // namespace jxpipelinetest
