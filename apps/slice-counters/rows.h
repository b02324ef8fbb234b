// Which entries of a table are shown, and in which order.
#pragma once

#include <optional>
#include <vector>

#include "rates.h"

namespace slice_counters {

enum class Order { kIndex, kPackets, kBytes };

struct Selection {
  Order order = Order::kIndex;
  bool zero = false;  ///< also entries that have counted nothing
  size_t top = 0;     ///< at most so many; 0: all
};

/// An entry to show.
struct Row {
  uint32_t index = 0;
  PartnerCounterEntry counter{};
  std::optional<Rate> rate;
};

/// Rows of a sample, without rates: kPackets and kBytes order by what was counted, most first.
std::vector<Row> rowsOf(const BlockSample& sample, const Selection& selection);

/// Rows of a table that is watched: kPackets and kBytes order by rate, then by what was counted.
/// Rows that are equal stand by index.
std::vector<Row> rowsOf(const TableHistory& history, const Selection& selection);

}  // namespace slice_counters
