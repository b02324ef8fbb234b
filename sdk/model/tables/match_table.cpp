#include "model/tables/match_table.h"

#include <absl/container/inlined_vector.h>

#include <cstring>

#include "model/base/clock.h"

namespace jxmodel {

MatchTable::MatchTable(const Program&, const Table& table, ActionDataTable* members,
                       SelectorTable* groups, std::optional<uint32_t> handle_base,
                       Reclaimer* reclaimer)
    : table_(table),
      codec_(table),
      members_(members),
      groups_(groups),
      reclaimer_(reclaimer),
      // One record more than entries: the default entry's.
      store_(tupleOffset() + (table.has_priority ? TupleSpace::ownBytes(codec_) : 0),
             table.size + 1, reclaimer),
      handles_(table, handle_base),
      keys_(store_, kKeyOffset, table.key_bytes, reclaimer) {
  if (table.has_priority) {
    tuples_ = std::make_unique<TupleSpace>(codec_, store_, kKeyOffset, tupleOffset(), reclaimer);
    return;
  }
  for (const KeyField& field : table.key) {
    if (field.match != JX_RT_MATCH_LPM) continue;
    prefix_field_ = &field;
    prefix_offset_ = field.offset + field.value_bytes;
  }
  if (prefix_field_ != nullptr) writePrefixMasks();
}

/// What makes the key of each length out of one whose length byte is all ones.
void MatchTable::writePrefixMasks() {
  const size_t words = wordsOf(codec_.keyBytes());
  prefix_masks_.assign(words * (prefix_field_->width + 1), ~uint64_t{0});
  for (uint32_t length = 0; length <= prefix_field_->width; ++length) {
    auto* const mask = reinterpret_cast<uint8_t*>(&prefix_masks_[length * words]);
    writePrefixMask(mask + prefix_field_->offset, prefix_field_->width, length);
    mask[prefix_offset_] = static_cast<uint8_t>(length);
  }
}

MatchTable::~MatchTable() {
  for (uint32_t slot = 0; slot < end(); ++slot) {
    if (store_.used(slot)) ActionRecord::destroy(recordIn(entry(slot).result));
  }
}

void MatchTable::countIn(CounterTable* counters) {
  counters_ = std::make_unique<DirectCounters>(*counters);
}

jx_status_t MatchTable::add(const Addition& addition, uint32_t* slot) {
  if (findKey(addition.key) != kNoSlot) return JX_ALREADY_EXISTS;
  if (count() == table_.size) return JX_NOT_ENOUGH_SPACE;
  const uint32_t free = store_.peek();
  const uint32_t handle = addition.handle != 0 ? addition.handle : handles_.next(free);
  if (!handles_.bind(handle, free)) return JX_ALREADY_EXISTS;
  // The key set reads keys where they will stay, and packets may find the entry as soon as it is in
  // the set: the record is written before.
  std::memcpy(store_.at(free) + kKeyOffset, addition.key, codec_.keyBytes());
  store_.take(free, handle);
  fill(free, addition.priority, addition.ttl_ms, addition.result);
  if (counters_) entry(free).count_index.store(counters_->take(handle), std::memory_order_relaxed);
  const Sequence::Change change(sequence_);
  keys_.insert(free);
  if (prefix_field_ != nullptr) countPrefix(free, 1);
  if (tuples_) tuples_->add(free);
  *slot = free;
  return JX_SUCCESS;
}

void MatchTable::modify(uint32_t slot, uint32_t ttl_ms, const MatchResult& result) {
  reference(result);
  dereference(resultOf(slot));
  entry(slot).ttl_ms.store(ttl_ms, std::memory_order_relaxed);
  entry(slot).activity.store(timeOfWrite(), std::memory_order_release);
  // One store: no Change, a packet that looks up meanwhile has no reason to do it again.
  const ResultWord before = entry(slot).result.exchange(wordOf(result), std::memory_order_acq_rel);
  ActionRecord::retire(reclaimer_, recordIn(before));
}

void MatchTable::move(uint32_t slot, uint32_t priority) {
  const Sequence::Change change(sequence_);
  if (tuples_) tuples_->move(slot, priority);
}

void MatchTable::remove(uint32_t slot) {
  const Sequence::Change change(sequence_);
  if (tuples_) tuples_->remove(slot);
  if (prefix_field_ != nullptr) countPrefix(slot, -1);
  keys_.erase(slot);
  release(slot);
}

/// Writes all of a record but its key.
void MatchTable::fill(uint32_t slot, uint32_t priority, uint32_t ttl_ms,
                      const MatchResult& result) {
  reference(result);
  Entry& filled = entry(slot);
  filled.priority.store(priority, std::memory_order_relaxed);
  filled.next.store(kNoSlot, std::memory_order_relaxed);
  filled.ttl_ms.store(ttl_ms, std::memory_order_relaxed);
  filled.count_index.store(kNoSlot, std::memory_order_relaxed);
  filled.activity.store(timeOfWrite(), std::memory_order_relaxed);
  filled.result.store(wordOf(result), std::memory_order_release);
}

uint64_t MatchTable::timeOfWrite() const {
  return table_.idle_timeout ? Clock::instance().now() & kTime : 0;
}

bool MatchTable::markAged(uint32_t slot, uint64_t last_active, bool aged) {
  uint64_t before = activityOf(slot);
  const bool was_aged = (before & kAged) != 0;
  if ((before & kTime) != last_active || was_aged == aged) return false;
  return entry(slot).activity.compare_exchange_strong(before, before ^ kAged,
                                                      std::memory_order_acq_rel);
}

/// Gives the slot back. Packets that found the entry before see what it was.
void MatchTable::release(uint32_t slot) {
  dereference(resultOf(slot));
  handles_.unbind(handleOf(slot));
  if (counters_) {
    counters_->giveBack(entry(slot).count_index.exchange(kNoSlot, std::memory_order_relaxed));
  }
  ActionRecord::retire(reclaimer_, recordIn(entry(slot).result));
  store_.release(slot);
}

jx_status_t MatchTable::setDefault(uint32_t handle, const MatchResult& result) {
  const uint32_t present = defaultEntry();
  if (present != kNoSlot && (handles_.givesOut() || handleOf(present) == handle)) {
    modify(present, 0, result);
    return JX_SUCCESS;
  }
  if (!handles_.givesOut() && handles_.slotOf(handle) != kNoSlot) return JX_ALREADY_EXISTS;
  const Sequence::Change change(sequence_);
  if (present != kNoSlot) clearDefault();
  const uint32_t free = store_.peek();
  const uint32_t given = handles_.givesOut() ? handles_.nextDefault(free) : handle;
  handles_.bind(given, free);
  store_.take(free, given);
  std::memset(store_.at(free) + kKeyOffset, 0, codec_.keyBytes());
  fill(free, 0, 0, result);
  default_.store(free, std::memory_order_release);
  return JX_SUCCESS;
}

void MatchTable::clearDefault() {
  const Sequence::Change change(sequence_);
  const uint32_t present = defaultEntry();
  default_.store(kNoSlot, std::memory_order_release);
  release(present);
}

uint32_t MatchTable::findHandle(uint32_t handle) const {
  const uint32_t slot = handles_.slotOf(handle);
  return used(slot) ? slot : kNoSlot;
}

MatchTable::ResultWord MatchTable::wordOf(const MatchResult& result) {
  if (result.kind == MatchResult::Kind::kAction) {
    return reinterpret_cast<ResultWord>(ActionRecord::make(result.action));
  }
  return ResultWord{result.slot} << 2 | static_cast<ResultWord>(result.kind);
}

MatchResult MatchTable::resultIn(ResultWord word) {
  MatchResult result;
  result.kind = static_cast<MatchResult::Kind>(word & 3);
  if (result.kind == MatchResult::Kind::kAction) {
    result.action = recordIn(word)->bound();
  } else {
    result.slot = static_cast<uint32_t>(word >> 2);
  }
  return result;
}

/// Null where the entry has no action of its own.
const ActionRecord* MatchTable::recordIn(ResultWord word) {
  // One word holds either a pointer or a tagged slot, so that it can be swapped at once.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return (word & 3) == 0 ? reinterpret_cast<const ActionRecord*>(word) : nullptr;
}

MatchResult MatchTable::resultOf(uint32_t slot) const {
  return resultIn(entry(slot).result.load(std::memory_order_acquire));
}

void MatchTable::reference(const MatchResult& result) {
  if (result.kind == MatchResult::Kind::kMember) members_->reference(result.slot);
  if (result.kind == MatchResult::Kind::kGroup) groups_->reference(result.slot);
}

void MatchTable::dereference(const MatchResult& result) {
  if (result.kind == MatchResult::Kind::kMember) members_->dereference(result.slot);
  if (result.kind == MatchResult::Kind::kGroup) groups_->dereference(result.slot);
}

uint32_t MatchTable::lookup(const uint8_t* values) const {
  if (tuples_) return tuples_->lookup(values);
  if (prefix_field_ != nullptr) return lookupPrefix(values);
  return keys_.find(values);  // exact fields only: packet values are the packed key
}

MatchTable::Applied MatchTable::apply(const uint8_t* values) const {
  Applied applied;
  applied.slot = lookup(values);
  applied.hit = applied.slot != kNoSlot;
  if (!applied.hit) applied.slot = defaultEntry();
  if (applied.slot == kNoSlot) return applied;
  applied.handle = entry(applied.slot).handle.load(std::memory_order_acquire);
  applied.result = resultOf(applied.slot);
  return applied;
}

bool MatchTable::tryApply(const uint8_t* values, Applied* applied) const {
  return sequence_.read([&] { *applied = apply(values); });
}

void MatchTable::packValues(const uint8_t* values, uint8_t* key) const {
  for (const KeyField& field : table_.key) {
    std::memcpy(key + field.offset, values, field.value_bytes);
    values += field.value_bytes;
  }
}

void MatchTable::countPrefix(uint32_t slot, int difference) {
  const uint32_t length = keyOf(slot)[prefix_offset_];
  lengths_[length] += static_cast<uint32_t>(difference);
  std::atomic<uint64_t>& word = present_[length / 64];
  const uint64_t bit = uint64_t{1} << length % 64;
  const uint64_t others = word.load(std::memory_order_relaxed) & ~bit;
  const uint64_t wanted = others | (lengths_[length] == 0 ? 0 : bit);
  // Written only where it changes: every packet reads it.
  if (wanted != word.load(std::memory_order_relaxed)) {
    word.store(wanted, std::memory_order_release);
  }
}

uint32_t MatchTable::lookupPrefix(const uint8_t* values) const {
  // Lengths are tried from the longest down, some at a time, so that the memory of all of those is
  // fetched at once.
  constexpr uint32_t kAtATime = 8;
  const size_t words = wordsOf(codec_.keyBytes());
  absl::InlinedVector<uint64_t, 64> room((kAtATime + 1) * words);
  uint64_t* const longest = room.data();  // with the length byte all ones: masks leave a length
  packValues(values, reinterpret_cast<uint8_t*>(longest));
  reinterpret_cast<uint8_t*>(longest)[prefix_offset_] = 0xFF;

  struct Probe {
    uint32_t hash;
    uint64_t* key;
  };
  Probe probes[kAtATime];
  for (uint32_t i = 0; i < kAtATime; ++i) probes[i].key = longest + (i + 1) * words;
  uint32_t count = 0;
  const auto addProbe = [&](uint32_t length) {
    Probe& probe = probes[count++];
    probe.hash = maskAndHash(longest, &prefix_masks_[length * words], words, probe.key);
    keys_.prefetch(probe.hash);
  };
  const auto findProbed = [&] {
    for (uint32_t i = 0; i < count; ++i) {
      const auto* const key = reinterpret_cast<const uint8_t*>(probes[i].key);
      const uint32_t slot = keys_.find(probes[i].hash, key);
      if (slot != kNoSlot) return slot;
    }
    return kNoSlot;
  };

  for (uint32_t word = kLengthWords; word-- > 0;) {
    uint64_t lengths = present_[word].load(std::memory_order_acquire);
    while (lengths != 0) {
      const uint32_t top = 63 - static_cast<uint32_t>(__builtin_clzll(lengths));
      lengths &= ~(uint64_t{1} << top);
      addProbe(word * 64 + top);
      if (count < kAtATime) continue;
      const uint32_t slot = findProbed();
      if (slot != kNoSlot) return slot;
      count = 0;
    }
  }
  return findProbed();
}

}  // namespace jxmodel
