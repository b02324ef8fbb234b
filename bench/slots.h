// Which entries of a table are churned.
#pragma once

#include <cstdint>
#include <vector>

#include "model/tables/match_table.h"

namespace bench {

/// Slots of entries that the table has now, at most `count` (1 or more), spread over all of them.
/// Nobody writes to the table meanwhile.
std::vector<uint32_t> spreadSlots(const jxmodel::MatchTable& table, uint32_t count);

}  // namespace bench
