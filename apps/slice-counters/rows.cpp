#include "rows.h"

#include <algorithm>
#include <tuple>

namespace slice_counters {
namespace {

/// What a row is ordered by, the greatest first.
std::tuple<double, uint64_t> weightOf(const Row& row, Order order) {
  const Rate rate = row.rate.value_or(Rate{});
  if (order == Order::kPackets) return {rate.packets, row.counter.packets};
  return {rate.bytes, row.counter.bytes};
}

std::vector<Row> select(std::vector<Row> rows, const Selection& selection) {
  const size_t shown = selection.top == 0 ? rows.size() : std::min(selection.top, rows.size());
  if (selection.order != Order::kIndex) {
    const auto before = [&](const Row& a, const Row& b) {
      const auto weight_a = weightOf(a, selection.order);
      const auto weight_b = weightOf(b, selection.order);
      return weight_a != weight_b ? weight_a > weight_b : a.index < b.index;
    };
    std::partial_sort(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(shown), rows.end(),
                      before);
  }
  rows.resize(shown);
  return rows;
}

template <typename RateOf>
std::vector<Row> allRows(const BlockSample& sample, bool zero, RateOf rate_of) {
  std::vector<Row> rows;
  for (uint32_t index = 0; index < sample.counters.size(); ++index) {
    const PartnerCounterEntry& counter = sample.counters[index];
    if (zero || !isZero(counter)) rows.push_back({index, counter, rate_of(index)});
  }
  return rows;
}

}  // namespace

std::vector<Row> rowsOf(const BlockSample& sample, const Selection& selection) {
  const auto no_rate = [](uint32_t) { return std::optional<Rate>(); };
  return select(allRows(sample, selection.zero, no_rate), selection);
}

std::vector<Row> rowsOf(const TableHistory& history, const Selection& selection) {
  const auto rate_of = [&](uint32_t index) { return history.rate(index); };
  return select(allRows(history.latest(), selection.zero, rate_of), selection);
}

}  // namespace slice_counters
