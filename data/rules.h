// Rule sets of a packet classifier.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace jexdata {

enum class RuleKind : uint8_t {
  kAccessList,  // source ports are mostly free; services are single ports
  kFirewall,    // ranges of source and destination ports, and protocols that are left open
};

/// `count` rules that all differ, one per line; the first has the highest priority:
///
///   @SRC/LEN <tab> DST/LEN <tab> LOW : HIGH <tab> LOW : HIGH <tab> PROTOCOL/MASK <tab> FLAGS/MASK
///
/// Ports of the source stand before those of the destination. Protocol and TCP flags are
/// hexadecimal; a mask of 0x00 or 0x0000 means any.
std::string ruleSet(uint64_t seed, const std::string& name, RuleKind kind, size_t count);

}  // namespace jexdata
