#include "sample.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "segment.h"

namespace slice_counters {
namespace {

constexpr size_t kStretch = 4096;  // entries
constexpr int kAttempts = 4;       // at a block whose time stamp changes
constexpr int kEntryAttempts = 100;

bool readTime(const Segment& segment, const Block& block, uint64_t* time) {
  char bytes[sizeof *time];
  if (!segment.read(block.offset + kLastSyncAt, bytes, sizeof bytes)) return false;
  std::memcpy(time, bytes, sizeof bytes);
  return true;
}

bool same(const PartnerCounterEntry& a, const PartnerCounterEntry& b) {
  return a.packets == b.packets && a.bytes == b.bytes;
}

/// Copies an entry that is being written until two copies in a row are the same.
bool readBusyEntry(const Segment& segment, uint64_t offset, PartnerCounterEntry* entry) {
  for (int attempt = 0; attempt < kEntryAttempts; ++attempt) {
    const PartnerCounterEntry before = *entry;
    if (!segment.read(offset, entry, sizeof *entry)) return false;
    if (same(*entry, before)) break;
  }
  return true;
}

/// Copies `count` entries to `to`; `again` has as much room.
bool readStretch(const Segment& segment, uint64_t offset, size_t count, PartnerCounterEntry* to,
                 PartnerCounterEntry* again) {
  const size_t bytes = count * sizeof *to;
  if (!segment.read(offset, again, bytes) || !segment.read(offset, to, bytes)) return false;
  for (size_t i = 0; i < count; ++i) {
    if (same(to[i], again[i])) continue;
    if (!readBusyEntry(segment, offset + i * sizeof *to, &to[i])) return false;
  }
  return true;
}

bool readEntries(const Segment& segment, BlockSample* sample) {
  std::vector<PartnerCounterEntry> again(std::min<size_t>(sample->counters.size(), kStretch));
  for (size_t first = 0; first < sample->counters.size(); first += kStretch) {
    const size_t count = std::min(kStretch, sample->counters.size() - first);
    const uint64_t offset =
        sample->block.offset + kBlockHeaderBytes + first * sizeof(PartnerCounterEntry);
    if (!readStretch(segment, offset, count, &sample->counters[first], again.data())) return false;
  }
  return true;
}

bool readBlock(const Segment& segment, const Block& block, BlockSample* sample) {
  sample->block = block;
  sample->counters.resize(block.entries);
  if (!readTime(segment, block, &sample->last_sync_ms)) return false;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    uint64_t time = 0;
    if (!readEntries(segment, sample) || !readTime(segment, block, &time)) return false;
    if (time == sample->last_sync_ms) break;
    sample->last_sync_ms = time;
  }
  return true;
}

}  // namespace

uint64_t nowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

bool readBlocks(const Segment& segment, const std::vector<uint32_t>& wanted,
                std::vector<BlockSample>* samples) {
  samples->clear();
  std::vector<Block> before;
  if (!segment.blocks(&before)) return false;
  for (const Block& block : before) {
    const bool is_wanted =
        wanted.empty() || std::find(wanted.begin(), wanted.end(), block.table_id) != wanted.end();
    if (!is_wanted) continue;
    samples->emplace_back();
    if (!readBlock(segment, block, &samples->back())) return false;
  }
  std::vector<Block> after;
  if (!segment.blocks(&after)) return false;
  const std::vector<Block> stayed = inBoth(before, after);
  const auto has_gone = [&](const BlockSample& sample) {
    return std::find(stayed.begin(), stayed.end(), sample.block) == stayed.end();
  };
  samples->erase(std::remove_if(samples->begin(), samples->end(), has_gone), samples->end());
  return true;
}

}  // namespace slice_counters
