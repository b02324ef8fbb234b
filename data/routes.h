// A routing table of the size and shape of a full Internet table.
#pragma once

#include <cstdint>
#include <string>

namespace jexdata {

/// One ADDRESS/LENGTH per line, IPv4 first, then IPv6, each sorted by address and length. No
/// duplicates, no host bits, no default route.
std::string internetRoutes(uint64_t seed);

}  // namespace jexdata
