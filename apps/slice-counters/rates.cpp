#include "rates.h"

#include <utility>

namespace slice_counters {
namespace {

uint64_t increase(uint64_t before, uint64_t now) { return now >= before ? now - before : now; }

}  // namespace

void TableHistory::add(BlockSample sample) {
  const bool same_block = sample.block == latest_.block;
  const bool goes_back = sample.last_sync_ms < latest_.last_sync_ms;
  if (!same_block || goes_back) {
    before_.reset();
    latest_ = std::move(sample);
    return;
  }
  if (sample.last_sync_ms == latest_.last_sync_ms) return;
  // Before its first sync a block has been counting for nobody knows how long.
  if (latest_.last_sync_ms != 0) before_ = std::move(latest_);
  latest_ = std::move(sample);
}

std::optional<uint64_t> TableHistory::intervalMs() const {
  if (!before_) return std::nullopt;
  return latest_.last_sync_ms - before_->last_sync_ms;
}

std::optional<Rate> TableHistory::rate(uint32_t index) const {
  const std::optional<uint64_t> interval = intervalMs();
  if (!interval) return std::nullopt;
  const double seconds = static_cast<double>(*interval) / kMsPerSecond;
  const PartnerCounterEntry& now = latest_.counters[index];
  const PartnerCounterEntry& then = before_->counters[index];
  return Rate{static_cast<double>(increase(then.packets, now.packets)) / seconds,
              static_cast<double>(increase(then.bytes, now.bytes)) / seconds};
}

void Histories::update(std::vector<BlockSample> samples) {
  std::map<uint32_t, TableHistory> tables;
  for (BlockSample& sample : samples) {
    const uint32_t id = sample.block.table_id;
    const auto known = tables_.find(id);
    if (known != tables_.end()) tables[id] = std::move(known->second);
    tables[id].add(std::move(sample));
  }
  tables_ = std::move(tables);
}

}  // namespace slice_counters
