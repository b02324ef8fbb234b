#include "model/tables/key_codec.h"

#include <algorithm>
#include <cstring>

namespace jxmodel {
namespace {

constexpr uint32_t kMaxValueBytes = kMaxExactKeyWidth / 8;

bool allZero(const uint8_t* bytes, uint32_t count) {
  return std::all_of(bytes, bytes + count, [](uint8_t byte) { return byte == 0; });
}

bool underMask(const uint8_t* value, const uint8_t* mask, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    if ((value[i] & ~mask[i]) != 0) return false;
  }
  return true;
}

/// The mask under which a field compares values for equality.
void equalityMask(const KeyField& field, const uint8_t* packed, uint8_t* mask) {
  switch (field.match) {
    case JX_RT_MATCH_TERNARY:
      std::memcpy(mask, packed + field.value_bytes, field.value_bytes);
      return;
    case JX_RT_MATCH_LPM:
      return writePrefixMask(mask, field.width, packed[field.value_bytes]);
    case JX_RT_MATCH_OPTIONAL:
      return writePrefixMask(mask, field.width, packed[field.value_bytes] != 0 ? field.width : 0);
    case JX_RT_MATCH_RANGE:
      return writePrefixMask(mask, field.width, 0);
    default:
      return writePrefixMask(mask, field.width, field.width);
  }
}

bool canonicalField(const KeyField& field, const uint8_t* packed) {
  const uint32_t bytes = field.value_bytes;
  if (!withinWidth(packed, field.width)) return false;
  switch (field.match) {
    case JX_RT_MATCH_EXACT:
      return true;
    case JX_RT_MATCH_RANGE:
      return withinWidth(packed + bytes, field.width) &&
             std::memcmp(packed, packed + bytes, bytes) <= 0;
    case JX_RT_MATCH_TERNARY:
      return withinWidth(packed + bytes, field.width) && underMask(packed, packed + bytes, bytes);
    case JX_RT_MATCH_LPM: {
      if (packed[bytes] > field.width) return false;
      uint8_t mask[kMaxValueBytes];
      writePrefixMask(mask, field.width, packed[bytes]);
      return underMask(packed, mask, bytes);
    }
    case JX_RT_MATCH_OPTIONAL:
      return packed[bytes] == 1 || (packed[bytes] == 0 && allZero(packed, bytes));
    default:
      return false;
  }
}

/// Of numbers in network byte order; they have few bytes, most of them differ in the first.
bool isLess(const uint8_t* one, const uint8_t* other, uint32_t bytes) {
  for (uint32_t i = 0; i < bytes; ++i) {
    if (one[i] != other[i]) return one[i] < other[i];
  }
  return false;
}

bool inRange(const KeyField& field, const uint8_t* packed, const uint8_t* value) {
  return !isLess(value, packed, field.value_bytes) &&
         !isLess(packed + field.value_bytes, value, field.value_bytes);
}

}  // namespace

bool withinWidth(const uint8_t* value, uint32_t width) {
  const uint32_t spare = width % 8;
  return spare == 0 || (value[0] >> spare) == 0;
}

void writePrefixMask(uint8_t* mask, uint32_t width, uint32_t prefix) {
  const uint32_t bytes = bytesOf(width);
  // Bits count from the left of the padded value; the padding is never set.
  const uint32_t padding = bytes * 8 - width;
  const uint32_t last = padding + prefix;
  for (uint32_t i = 0; i < bytes; ++i) {
    const uint32_t begin = i * 8;
    const uint32_t set = last <= begin ? 0 : std::min(last - begin, 8u);
    mask[i] = static_cast<uint8_t>(0xFF00u >> set);
  }
  mask[0] = static_cast<uint8_t>(mask[0] & (0xFFu >> padding));
}

KeyCodec::KeyCodec(const Table& table) : fields_(table.key), key_bytes_(table.key_bytes) {
  for (const KeyField& field : fields_) {
    value_offsets_.push_back(value_bytes_);
    value_bytes_ += field.value_bytes;
    has_ranges_ |= field.match == JX_RT_MATCH_RANGE;
  }
}

void KeyCodec::wildcard(uint8_t* key) const {
  if (key_bytes_ == 0) return;  // `key` may be null
  std::memset(key, 0, key_bytes_);
  for (const KeyField& field : fields_) {
    if (field.match != JX_RT_MATCH_RANGE) continue;
    writePrefixMask(key + field.offset + field.value_bytes, field.width, field.width);
  }
}

bool KeyCodec::canonical(const uint8_t* key) const {
  return std::all_of(fields_.begin(), fields_.end(), [key](const KeyField& field) {
    return canonicalField(field, key + field.offset);
  });
}

void KeyCodec::compared(const uint8_t* key, uint8_t* mask, uint8_t* values) const {
  for (size_t i = 0; i < fields_.size(); ++i) {
    const KeyField& field = fields_[i];
    uint8_t* field_mask = mask + value_offsets_[i];
    uint8_t* field_value = values + value_offsets_[i];
    equalityMask(field, key + field.offset, field_mask);
    for (uint32_t byte = 0; byte < field.value_bytes; ++byte) {
      field_value[byte] = static_cast<uint8_t>(key[field.offset + byte] & field_mask[byte]);
    }
  }
}

bool KeyCodec::inRanges(const uint8_t* key, const uint8_t* values) const {
  if (!has_ranges_) return true;
  for (size_t i = 0; i < fields_.size(); ++i) {
    const KeyField& field = fields_[i];
    if (field.match != JX_RT_MATCH_RANGE) continue;
    if (!inRange(field, key + field.offset, values + value_offsets_[i])) return false;
  }
  return true;
}

bool KeyCodec::matches(const uint8_t* key, const uint8_t* values) const {
  for (size_t i = 0; i < fields_.size(); ++i) {
    const KeyField& field = fields_[i];
    uint8_t mask[kMaxValueBytes] = {};
    equalityMask(field, key + field.offset, mask);
    for (uint32_t byte = 0; byte < field.value_bytes; ++byte) {
      const int difference = key[field.offset + byte] ^ values[value_offsets_[i] + byte];
      if ((difference & mask[byte]) != 0) return false;
    }
  }
  return inRanges(key, values);
}

}  // namespace jxmodel
