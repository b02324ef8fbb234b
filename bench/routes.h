// IPv4 prefixes for the benches.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct Route {
  uint32_t address;  ///< host byte order
  uint16_t length;
};

/// The first `count` IPv4 prefixes of a file of ADDRESS/LENGTH lines, plain or gzip. Throws
/// std::runtime_error if there are fewer.
std::vector<Route> readRoutes(const std::string& path, uint64_t count);

}  // namespace bench
