// The packed key of one table: its canonical form, and how packet values match it.
//
// Values of a packet stand in the order of the key's fields, each in its bytes, nothing in between:
// "packet values" below.
#pragma once

#include <cstdint>
#include <vector>

#include "model/program/program.h"

namespace jxmodel {

class KeyCodec {
 public:
  explicit KeyCodec(const Table& table);

  uint32_t keyBytes() const { return key_bytes_; }
  /// Bytes of the packet values.
  uint32_t valueBytes() const { return value_bytes_; }

  /// Writes the fresh key: exact fields 0, the others match anything.
  void wildcard(uint8_t* key) const;

  /// Whether packed bytes are a key in canonical form: bits within the widths, values under their
  /// masks, low <= high, prefix <= width, valid bytes 0 or 1 and the value of an invalid one 0.
  bool canonical(const uint8_t* key) const;

  /// The bits of the packet values that a key compares for equality, and the values that they have
  /// to have. Range fields are left out: bits 0.
  void compared(const uint8_t* key, uint8_t* mask, uint8_t* values) const;
  /// Whether packet values lie in the key's ranges.
  bool inRanges(const uint8_t* key, const uint8_t* values) const;
  /// Whether packet values match the key: the plain definition, field by field.
  bool matches(const uint8_t* key, const uint8_t* values) const;

 private:
  const std::vector<KeyField>& fields_;
  uint32_t key_bytes_;
  uint32_t value_bytes_ = 0;
  std::vector<uint32_t> value_offsets_;  // of each field in the packet values
  bool has_ranges_ = false;
};

/// Whether the `width` bits hold all of the value's set bits; `value` has bytesOf(width) bytes.
bool withinWidth(const uint8_t* value, uint32_t width);
/// Writes the mask of bytesOf(width) bytes whose first `prefix` of `width` bits are set.
void writePrefixMask(uint8_t* mask, uint32_t width, uint32_t prefix);

}  // namespace jxmodel
