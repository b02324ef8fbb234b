// Counters in the exposition format of Prometheus.
//
//   jex_counters_segment_present                      1, or 0: no Partner has started counters
//   jex_counters_entries{table,table_id}              size of a table
//   jex_counters_last_sync_age_seconds{...}           left out before the first sync
//   jex_counters_packets_total{...,index}             of each entry that has counted something,
//   jex_counters_bytes_total{...,index}               as far as the limit of series goes
//   jex_counters_entries_omitted{...}                 entries that it left out
//
// The label "table" is left out of tables whose name is not known. Prometheus's numbers are
// floating point: counts above 2^53 are rounded.
#pragma once

#include <prometheus/collectable.h>
#include <prometheus/metric_family.h>

#include <mutex>
#include <vector>

#include "block.h"
#include "names.h"
#include "source.h"

namespace slice_counters {

/// Series of packets and bytes for all tables together.
inline constexpr size_t kDefaultMaxSeries = 20000;

/// How many entries each table may export, of as many as `counting` says: where `limit` does not
/// suffice for all, it is shared out evenly, and what small tables do not need goes to the others.
std::vector<size_t> shareOut(const std::vector<size_t>& counting, size_t limit);

/// The metrics of tables that have been read. Of a table that exceeds its share, the entries with
/// the lowest indices are exported, so that they are the same ones at every scrape.
std::vector<prometheus::MetricFamily> metricsOf(const std::vector<BlockSample>& samples,
                                                const TableNames& names, uint64_t now_ms,
                                                size_t max_series);
/// The metrics while there is no segment.
std::vector<prometheus::MetricFamily> metricsOfNone();

/// Reads the segment at every scrape. Scrapes come on threads of the server's own.
class Metrics : public prometheus::Collectable {
 public:
  Metrics(std::vector<uint32_t> wanted, TableNames names, size_t max_series);

  std::vector<prometheus::MetricFamily> Collect() const override;

 private:
  const TableNames names_;
  const size_t max_series_;
  mutable std::mutex mutex_;
  mutable Source source_;  // under mutex_
};

}  // namespace slice_counters
