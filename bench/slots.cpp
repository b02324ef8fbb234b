#include "slots.h"

#include <algorithm>

namespace bench {

std::vector<uint32_t> spreadSlots(const jxmodel::MatchTable& table, uint32_t count) {
  // Of the used slots every n-th, not of all: a slot is used again only after a grace period, so a
  // table of few entries that was written for long has its entries among very many free slots.
  const uint32_t step = (std::max(1u, table.count()) + count - 1) / count;
  std::vector<uint32_t> slots;
  uint32_t used = 0;
  for (uint32_t slot = 0; slot < table.end(); ++slot) {
    if (table.used(slot) && used++ % step == 0) slots.push_back(slot);
  }
  return slots;
}

}  // namespace bench
