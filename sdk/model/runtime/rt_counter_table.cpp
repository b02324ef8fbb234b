#include "model/runtime/rt_counter_table.h"

namespace jxmodel {

RtCounterTable::RtCounterTable(const DeviceCore& device, const RtInfo& info, TableState& state)
    : RtTable(device, info, state,
              {{{kFieldCounterPkts, JX_RT_FIELD_COUNTER_PKTS, 64},
                {kFieldCounterBytes, JX_RT_FIELD_COUNTER_BYTES, 64}},
               false}) {}

uint32_t RtCounterTable::slotOf(const RtTableKey& key) const {
  return key.number() < description().size ? key.number() : kNoSlot;
}

uint32_t RtCounterTable::usedFrom(uint64_t slot) const {
  return slot < description().size ? static_cast<uint32_t>(slot) : kNoSlot;
}

void RtCounterTable::readData(uint32_t slot, uint64_t flags, RtTableData* data) const {
  CounterTable::Pair pair;  // zero where no hardware counts
  if (const CounterTable* const counters = state().counters.get()) {
    pair = (flags & JX_RT_FLAG_FROM_HARDWARE) != 0 ? counters->read(slot) : counters->copied(slot);
  }
  data->packets = pair.packets;
  data->bytes = pair.bytes;
}

void RtCounterTable::startSync(const RtTableOperations::CounterSync& sync,
                               std::chrono::milliseconds delay) const {
  // By value: the operation may have gone when its turn comes. The tables stay as long as the
  // thread runs, but a callback that removes the device takes them away.
  device().dispatch()->post(
      [counters = state().counters.get(), wanted = sync]() mutable {
        counters->sync();
        if (wanted.callback != nullptr) wanted.callback(&wanted.target, wanted.cookie);
      },
      delay);
}

}  // namespace jxmodel
