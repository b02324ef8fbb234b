// A table's counter block in the shared segment.
//
// Layout, in the host's byte order: 4 bytes reserved, the time of the last sync (8 bytes), then 16
// bytes an entry (PartnerCounterEntry). No 64-bit field is aligned.
#pragma once

#include <cstdint>
#include <vector>

#include "JexHybridSlice/JexPartnerLib.h"

namespace slice_counters {

inline constexpr uint64_t kBlockHeaderBytes = 12;
inline constexpr uint64_t kLastSyncAt = 4;
inline constexpr double kMsPerSecond = 1000;

/// Where a block lies.
struct Block {
  uint32_t table_id = 0;
  uint32_t entries = 0;
  uint64_t offset = 0;  ///< of its first byte, from the start of the segment

  bool operator==(const Block& other) const {
    return table_id == other.table_id && entries == other.entries && offset == other.offset;
  }
};

/// What a block held at one moment.
struct BlockSample {
  Block block;
  uint64_t last_sync_ms = 0;  ///< milliseconds of CLOCK_MONOTONIC; 0: never synced
  std::vector<PartnerCounterEntry> counters;

  /// Milliseconds since the last sync; 0 where that lies in the future. Only of what was synced.
  uint64_t ageMs(uint64_t now_ms) const {
    return now_ms > last_sync_ms ? now_ms - last_sync_ms : 0;
  }
};

inline bool isZero(const PartnerCounterEntry& entry) {
  return entry.packets == 0 && entry.bytes == 0;
}

}  // namespace slice_counters
