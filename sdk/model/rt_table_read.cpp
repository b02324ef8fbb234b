// Reads of tables: sizes, entries, handles, defaults.
#include <mutex>

#include "model/device.h"
#include "model/faults.h"
#include "model/rt_info.h"
#include "model/rt_table.h"

namespace jxmodel {

using Lock = std::lock_guard<std::mutex>;

std::unique_lock<std::mutex> RtTable::lockEntries() const {
  if (isCounter()) return {};
  return std::unique_lock(device_.mutex());
}

jx_status_t RtTable::checkRead(const jx_rt_target_t& target, uint64_t flags) const {
  if ((flags & ~JX_RT_FLAG_FROM_HARDWARE) != 0) return JX_INVALID_ARGUMENTS;
  return checkTarget(target);
}

jx_status_t RtTable::tableSizeGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                  uint64_t flags, size_t* size) const {
  JXMODEL_ENTRY("JxRtTable::tableSizeGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  if (size == nullptr) return JX_INVALID_ARGUMENTS;
  *size = description().size;
  return JX_SUCCESS;
}

jx_status_t RtTable::tableUsageGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, uint32_t* count) const {
  JXMODEL_ENTRY("JxRtTable::tableUsageGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  if (count == nullptr) return JX_INVALID_ARGUMENTS;
  const auto lock = lockEntries();
  *count = isCounter() ? description().size : 0;
  if (state_.match) *count = state_.match->count();
  if (state_.members) *count = state_.members->count();
  if (state_.groups) *count = state_.groups->count();
  return JX_SUCCESS;
}

uint32_t RtTable::slotOf(const RtTableKey& key) const {
  if (state_.match) return state_.match->findKey(key.packed());
  if (state_.members) return state_.members->findId(key.number());
  if (state_.groups) return state_.groups->findId(key.number());
  return key.number() < description().size ? key.number() : kNoSlot;
}

uint32_t RtTable::handleOf(uint32_t slot) const {
  if (isCounter()) return slot;
  if (state_.match) return state_.match->handleOf(slot);
  return state_.members ? state_.members->handleOf(slot) : state_.groups->handleOf(slot);
}

uint32_t RtTable::usedFrom(uint64_t slot) const {
  if (isCounter()) return slot < description().size ? static_cast<uint32_t>(slot) : kNoSlot;
  const auto firstUsed = [slot](const auto& table) {
    for (uint64_t at = slot; at < table.end(); ++at) {
      if (table.used(static_cast<uint32_t>(at))) return static_cast<uint32_t>(at);
    }
    return kNoSlot;
  };
  if (state_.match) return firstUsed(*state_.match);
  if (state_.members) return firstUsed(*state_.members);
  return firstUsed(*state_.groups);
}

void RtTable::readKey(uint32_t slot, RtTableKey* key) const {
  if (isCounter()) return key->assignNumber(slot);
  if (state_.match) return key->assign(state_.match->keyOf(slot), state_.match->priorityOf(slot));
  key->assignNumber(state_.members ? state_.members->idOf(slot) : state_.groups->group(slot).id);
}

void RtTable::readResult(const MatchResult& result, RtTableData* data) const {
  data->member_id = data->group_id = std::nullopt;
  switch (result.kind) {
    case MatchResult::Kind::kAction:
      return data->assignAction(result.action.action, result.action.params);
    case MatchResult::Kind::kMember:
      data->member_id = state_.member_state->members->idOf(result.slot);
      return;
    case MatchResult::Kind::kGroup:
      data->group_id = state_.group_state->groups->group(result.slot).id;
      return;
  }
}

void RtTable::readGroup(uint32_t slot, RtTableData* data) const {
  const SelectorTable::Group& group = state_.groups->group(slot);
  data->max_members = group.max_members;
  data->members.emplace();
  data->members_active.emplace();
  for (const SelectorTable::Member& member : group.members) {
    data->members->push_back(state_.groups->memberTable().idOf(member.slot));
    data->members_active->push_back(member.active);
  }
}

void RtTable::readCounter(uint32_t index, uint64_t flags, RtTableData* data) const {
  CounterTable::Pair pair;  // zero where no hardware counts
  if (const CounterTable* const counters = state_.counters.get()) {
    pair =
        (flags & JX_RT_FLAG_FROM_HARDWARE) != 0 ? counters->read(index) : counters->copied(index);
  }
  data->packets = pair.packets;
  data->bytes = pair.bytes;
}

void RtTable::readData(uint32_t slot, uint64_t flags, RtTableData* data) const {
  if (isCounter()) return readCounter(slot, flags, data);
  if (state_.groups) return readGroup(slot, data);
  if (state_.members) {
    const BoundAction action = state_.members->actionOf(slot);
    return data->assignAction(action.action, action.params);
  }
  readResult(state_.match->resultOf(slot), data);
  if (description().idle_timeout) data->ttl_ms = state_.match->ttlOf(slot);
}

jx_status_t RtTable::tableEntryGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableKey& key,
                                   jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_data == nullptr) return JX_INVALID_ARGUMENTS;
  const auto lock = lockEntries();
  const uint32_t slot = slotOf(*own_key);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  readData(slot, flags, own_data);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntryGetFirst(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                        uint64_t flags, jxrt::JxRtTableKey* key,
                                        jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryGetFirst");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  RtTableKey* const own_key = own(key);
  RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_data == nullptr) return JX_INVALID_ARGUMENTS;
  const auto lock = lockEntries();
  const uint32_t slot = usedFrom(0);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  readKey(slot, own_key);
  readData(slot, flags, own_data);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntryGetNext(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                       uint64_t flags, const jxrt::JxRtTableKey& key,
                                       jxrt::JxRtTableKey* next_key,
                                       jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryGetNext");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  RtTableKey* const own_next = own(next_key);
  RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_next == nullptr || own_data == nullptr) {
    return JX_INVALID_ARGUMENTS;
  }
  const auto lock = lockEntries();
  const uint32_t slot = slotOf(*own_key);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  const uint32_t next = usedFrom(uint64_t{slot} + 1);
  if (next == kNoSlot) return JX_OBJECT_NOT_FOUND;
  readKey(next, own_next);
  readData(next, flags, own_data);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntriesGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                     uint64_t flags, uint64_t* cursor, uint32_t count,
                                     std::vector<Entry>* entries) const {
  JXMODEL_ENTRY("JxRtTable::tableEntriesGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  if (cursor == nullptr || entries == nullptr) return JX_INVALID_ARGUMENTS;
  // The cursor is the slot to go on from: an entry keeps its slot as long as it stays.
  const auto lock = lockEntries();
  for (uint32_t seen = 0; seen < count; ++seen) {
    const uint32_t slot = usedFrom(*cursor);
    if (slot == kNoSlot) break;
    auto key = std::make_unique<RtTableKey>(*this);
    auto data = std::make_unique<RtTableData>(*this, nullptr);
    readKey(slot, key.get());
    readData(slot, flags, data.get());
    entries->push_back(Entry{handleOf(slot), std::move(key), std::move(data)});
    *cursor = uint64_t{slot} + 1;
  }
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntryHandleGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         const jxrt::JxRtTableKey& key, uint32_t* handle) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryHandleGet");
  const jx_status_t status = checkTarget(target);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  if (own_key == nullptr || handle == nullptr) return JX_INVALID_ARGUMENTS;
  const auto lock = lockEntries();
  const uint32_t slot = slotOf(*own_key);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  *handle = handleOf(slot);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableDefaultEntryGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                          uint64_t flags, jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::tableDefaultEntryGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  RtTableData* const own_data = own(data);
  if (own_data == nullptr) return JX_INVALID_ARGUMENTS;
  if (!state_.match) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  const uint32_t slot = state_.match->defaultEntry();
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  readResult(state_.match->resultOf(slot), own_data);
  return JX_SUCCESS;
}

jx_status_t RtTable::fallbackGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                 uint32_t* member_id) const {
  JXMODEL_ENTRY("JxRtTable::fallbackGet");
  const jx_status_t status = checkTarget(target);
  if (status != JX_SUCCESS) return status;
  if (member_id == nullptr) return JX_INVALID_ARGUMENTS;
  if (!state_.groups) return JX_NOT_SUPPORTED;
  const Lock lock(device_.mutex());
  const uint32_t slot = state_.groups->fallback();
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  *member_id = state_.groups->memberTable().idOf(slot);
  return JX_SUCCESS;
}

}  // namespace jxmodel
