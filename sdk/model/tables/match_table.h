// The entries of one match table: stored once, found by key, by handle and by packet values.
//
// Keys are packed keys in canonical form. One set of keys tells duplicates; it is also what
// packets are looked up in where fields are exact or longest-prefix. Tables with priorities have a
// tuple space beside it.
//
// Thread safety: the device's mutex is held over all calls but tryApply() and hit(), which packets
// call in a ReadSection. All writes check first and change nothing on failure.
//  1. A record's key, and what its result points at, never change while packets may find it. What
//  an
//     entry does is one word that is replaced as a whole.
//  2. What is taken out (records, results, cells, tuples) is freed or used again after a grace
//     period.
//  3. Writes that relink (add, move, remove, default entry) are Changes of the table's Sequence:
//     a look-up that met one is done again, so it is of the table before or after it.
// docs/design/packets-and-updates.md says why.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "model/base/sequence.h"
#include "model/program/program.h"
#include "model/tables/action_data_table.h"
#include "model/tables/direct_counters.h"
#include "model/tables/entry_handles.h"
#include "model/tables/key_codec.h"
#include "model/tables/key_set.h"
#include "model/tables/selector_table.h"
#include "model/tables/slot_store.h"
#include "model/tables/tuple_space.h"

namespace jxmodel {

/// What a match entry does: an action of its own, or a member, or a group.
struct MatchResult {
  enum class Kind : uint8_t { kAction, kMember, kGroup };
  Kind kind = Kind::kAction;
  BoundAction action;       // kAction
  uint32_t slot = kNoSlot;  // kMember, kGroup: in the table referred to
};

class MatchTable {
 public:
  /// `members` and `groups` are the tables that entries refer to, null where there are none.
  MatchTable(const Program& program, const Table& table, ActionDataTable* members,
             SelectorTable* groups, std::optional<uint32_t> handle_base,
             Reclaimer* reclaimer = nullptr);
  ~MatchTable();

  /// Counts the hits of entries from now on; before the first entry is added.
  void countIn(CounterTable* counters);

  struct Addition {
    uint32_t handle = 0;  // 0 where the device gives handles out; initial entries have one
    const uint8_t* key = nullptr;
    uint32_t priority = 0;
    uint32_t ttl_ms = 0;
    MatchResult result;
  };
  jx_status_t add(const Addition& addition, uint32_t* slot);
  void modify(uint32_t slot, uint32_t ttl_ms, const MatchResult& result);
  void move(uint32_t slot, uint32_t priority);
  void remove(uint32_t slot);

  /// The default entry that was set; kNoSlot if none was. It has a handle like any entry.
  uint32_t defaultEntry() const { return default_.load(std::memory_order_acquire); }
  /// Sets it, or sets it anew; under another handle only where handles come from outside.
  jx_status_t setDefault(uint32_t handle, const MatchResult& result);
  /// There has to be one.
  void clearDefault();

  /// kNoSlot if there is none; the default entry is not found.
  uint32_t findKey(const uint8_t* key) const { return keys_.find(key); }
  uint32_t findHandle(uint32_t handle) const;
  /// The entry that packet values (see KeyCodec) hit, kNoSlot if they miss.
  uint32_t lookup(const uint8_t* values) const;

  /// What the table says of a packet: its entry, or the default entry that was set.
  struct Applied {
    bool hit = false;
    uint32_t slot = kNoSlot;  // of either; kNoSlot where there is none: nothing below is set
    uint32_t handle = 0;
    MatchResult result;  // readable to the end of the ReadSection
  };
  /// Looks packet values up beside a writer. False if the table kept changing meanwhile: then it
  /// takes apply() under the device's mutex, once.
  bool tryApply(const uint8_t* values, Applied* applied) const;
  Applied apply(const uint8_t* values) const;

  /// Where the hits of an entry are counted, kNoSlot if they are not: no counter, or another entry
  /// has it. For packets that found the entry; its counter counts for nobody else as long as it is
  /// there.
  uint32_t countIndexOf(uint32_t slot) const {
    return entry(slot).count_index.load(std::memory_order_relaxed);
  }

  // Entries that age: of a table whose description says so. Times are the model's clock, ns.

