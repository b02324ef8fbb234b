// The counter tables whose counters have been started.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "partner.h"

namespace jexapps {

/// Methods throw CommandError for what the library must not be asked.
class Counters {
 public:
  /// `partner` has to outlive this.
  explicit Counters(Partner& partner) : partner_(partner) {}

  /// Starts the counters of a table of `size` entries.
  void start(const TableFacts& table, size_t size);

  struct Reading {
    std::vector<PartnerCounterEntry> entries;
    uint64_t synced = 0;  // time of the last sync, 0: never
  };
  /// Entries `first` to `first + count - 1`; without a count, all from `first` on.
  Reading read(const TableFacts& table, uint32_t first, std::optional<uint32_t> count);

  /// What barriers need to sync the table's counters.
  PartnerCounterTableHandle handle(const TableFacts& table) const { return find(table).handle; }

  /// Stop one table's, or all. Only when the agent has handled the start.
  void stop(const TableFacts& table);
  void stopAll();

  bool any() const { return !started_.empty(); }

 private:
  struct Started {
    PartnerCounterTableHandle handle;
    size_t size;  // entries
  };
  const Started& find(const TableFacts& table) const;
  void checkRoom(const TableFacts& table, uint64_t bytes) const;

  Partner& partner_;
  std::map<uint32_t, Started> started_;  // by table id
  bool segment_is_ours_ = false;         // from the first start on
  uint64_t bytes_ = 0;                   // of the counters that are started
  uint64_t most_bytes_ = 0;              // that have been started at once
};

}  // namespace jexapps
