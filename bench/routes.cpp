#include "routes.h"

#include <arpa/inet.h>
#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace bench {
namespace {

/// False for a line of another kind.
bool parse(char* line, Route* route) {
  char* slash = std::strchr(line, '/');
  if (slash == nullptr) return false;
  *slash = '\0';
  in_addr address = {};
  if (inet_pton(AF_INET, line, &address) != 1) return false;
  route->address = ntohl(address.s_addr);
  route->length = static_cast<uint16_t>(std::strtoul(slash + 1, nullptr, 10));
  return true;
}

}  // namespace

std::vector<Route> readRoutes(const std::string& path, uint64_t count) {
  const std::unique_ptr<gzFile_s, int (*)(gzFile)> file(gzopen(path.c_str(), "rb"), gzclose);
  if (file == nullptr) throw std::runtime_error("cannot open " + path);
  std::vector<Route> routes;
  char line[128];
  Route route = {};
  while (routes.size() < count && gzgets(file.get(), line, sizeof(line)) != nullptr) {
    if (parse(line, &route)) routes.push_back(route);
  }
  if (routes.size() < count) {
    throw std::runtime_error(path + " has only " + std::to_string(routes.size()) +
                             " IPv4 prefixes");
  }
  return routes;
}

}  // namespace bench
