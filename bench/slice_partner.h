// A partner whose tables packets are looked up in: fills them over the socket, then rewrites one at
// full speed.
#pragma once

#include "scenario.h"

namespace bench {

/// Role: a partner. Fills its tables and reports {"updates": writes so far}. Each "go" lets it
/// withdraw entries of the churned table and announce them again, as fast as it can; each "stop"
/// lets it report anew, when all entries are there again. Every write is one update for the agent.
[[noreturn]] void slicePartner(const Case& one, const Scenario& scenario);

}  // namespace bench
