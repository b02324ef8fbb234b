// Rates of counters, from one sync to the next.
//
// Values change only when the SliceAgent has synced a table, and the block says when that was. So a
// rate is the difference between two syncs over the time between these syncs; when and how often
// they were looked at does not matter. A table that was not synced since keeps its rates.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "block.h"

namespace slice_counters {

/// Of one entry, a second.
struct Rate {
  double packets = 0;
  double bytes = 0;
};

/// A table as it was at its last two syncs that were seen.
class TableHistory {
 public:
  /// Takes the newest sample. One that is not of a later sync changes nothing; one of another
  /// block, or of an earlier sync, begins anew.
  void add(BlockSample sample);

  const BlockSample& latest() const { return latest_; }

  /// Milliseconds between the two syncs; none if only one was seen.
  std::optional<uint64_t> intervalMs() const;

  /// Rate of entry `index`, if there is an interval. What counts less than before was cleared
  /// meanwhile, and has counted from zero.
  std::optional<Rate> rate(uint32_t index) const;

 private:
  BlockSample latest_;
  std::optional<BlockSample> before_;
};

/// The histories of all tables, by id.
class Histories {
 public:
  /// Takes what was read now; tables that are not in it are forgotten.
  void update(std::vector<BlockSample> samples);
  /// Forgets everything: the segment is another one.
  void clear() { tables_.clear(); }

  const std::map<uint32_t, TableHistory>& tables() const { return tables_; }

 private:
  std::map<uint32_t, TableHistory> tables_;
};

}  // namespace slice_counters
