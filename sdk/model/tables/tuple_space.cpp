#include "model/tables/tuple_space.h"

#include <absl/container/inlined_vector.h>

#include <cstring>

#include "model/tables/key_set.h"

namespace jxmodel {
namespace {

constexpr uint32_t kFirstTuples = 16;
constexpr auto kAcquire = std::memory_order_acquire;
constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr auto kRelease = std::memory_order_release;

uint8_t* bytesIn(std::string* text) { return reinterpret_cast<uint8_t*>(text->data()); }

const uint8_t* bytesIn(const uint64_t* words) { return reinterpret_cast<const uint8_t*>(words); }

std::vector<uint64_t> wordsIn(const std::string& bytes) {
  std::vector<uint64_t> words(wordsOf(bytes.size()));
  std::memcpy(words.data(), bytes.data(), bytes.size());
  return words;
}

}  // namespace

TupleSpace::Tuple::Tuple(std::string bits, Reclaimer* reclaimer)
    : mask(std::move(bits)), words(wordsIn(mask)), chains(reclaimer) {}

TupleSpace::TupleSpace(const KeyCodec& codec, SlotStore& store, size_t key_offset,
                       size_t own_offset, Reclaimer* reclaimer)
    : codec_(codec),
      store_(store),
      key_offset_(key_offset),
      rank_offset_(own_offset),
      values_offset_(own_offset + sizeof(Rank)),
      reclaimer_(reclaimer),
      list_(new List(kFirstTuples)) {}

TupleSpace::~TupleSpace() {
  for (const auto& [mask, tuple] : by_mask_) delete tuple;
  delete list_.load(kRelaxed);
}

uint32_t TupleSpace::hashOf(const uint8_t* masked) const {
  return slotHashOf(masked, codec_.valueBytes());
}

uint32_t TupleSpace::firstOf(const Tuple& tuple, uint32_t hash, const uint8_t* masked) const {
  return tuple.chains.find(hash, [this, masked](uint32_t slot) {
    return sameBytes(valuesOf(slot), masked, codec_.valueBytes());
  });
}

TupleSpace::Tuple& TupleSpace::tupleOf(const std::string& mask) {
  Tuple*& tuple = by_mask_[mask];
  if (tuple == nullptr) {
    tuple = new Tuple(mask, reclaimer_);
    append(tuple);
  }
  return *tuple;
}

void TupleSpace::append(Tuple* tuple) {
  List* const old = list_.load(kRelaxed);
  const uint32_t count = old->count.load(kRelaxed);
  List* const list = count == old->capacity ? new List(count * 2) : old;
  if (list != old) {
    for (uint32_t i = 0; i < count; ++i) {
      list->at[i].store(old->at[i].load(kRelaxed), kRelaxed);
    }
  }
  list->at[count].store(tuple, kRelease);
  list->count.store(count + 1, kRelease);
  if (list == old) return;
  list_.store(list, kRelease);
  // Only now: a packet that found the old list after its grace period had begun would outlive it.
  retire(reclaimer_, old);
}

void TupleSpace::drop(Tuple* tuple) {
  List& list = *list_.load(kRelaxed);
  const uint32_t last = list.count.load(kRelaxed) - 1;
  uint32_t at = 0;
  while (list.at[at].load(kRelaxed) != tuple) ++at;
  for (; at < last; ++at) list.at[at].store(list.at[at + 1].load(kRelaxed), kRelease);
  list.count.store(last, kRelease);
  by_mask_.erase(tuple->mask);
  retire(reclaimer_, tuple);
}

void TupleSpace::raise(Tuple* tuple, uint32_t priority) {
  if (tuple->count != 0 && tuple->max_priority.load(kRelaxed) >= priority) return;
  tuple->max_priority.store(priority, kRelease);
  List& list = *list_.load(kRelaxed);
  uint32_t at = 0;
  while (list.at[at].load(kRelaxed) != tuple) ++at;
  for (; at > 0; --at) {
    Tuple* const before = list.at[at - 1].load(kRelaxed);
    if (before->max_priority.load(kRelaxed) >= priority) break;
    list.at[at].store(before, kRelease);
  }
  list.at[at].store(tuple, kRelease);
}

bool TupleSpace::wins(uint32_t slot, uint32_t other) const {
  const uint32_t own = record(slot).priority.load(kAcquire);
  const uint32_t others = record(other).priority.load(kAcquire);
  if (own != others) return own > others;
  return rankOf(slot).added.load(kAcquire) < rankOf(other).added.load(kAcquire);
}

void TupleSpace::add(uint32_t slot) {
  auto& rank = *reinterpret_cast<Rank*>(store_.at(slot) + rank_offset_);
  rank.added.store(++adds_, kRelease);
  link(slot);
}

void TupleSpace::move(uint32_t slot, uint32_t priority) {
  remove(slot);
  record(slot).priority.store(priority, kRelease);
  link(slot);
}

void TupleSpace::link(uint32_t slot) {
  std::string mask(codec_.valueBytes(), '\0');
  uint8_t* const values = store_.at(slot) + values_offset_;
  std::string compared(codec_.valueBytes(), '\0');
  codec_.compared(keyOf(slot), bytesIn(&mask), bytesIn(&compared));
  // An entry that moves has its values already, and readers may be at them.
  if (std::memcmp(values, compared.data(), compared.size()) != 0) {
    std::memcpy(values, compared.data(), compared.size());
  }
  Tuple& tuple = tupleOf(mask);
  RankedRecord& added = record(slot);
  raise(&tuple, added.priority.load(kRelaxed));
  ++tuple.count;

  const uint32_t hash = hashOf(values);
  const uint32_t first = firstOf(tuple, hash, values);
  if (first == kNoSlot || wins(slot, first)) {
    added.next.store(first, kRelease);
    if (first != kNoSlot) return tuple.chains.replace(hash, first, slot);
    tuple.filter.add(hash);
    return tuple.chains.insert(hash, slot);
  }
  uint32_t before = first;
  for (uint32_t next; (next = record(before).next.load(kRelaxed)) != kNoSlot; before = next) {
    if (wins(slot, next)) break;
  }
  added.next.store(record(before).next.load(kRelaxed), kRelease);
  record(before).next.store(slot, kRelease);
}

void TupleSpace::remove(uint32_t slot) {
  std::string mask(codec_.valueBytes(), '\0');
  std::string values(codec_.valueBytes(), '\0');
  codec_.compared(keyOf(slot), bytesIn(&mask), bytesIn(&values));
  Tuple* const tuple = by_mask_.find(mask)->second;
  const uint32_t hash = hashOf(bytesIn(&values));
  const uint32_t first = firstOf(*tuple, hash, bytesIn(&values));
  const uint32_t next = record(slot).next.load(kRelaxed);
  if (first != slot) {
    uint32_t before = first;
    while (record(before).next.load(kRelaxed) != slot) before = record(before).next.load(kRelaxed);
    record(before).next.store(next, kRelease);
  } else if (next != kNoSlot) {
    tuple->chains.replace(hash, slot, next);
  } else {
    tuple->filter.remove(hash);
    tuple->chains.erase(hash, slot);
  }
  if (--tuple->count == 0) drop(tuple);
}

/// The entry of the tuple that matches and wins over `best`; else `best`. `masked` has room for the
/// words of `values`.
uint32_t TupleSpace::winnerOf(const Tuple& tuple, const uint64_t* values, uint64_t* masked,
                              uint32_t best) const {
  const uint32_t hash = maskAndHash(values, tuple.words.data(), tuple.words.size(), masked);
  if (!tuple.filter.mayHave(hash)) return best;
  uint32_t slot = firstOf(tuple, hash, bytesIn(masked));
  for (; slot != kNoSlot; slot = record(slot).next.load(kAcquire)) {
    if (best != kNoSlot && !wins(slot, best)) return best;
    if (codec_.inRanges(keyOf(slot), bytesIn(values))) return slot;
  }
  return best;
}

uint32_t TupleSpace::lookup(const uint8_t* packed) const {
  const size_t words = wordsOf(codec_.valueBytes());
  absl::InlinedVector<uint64_t, 16> room(2 * words);
  uint64_t* const values = room.data();
  uint64_t* const masked = values + words;
  std::memcpy(values, packed, codec_.valueBytes());
  const List& list = *list_.load(kAcquire);
  const uint32_t count = list.count.load(kAcquire);
  uint32_t best = kNoSlot;
  for (uint32_t i = 0; i < count; ++i) {
    const Tuple& tuple = *list.at[i].load(kAcquire);
    // The tuples from here on hold nothing that wins.
    if (best != kNoSlot &&
        tuple.max_priority.load(kAcquire) < record(best).priority.load(kAcquire)) {
      break;
    }
    best = winnerOf(tuple, values, masked, best);
  }
  return best;
}

}  // namespace jxmodel
