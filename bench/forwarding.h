// Packets a second of one case: a slice agent's device whose tables a partner has filled, alone,
// beside a thread that updates it, and beside the partner that updates it over the socket.
#pragma once

#include <cstdint>

#include "scenario.h"
#include "traffic.h"

namespace bench {

struct Effort {
  uint64_t packets = 300'000;  ///< a run, at least
  int rounds = 7;
  size_t spread = 900'000;  ///< packets across so many routes
};

/// Role: a slice agent that runs packets as well, with a partner of its own. Reports for each kind
/// of traffic one object of figures.
///
/// Packets have a CPU for themselves where the process may use more than one; all else, the
/// partner included, shares the rest. So packets and updates really run at once.
[[noreturn]] void forwarding(const Case& one, const Effort& effort);

}  // namespace bench
