// Agent and partner of the end-to-end measurement, a process each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "routes.h"

namespace bench {

/// Role: a slice agent. Reports when it serves; later when its device holds `count` routes, and the
/// CPU time since it served (without that of the thread that looks).
[[noreturn]] void agent(const std::string& program, uint64_t count);

/// Role: a partner that writes the routes. Reports when it began and ended, and the CPU time
/// between (of the process, and of the thread that writes).
[[noreturn]] void partner(const std::string& program, const std::vector<Route>& routes);

}  // namespace bench
