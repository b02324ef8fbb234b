// The packed keys of one table's entries, each once: finds the slot of a key. Keys are not stored
// again, they are read from the records; a hash of each is kept so that growing touches no record.
#pragma once

#include <absl/container/flat_hash_set.h>
#include <absl/hash/hash.h>

#include <cstdint>
#include <cstring>
#include <string_view>

#include "model/slot_store.h"

namespace jxmodel {

class KeySet {
 public:
  /// Keys are the `key_bytes` bytes at `key_offset` of the records of `store`.
  KeySet(const SlotStore& store, size_t key_offset, size_t key_bytes)
      : slots_(0, Hash{}, Equal{&store, key_offset, key_bytes}) {}

  /// The slot of the entry with this key, kNoSlot if there is none.
  uint32_t find(const uint8_t* key) const {
    const auto found = slots_.find(Probe{hashOf(key), key});
    return found == slots_.end() ? kNoSlot : found->slot;
  }

  /// Adds the key of the record at `slot`; false, and nothing changed, if it is there already.
  bool insert(uint32_t slot) {
    return slots_.insert(Element{hashOf(equal().keyAt(slot)), slot}).second;
  }

  void erase(uint32_t slot) { slots_.erase(Element{hashOf(equal().keyAt(slot)), slot}); }

 private:
  struct Element {
    uint32_t hash;
    uint32_t slot;
  };
  struct Probe {
    uint32_t hash;
    const uint8_t* key;
  };
  struct Hash {
    using is_transparent = void;
    // The set splits a hash into its low 7 bits and the rest: spread the 32 bits over 64.
    static size_t spread(uint32_t hash) { return hash * size_t{0x9E3779B97F4A7C15} >> 8; }
    size_t operator()(const Element& element) const { return spread(element.hash); }
    size_t operator()(const Probe& probe) const { return spread(probe.hash); }
  };
  struct Equal {
    using is_transparent = void;
    const SlotStore* store;
    size_t offset;
    size_t bytes;

    const uint8_t* keyAt(uint32_t slot) const { return store->at(slot) + offset; }
    bool same(const uint8_t* left, const uint8_t* right) const {
      return std::memcmp(left, right, bytes) == 0;
    }
    bool operator()(const Element& left, const Element& right) const {
      return left.hash == right.hash &&
             (left.slot == right.slot || same(keyAt(left.slot), keyAt(right.slot)));
    }
    bool operator()(const Element& left, const Probe& right) const {
      return left.hash == right.hash && same(keyAt(left.slot), right.key);
    }
    bool operator()(const Probe& left, const Element& right) const { return (*this)(right, left); }
  };

  Equal equal() const { return slots_.key_eq(); }
  uint32_t hashOf(const uint8_t* key) const {
    const std::string_view bytes(reinterpret_cast<const char*>(key), equal().bytes);
    const size_t hash = absl::Hash<std::string_view>{}(bytes);
    return static_cast<uint32_t>(hash ^ (hash >> 32));
  }

  absl::flat_hash_set<Element, Hash, Equal> slots_;
};

}  // namespace jxmodel
