// Flows of hosts, as a flow collector lists them.
#pragma once

#include <cstdint>
#include <string>

namespace jexdata {

/// CSV with the header `start,duration_s,proto,src,sport,dst,dport,packets,bytes`, sorted by start.
/// A row of ICMP has empty ports; some flows have several rows.
std::string flowTable(uint64_t seed);

}  // namespace jexdata
