// The entries of one match table: stored once, found by key, by handle and by packet values.
//
// Keys are packed keys in canonical form. One set of keys tells duplicates; it is also what
// packets are looked up in where fields are exact or longest-prefix. Tables with priorities have a
// tuple space beside it.
//
// Not synchronised: the device's mutex is held. All writes check first and change nothing on
// failure.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "model/action_data_table.h"
#include "model/handle_space.h"
#include "model/key_codec.h"
#include "model/key_set.h"
#include "model/program.h"
#include "model/selector_table.h"
#include "model/slot_store.h"
#include "model/tuple_space.h"

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
             SelectorTable* groups, std::optional<uint32_t> handle_base);

  struct Addition {
    uint32_t handle = 0;  // 0 where the device gives handles out
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
  uint32_t defaultEntry() const { return default_; }
  /// Sets it, or sets it anew; under another handle only where handles come from outside.
  jx_status_t setDefault(uint32_t handle, const MatchResult& result);
  /// There has to be one.
  void clearDefault();

  /// kNoSlot if there is none; the default entry is not found.
  uint32_t findKey(const uint8_t* key) const { return keys_.find(key); }
  uint32_t findHandle(uint32_t handle) const;
  /// The entry that packet values (see KeyCodec) hit, kNoSlot if they miss.
  uint32_t lookup(const uint8_t* values) const;

  uint32_t handleOf(uint32_t slot) const { return store_.record(slot).handle; }
  const uint8_t* keyOf(uint32_t slot) const { return store_.at(slot) + sizeof(Entry); }
  uint32_t priorityOf(uint32_t slot) const { return entry(slot).priority; }
  uint32_t ttlOf(uint32_t slot) const { return entry(slot).ttl_ms; }
  MatchResult resultOf(uint32_t slot) const;

  const KeyCodec& codec() const { return codec_; }
  bool used(uint32_t slot) const { return store_.used(slot) && slot != default_; }
  uint32_t end() const { return store_.end(); }
  /// Without the default entry.
  uint32_t count() const { return store_.count() - (default_ == kNoSlot ? 0 : 1); }

 private:
  struct Entry : Record {
    uint32_t priority;
    uint32_t ttl_ms;
    MatchResult::Kind kind;
    uint32_t target;       // kMember, kGroup: slot in the table referred to
    const Action* action;  // kAction
    // the packed key and the packed parameters follow
  };
  Entry& entry(uint32_t slot) { return *reinterpret_cast<Entry*>(store_.at(slot)); }
  const Entry& entry(uint32_t slot) const {
    return *reinterpret_cast<const Entry*>(store_.at(slot));
  }
  size_t paramOffset() const { return sizeof(Entry) + codec_.keyBytes(); }
  TupleSpace::Item itemOf(uint32_t slot) const {
    return {priorityOf(slot), handleOf(slot), slot, keyOf(slot)};
  }

  void reference(const MatchResult& result);
  void dereference(const MatchResult& result);
  void write(uint32_t slot, const MatchResult& result);
  uint32_t lookupPrefix(const uint8_t* values) const;
  void packValues(const uint8_t* values, uint8_t* key) const;
  /// The count of entries with the prefix length of this entry's key.
  uint32_t& lengthCount(uint32_t slot) { return lengths_[keyOf(slot)[prefix_offset_]]; }

  const Table& table_;
  KeyCodec codec_;
  ActionDataTable* members_;
  SelectorTable* groups_;
  SlotStore store_;
  HandleSpace handles_;
  KeySet keys_;
  std::unique_ptr<TupleSpace> tuples_;      // where entries have priorities
  const KeyField* prefix_field_ = nullptr;  // the longest-prefix field of a table without those
  uint32_t prefix_offset_ = 0;              // of its length byte in the packed key
  std::array<uint32_t, kMaxKeyWidth + 1> lengths_{};  // entries by prefix length
  uint32_t default_ = kNoSlot;
};

}  // namespace jxmodel
