// What slice-counters prints: text for people, or JSON.
//
// A table in JSON, members in this order:
//   {"table_id":65538,"table":"ipv4_lpm",   null where no description has a name
//    "entries":1024,"last_sync_ms":81234,   null before the first sync
//    "age_ms":532,                          the same
//    "interval_ms":1000,                    watched tables only; null before the second sync
//    "counters":[{"index":7,"packets":3,"bytes":192,
//                 "packets_per_second":1.5,"bytes_per_second":96}]}  null without an interval
#pragma once

#include <string>
#include <vector>

#include "names.h"
#include "rates.h"
#include "rows.h"

namespace slice_counters {

enum class Format { kText, kJson };

/// What all outputs need.
struct View {
  Format format = Format::kText;
  Selection selection;
  uint64_t now_ms = 0;
};

/// Tables without their counters: a line each, or an array of objects.
std::string renderList(const std::vector<BlockSample>& samples, const TableNames& names,
                       const View& view);

/// Tables with their counters: a text block each, or an array of objects.
std::string renderTables(const std::vector<BlockSample>& samples, const TableNames& names,
                         const View& view);

/// One look at tables that are watched: a text block each, or {"now_ms":N,"tables":[...]} on one
/// line.
std::string renderWatched(const Histories& histories, const TableNames& names, const View& view);

}  // namespace slice_counters
