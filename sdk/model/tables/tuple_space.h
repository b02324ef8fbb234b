// Packet lookup in a table whose entries have priorities: tuple space search. Entries that compare
// the same bits make a tuple, which is a hash table from the values of those bits to a chain; a
// chain's entries differ in their ranges and stand in the order in which they win. Chains run
// through the entries' own records, so an add allocates only where a tuple is new.
//
// One writer. Readers stand in a ReadSection and check a Sequence afterwards: while tuples or
// chains are relinked they may miss an entry, or see one twice, and nothing worse.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/tables/key_codec.h"
#include "model/tables/slot_hash.h"
#include "model/tables/slot_store.h"

namespace jxmodel {

/// What the records of entries with priorities begin with.
struct RankedRecord : Record {
  std::atomic<uint32_t> priority;
  std::atomic<uint32_t> next;  // slot of the entry behind it in its chain
};

/// Tells of most hashes that they are not in a small set, by one word: bit i stands for the hashes
/// that begin with i. One writer; readers as for SlotHash.
class HashFilter {
 public:
  bool mayHave(uint32_t hash) const {
    return (bits_.load(std::memory_order_acquire) >> bitOf(hash) & 1) != 0;
  }
  void add(uint32_t hash) {
    if (counts_[bitOf(hash)]++ == 0) flip(hash);
  }
  void remove(uint32_t hash) {
    if (--counts_[bitOf(hash)] == 0) flip(hash);
  }

 private:
  static uint32_t bitOf(uint32_t hash) { return hash >> 26; }
  void flip(uint32_t hash) {
    const uint64_t flipped = bits_.load(std::memory_order_relaxed) ^ uint64_t { 1 } << bitOf(hash);
    bits_.store(flipped, std::memory_order_release);
  }

  std::atomic<uint64_t> bits_{0};
  std::array<uint32_t, 64> counts_{};  // hashes of each bit; the writer's
};

class TupleSpace {
 public:
  /// Bytes of a record that are the tuple space's own.
  static size_t ownBytes(const KeyCodec& codec) { return sizeof(Rank) + codec.valueBytes(); }

  /// The records of `store` have their packed keys at `key_offset`; the ownBytes() at `own_offset`,
  /// a multiple of 8, are the tuple space's own.
  TupleSpace(const KeyCodec& codec, SlotStore& store, size_t key_offset, size_t own_offset,
             Reclaimer* reclaimer);
  ~TupleSpace();

  /// Adds the entry at `slot`: key and priority are written.
  void add(uint32_t slot);
  /// Gives an entry another priority; among those it is as old as it was.
  void move(uint32_t slot, uint32_t priority);
  /// Removes what was added; the key and priority are still those.
  void remove(uint32_t slot);
  /// The slot of the entry that wins for these packet values, kNoSlot if none matches.
  uint32_t lookup(const uint8_t* packed) const;

  size_t tuples() const { return by_mask_.size(); }

 private:
  /// What the tuple space keeps of an entry in front of its values: its place in the order of adds.
  struct Rank {
    std::atomic<uint64_t> added;
  };
  struct Tuple {
    Tuple(std::string bits, Reclaimer* reclaimer);
    const std::string mask;                 // of the packet values
    const std::vector<uint64_t> words;      // the same
    HashFilter filter;                      // of the hashes of chains: most values are in none
    SlotHash chains;                        // first slots, by the masked values
    std::atomic<uint32_t> max_priority{0};  // no entry has a greater one; not lowered by removals
    uint32_t count = 0;                     // entries; the writer's
  };
  /// All tuples, the greatest max_priority first.
  struct List {
    explicit List(uint32_t slots) : capacity(slots), at(new std::atomic<Tuple*>[slots]()) {}
    uint32_t capacity;
    std::atomic<uint32_t> count{0};
    std::unique_ptr<std::atomic<Tuple*>[]> at;
  };

  RankedRecord& record(uint32_t slot) {
    return reinterpret_cast<RankedRecord&>(store_.record(slot));
  }
  const RankedRecord& record(uint32_t slot) const {
    return reinterpret_cast<const RankedRecord&>(store_.record(slot));
  }
  const uint8_t* keyOf(uint32_t slot) const { return store_.at(slot) + key_offset_; }
  const uint8_t* valuesOf(uint32_t slot) const { return store_.at(slot) + values_offset_; }
  const Rank& rankOf(uint32_t slot) const {
    return *reinterpret_cast<const Rank*>(store_.at(slot) + rank_offset_);
  }
  /// Whether the entry at `slot` wins over the other where both match: the greater priority, and at
  /// equal priority the entry that was added before.
  bool wins(uint32_t slot, uint32_t other) const;
  void link(uint32_t slot);
  uint32_t hashOf(const uint8_t* masked) const;
  uint32_t firstOf(const Tuple& tuple, uint32_t hash, const uint8_t* masked) const;
  uint32_t winnerOf(const Tuple& tuple, const uint64_t* values, uint64_t* masked,
                    uint32_t best) const;

  Tuple& tupleOf(const std::string& mask);
  void append(Tuple* tuple);
  void drop(Tuple* tuple);
  void raise(Tuple* tuple, uint32_t priority);

  const KeyCodec& codec_;
  SlotStore& store_;
  const size_t key_offset_;
  const size_t rank_offset_;
  const size_t values_offset_;
  Reclaimer* const reclaimer_;
  uint64_t adds_ = 0;
  absl::flat_hash_map<std::string, Tuple*> by_mask_;  // the writer's; owns the tuples
  std::atomic<List*> list_;
};

}  // namespace jxmodel
