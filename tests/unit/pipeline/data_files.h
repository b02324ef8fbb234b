// The data files that look-ups are tested with, plain or gzip. What cannot be read is an exception.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "unit/pipeline/frame.h"

namespace jxpipelinetest {

/// One rule of a classifier; the first of a set has the highest priority. TCP flags are left out.
struct Rule {
  uint32_t src = 0, src_mask = 0;
  uint32_t dst = 0, dst_mask = 0;
  uint16_t sport_low = 0, sport_high = 0;
  uint16_t dport_low = 0, dport_high = 0;
  uint8_t protocol = 0, protocol_mask = 0;

  bool matches(const Flow& flow) const {
    return (flow.src & src_mask) == src && (flow.dst & dst_mask) == dst &&
           (flow.protocol & protocol_mask) == protocol && sport_low <= flow.sport &&
           flow.sport <= sport_high && dport_low <= flow.dport && flow.dport <= dport_high;
  }
};
/// The rules of a file whose lines data/README.md describes.
std::vector<Rule> loadRules(const std::string& path);

struct Prefix {
  uint32_t address = 0;
  uint8_t length = 0;
};
/// All IPv4 prefixes of a file with one ADDRESS/LENGTH per line.
std::vector<Prefix> loadPrefixes(const std::string& path);

/// The distinct TCP and UDP flows of a table of flows.
std::vector<Flow> loadFlows(const std::string& path);

constexpr uint32_t maskOf(uint32_t length) {
  return length == 0 ? 0 : ~uint32_t{0} << (32 - length);
}

}  // namespace jxpipelinetest