  /// Notes that a packet hit the entry. True if it had aged out: it is awake again.
  bool hit(uint32_t slot, uint64_t now) const {
    return (entry(slot).activity.exchange(kHit | (now & kTime), std::memory_order_acq_rel) &
            kAged) != 0;
  }
  /// 0: no packet hit it since it was added or modified.
  uint64_t lastHitOf(uint32_t slot) const {
    const uint64_t activity = activityOf(slot);
    return (activity & kHit) != 0 ? activity & kTime : 0;
  }
  /// When the entry was last hit, or else added or modified.
  uint64_t lastActiveOf(uint32_t slot) const { return activityOf(slot) & kTime; }
  bool aged(uint32_t slot) const { return (activityOf(slot) & kAged) != 0; }
  /// Marks the entry as aged out, or takes the mark away. False if it is marked so already, or was
  /// active since `last_active`.
  bool markAged(uint32_t slot, uint64_t last_active, bool aged);

  uint32_t handleOf(uint32_t slot) const { return store_.record(slot).handle; }
  const uint8_t* keyOf(uint32_t slot) const { return store_.at(slot) + kKeyOffset; }
  uint32_t priorityOf(uint32_t slot) const { return entry(slot).priority; }
  uint32_t ttlOf(uint32_t slot) const { return entry(slot).ttl_ms.load(std::memory_order_relaxed); }
  MatchResult resultOf(uint32_t slot) const;

  const KeyCodec& codec() const { return codec_; }
  bool used(uint32_t slot) const { return store_.used(slot) && slot != defaultEntry(); }
  uint32_t end() const { return store_.end(); }
  /// Without the default entry.
  uint32_t count() const { return store_.count() - (defaultEntry() == kNoSlot ? 0 : 1); }

 private:
  /// MatchResult in one word: the record of an action, or a slot above two bits that say of what.
  using ResultWord = uintptr_t;
  struct Entry : RankedRecord {
    std::atomic<uint32_t> ttl_ms;
    std::atomic<uint32_t> count_index;
    std::atomic<ResultWord> result;
    mutable std::atomic<uint64_t> activity;  // a time, and the two bits above it
    // the packed key follows, then what the tuple space keeps
  };
  static constexpr size_t kKeyOffset = sizeof(Entry);
  /// Of what the tuple space keeps.
  size_t tupleOffset() const { return kKeyOffset + wordsOf(codec_.keyBytes()) * sizeof(uint64_t); }
  // One word, so that a packet that hits an entry just when it ages out wakes it.
  static constexpr uint64_t kHit = uint64_t{1} << 63;   // the time is a packet's
  static constexpr uint64_t kAged = uint64_t{1} << 62;  // has aged out since
  static constexpr uint64_t kTime = kAged - 1;          // ns since 1970: until 2116
  uint64_t activityOf(uint32_t slot) const {
    return entry(slot).activity.load(std::memory_order_acquire);
  }
  uint64_t timeOfWrite() const;
  Entry& entry(uint32_t slot) { return *reinterpret_cast<Entry*>(store_.at(slot)); }
  const Entry& entry(uint32_t slot) const {
    return *reinterpret_cast<const Entry*>(store_.at(slot));
  }

  void reference(const MatchResult& result);
  void dereference(const MatchResult& result);
  static ResultWord wordOf(const MatchResult& result);
  static MatchResult resultIn(ResultWord word);
  static const ActionRecord* recordIn(ResultWord word);
  void fill(uint32_t slot, uint32_t priority, uint32_t ttl_ms, const MatchResult& result);
  void release(uint32_t slot);
  uint32_t lookupPrefix(const uint8_t* values) const;
  void writePrefixMasks();
  void packValues(const uint8_t* values, uint8_t* key) const;
  void countPrefix(uint32_t slot, int difference);

  const Table& table_;
  KeyCodec codec_;
  ActionDataTable* members_;
  SelectorTable* groups_;
  Reclaimer* reclaimer_;
  SlotStore store_;
  EntryHandles handles_;
  KeySet keys_;
  std::unique_ptr<DirectCounters> counters_;  // where hits are counted per entry
  std::unique_ptr<TupleSpace> tuples_;        // where entries have priorities
  const KeyField* prefix_field_ = nullptr;    // the longest-prefix field of a table without those
  uint32_t prefix_offset_ = 0;                // of its length byte in the packed key
  std::vector<uint64_t> prefix_masks_;        // of packed keys, as words, by prefix length
  std::array<uint32_t, kMaxKeyWidth + 1> lengths_{};  // entries by prefix length
  static constexpr uint32_t kLengthWords = kMaxKeyWidth / 64 + 1;
  std::array<std::atomic<uint64_t>, kLengthWords> present_{};  // lengths that entries have
  std::atomic<uint32_t> default_{kNoSlot};
  Sequence sequence_;
};

}  // namespace jxmodel
