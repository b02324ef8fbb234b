#include "model/match_table.h"

#include <cstring>
#include <vector>

namespace jxmodel {

MatchTable::MatchTable(const Program& program, const Table& table, ActionDataTable* members,
                       SelectorTable* groups, std::optional<uint32_t> handle_base)
    : table_(table),
      codec_(table),
      members_(members),
      groups_(groups),
      // One record more than entries: the default entry's.
      store_(sizeof(Entry) + table.key_bytes +
                 (members == nullptr ? maxParamBytes(program, table) : 0),
             table.size + 1),
      handles_(handle_base),
      keys_(store_, sizeof(Entry), table.key_bytes) {
  if (table.has_priority) {
    tuples_ = std::make_unique<TupleSpace>(codec_);
    return;
  }
  for (const KeyField& field : table.key) {
    if (field.match != JX_RT_MATCH_LPM) continue;
    prefix_field_ = &field;
    prefix_offset_ = field.offset + field.value_bytes;
  }
}

jx_status_t MatchTable::add(const Addition& addition, uint32_t* slot) {
  if (count() == table_.size) {
    return findKey(addition.key) == kNoSlot ? JX_NOT_ENOUGH_SPACE : JX_ALREADY_EXISTS;
  }
  const uint32_t free = store_.peek();
  const uint32_t handle = handles_.givesOut() ? handles_.handleOf(free) : addition.handle;
  if (!handles_.bind(handle, free)) return JX_ALREADY_EXISTS;
  // The key set reads keys where they will stay: written before the slot is taken.
  std::memcpy(store_.at(free) + sizeof(Entry), addition.key, codec_.keyBytes());
  if (!keys_.insert(free)) {
    handles_.unbind(handle);
    return JX_ALREADY_EXISTS;
  }
  store_.take(free, handle);
  entry(free).priority = addition.priority;
  entry(free).ttl_ms = addition.ttl_ms;
  reference(addition.result);
  write(free, addition.result);
  if (prefix_field_ != nullptr) ++lengthCount(free);
  if (tuples_) tuples_->add(itemOf(free));
  *slot = free;
  return JX_SUCCESS;
}

void MatchTable::modify(uint32_t slot, uint32_t ttl_ms, const MatchResult& result) {
  reference(result);
  dereference(resultOf(slot));
  entry(slot).ttl_ms = ttl_ms;
  write(slot, result);
}

void MatchTable::move(uint32_t slot, uint32_t priority) {
  if (tuples_) tuples_->remove(itemOf(slot));
  entry(slot).priority = priority;
  if (tuples_) tuples_->add(itemOf(slot));
}

void MatchTable::remove(uint32_t slot) {
  if (tuples_) tuples_->remove(itemOf(slot));
  if (prefix_field_ != nullptr) --lengthCount(slot);
  dereference(resultOf(slot));
  keys_.erase(slot);
  handles_.unbind(handleOf(slot));
  store_.release(slot);
}

jx_status_t MatchTable::setDefault(uint32_t handle, const MatchResult& result) {
  if (default_ != kNoSlot && (handles_.givesOut() || handleOf(default_) == handle)) {
    modify(default_, 0, result);
    return JX_SUCCESS;
  }
  if (!handles_.givesOut() && handles_.slotOf(handle) != kNoSlot) return JX_ALREADY_EXISTS;
  if (default_ != kNoSlot) clearDefault();
  const uint32_t free = store_.peek();
  const uint32_t given = handles_.givesOut() ? handles_.handleOf(free) : handle;
  handles_.bind(given, free);
  store_.take(free, given);
  entry(free).priority = 0;
  entry(free).ttl_ms = 0;
  std::memset(store_.at(free) + sizeof(Entry), 0, codec_.keyBytes());
  reference(result);
  write(free, result);
  default_ = free;
  return JX_SUCCESS;
}

void MatchTable::clearDefault() {
  dereference(resultOf(default_));
  handles_.unbind(handleOf(default_));
  store_.release(default_);
  default_ = kNoSlot;
}

uint32_t MatchTable::findHandle(uint32_t handle) const {
  const uint32_t slot = handles_.slotOf(handle);
  return used(slot) ? slot : kNoSlot;
}

MatchResult MatchTable::resultOf(uint32_t slot) const {
  const Entry& stored = entry(slot);
  MatchResult result;
  result.kind = stored.kind;
  if (stored.kind == MatchResult::Kind::kAction) {
    result.action = {stored.action, store_.at(slot) + paramOffset()};
  } else {
    result.slot = stored.target;
  }
  return result;
}

void MatchTable::reference(const MatchResult& result) {
  if (result.kind == MatchResult::Kind::kMember) members_->reference(result.slot);
  if (result.kind == MatchResult::Kind::kGroup) groups_->reference(result.slot);
}

void MatchTable::dereference(const MatchResult& result) {
  if (result.kind == MatchResult::Kind::kMember) members_->dereference(result.slot);
  if (result.kind == MatchResult::Kind::kGroup) groups_->dereference(result.slot);
}

void MatchTable::write(uint32_t slot, const MatchResult& result) {
  Entry& stored = entry(slot);
  stored.kind = result.kind;
  stored.target = result.slot;
  stored.action = result.action.action;
  if (stored.action == nullptr || stored.action->param_bytes == 0) return;
  std::memcpy(store_.at(slot) + paramOffset(), result.action.params, stored.action->param_bytes);
}

uint32_t MatchTable::lookup(const uint8_t* values) const {
  if (tuples_) return tuples_->lookup(values);
  if (prefix_field_ != nullptr) return lookupPrefix(values);
  return keys_.find(values);  // exact fields only: packet values are the packed key
}

void MatchTable::packValues(const uint8_t* values, uint8_t* key) const {
  for (const KeyField& field : table_.key) {
    std::memcpy(key + field.offset, values, field.value_bytes);
    values += field.value_bytes;
  }
}

uint32_t MatchTable::lookupPrefix(const uint8_t* values) const {
  // From the longest length on, the value only loses bits: one buffer serves all lengths.
  std::vector<uint8_t> key(codec_.keyBytes());
  packValues(values, key.data());
  uint8_t* const prefix = key.data() + prefix_field_->offset;
  uint8_t mask[kMaxKeyWidth / 8];
  for (uint32_t length = prefix_field_->width + 1; length-- > 0;) {
    if (lengths_[length] == 0) continue;
    writePrefixMask(mask, prefix_field_->width, length);
    for (uint32_t i = 0; i < prefix_field_->value_bytes; ++i) {
      prefix[i] = static_cast<uint8_t>(prefix[i] & mask[i]);
    }
    key[prefix_offset_] = static_cast<uint8_t>(length);
    const uint32_t slot = keys_.find(key.data());
    if (slot != kNoSlot) return slot;
  }
  return kNoSlot;
}

}  // namespace jxmodel
