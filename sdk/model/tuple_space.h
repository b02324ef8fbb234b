// Packet lookup in a table whose entries have priorities: tuple space search. Entries that compare
// the same bits make a tuple, which is a hash map from the values of those bits to a bucket; a
// bucket's entries differ in their ranges and stand in the order in which they win.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/key_codec.h"
#include "model/slot_store.h"

namespace jxmodel {

class TupleSpace {
 public:
  explicit TupleSpace(const KeyCodec& codec);

  /// One entry. Greater priorities win, at equal priority the lower handle.
  struct Item {
    uint32_t priority;
    uint32_t handle;
    uint32_t slot;
    const uint8_t* key;  // packed, in the record of the entry

    bool wins(const Item& other) const {
      return priority != other.priority ? priority > other.priority : handle < other.handle;
    }
  };

  void add(const Item& item);
  /// Removes what add() was given.
  void remove(const Item& item);
  /// The slot of the entry that wins for these packet values, kNoSlot if none matches.
  uint32_t lookup(const uint8_t* values) const;

  size_t tuples() const { return tuples_.size(); }

 private:
  using Bucket = std::vector<Item>;  // in winning order
  struct Tuple {
    absl::flat_hash_map<std::string, Bucket> buckets;
    uint32_t max_priority = 0;  // no entry has a greater one; not lowered by a removal
  };

  /// Splits a key into the bits that it compares and their values.
  void split(const uint8_t* key, std::string* mask, std::string* values) const;

  const KeyCodec& codec_;
  absl::flat_hash_map<std::string, Tuple> tuples_;  // by mask
};

}  // namespace jxmodel
