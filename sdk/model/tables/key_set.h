// The packed keys of one table's entries, each once: finds the slot of a key. Keys are not stored
// again, they are read from the records; a hash of each is kept so that growing touches no record.
//
// One writer; see SlotHash for readers beside it.
#pragma once

#include <cstdint>

#include "model/base/words.h"
#include "model/tables/slot_hash.h"
#include "model/tables/slot_store.h"

namespace jxmodel {

class KeySet {
 public:
  /// Keys are the `key_bytes` bytes at `key_offset` of the records of `store`.
  KeySet(const SlotStore& store, size_t key_offset, size_t key_bytes, Reclaimer* reclaimer)
      : store_(store), offset_(key_offset), bytes_(key_bytes), slots_(reclaimer) {}

  /// The slot of the entry with this key, kNoSlot if there is none.
  uint32_t find(const uint8_t* key) const { return find(hashOf(key), key); }

  /// The same in two steps, for who looks for several keys: the hash of a key is known, and
  /// prefetch() has been called for it.
  uint32_t hashOf(const uint8_t* key) const { return slotHashOf(key, bytes_); }
  void prefetch(uint32_t hash) const { slots_.prefetch(hash); }
  uint32_t find(uint32_t hash, const uint8_t* key) const {
    return slots_.find(hash, [this, key](uint32_t slot) {
      return sameBytes(store_.at(slot) + offset_, key, bytes_);
    });
  }

  /// Adds the key of the record at `slot`; false, and nothing changed, if it is there already.
  bool insert(uint32_t slot) {
    const uint8_t* const key = store_.at(slot) + offset_;
    const uint32_t hash = hashOf(key);
    if (find(hash, key) != kNoSlot) return false;
    slots_.insert(hash, slot);
    return true;
  }

  void erase(uint32_t slot) { slots_.erase(hashOf(store_.at(slot) + offset_), slot); }

 private:
  const SlotStore& store_;
  size_t offset_;
  size_t bytes_;
  SlotHash slots_;
};

}  // namespace jxmodel
