#include "model/runtime/rt_key.h"

#include <cstring>

#include "model/base/faults.h"
#include "model/base/wire_value.h"
#include "model/runtime/rt_table.h"
#include "model/tables/key_codec.h"

namespace jxmodel {
namespace {

constexpr uint32_t kNumberBytes = 8;

/// A number as a field's bytes; not ok() if the field cannot hold it.
class FieldNumber {
 public:
  FieldNumber(const KeyField* field, uint64_t value)
      : ok_(field != nullptr && numberFits(value, field->width)),
        size_(field == nullptr ? 0 : field->value_bytes) {
    if (ok_) writeNumber(value, bytes_, size_);
  }
  bool ok() const { return ok_; }
  const uint8_t* data() const { return bytes_; }
  size_t size() const { return size_; }

 private:
  bool ok_;
  uint32_t size_;
  uint8_t bytes_[kNumberBytes];
};

}  // namespace

RtTableKey::RtTableKey(const RtTable& table)
    : table_(table), packed_(table.description().key_bytes) {
  table_.codec().wildcard(packed_.data());
}

void RtTableKey::reset() {
  table_.codec().wildcard(packed_.data());
  priority_ = 0;
}

void RtTableKey::assign(const uint8_t* packed, uint32_t priority) {
  std::memcpy(packed_.data(), packed, packed_.size());
  priority_ = priority;
}

uint32_t RtTableKey::number() const { return static_cast<uint32_t>(readNumber(packed_.data(), 4)); }

void RtTableKey::assignNumber(uint32_t number) { writeNumber(number, packed_.data(), 4); }

const KeyField* RtTableKey::field(uint32_t field_id) const {
  return findById(table_.description().key, field_id);
}

const KeyField* RtTableKey::field(uint32_t field_id, jx_rt_key_match_type_t match,
                                  size_t size) const {
  const KeyField* const found = field(field_id);
  const bool fits = found != nullptr && found->match == match && found->value_bytes == size;
  return fits ? found : nullptr;
}

jx_status_t RtTableKey::setPrefix(const KeyField& field, const uint8_t* value,
                                  uint32_t prefix_length) {
  if (value == nullptr || prefix_length > field.width || !withinWidth(value, field.width)) {
    return JX_INVALID_ARGUMENTS;
  }
  uint8_t mask[kMaxKeyWidth / 8];
  writePrefixMask(mask, field.width, prefix_length);
  uint8_t* const packed = at(field);
  for (uint32_t i = 0; i < field.value_bytes; ++i) {
    packed[i] = static_cast<uint8_t>(value[i] & mask[i]);
  }
  packed[field.value_bytes] = static_cast<uint8_t>(prefix_length);
  return JX_SUCCESS;
}

jx_status_t RtTableKey::setValue(uint32_t field_id, uint64_t value) {
  const KeyField* const found = field(field_id);
  if (found == nullptr || found->match != JX_RT_MATCH_EXACT) {
    const FieldNumber number(found, value);
    if (!number.ok()) return JX_INVALID_ARGUMENTS;
    return setValue(field_id, number.data(), number.size());
  }
  JXMODEL_ENTRY("JxRtTableKey::setValue");
  if (!numberFits(value, found->width)) return JX_INVALID_ARGUMENTS;
  writeNumber(value, at(*found), found->value_bytes);
  return JX_SUCCESS;
}

jx_status_t RtTableKey::setValue(uint32_t field_id, const uint8_t* value, size_t size) {
  JXMODEL_ENTRY("JxRtTableKey::setValue");
  const KeyField* const found = field(field_id);
  if (found == nullptr || value == nullptr || size != found->value_bytes ||
      !withinWidth(value, found->width)) {
    return JX_INVALID_ARGUMENTS;
  }
  uint8_t* const packed = at(*found);
  switch (found->match) {
    case JX_RT_MATCH_EXACT:
      break;
    case JX_RT_MATCH_TERNARY:
      writePrefixMask(packed + size, found->width, found->width);
      break;
    case JX_RT_MATCH_LPM:
      packed[size] = static_cast<uint8_t>(found->width);
      break;
    case JX_RT_MATCH_OPTIONAL:
      packed[size] = 1;
      break;
    default:
      return JX_INVALID_ARGUMENTS;
  }
  std::memcpy(packed, value, size);
  return JX_SUCCESS;
}

jx_status_t RtTableKey::setValueAndMask(uint32_t field_id, uint64_t value, uint64_t mask) {
  const FieldNumber value_bytes(field(field_id), value);
  const FieldNumber mask_bytes(field(field_id), mask);
  if (!value_bytes.ok() || !mask_bytes.ok()) return JX_INVALID_ARGUMENTS;
  return setValueAndMask(field_id, value_bytes.data(), mask_bytes.data(), value_bytes.size());
}

jx_status_t RtTableKey::setValueAndMask(uint32_t field_id, const uint8_t* value,
                                        const uint8_t* mask, size_t size) {
  JXMODEL_ENTRY("JxRtTableKey::setValueAndMask");
  const KeyField* const found = field(field_id, JX_RT_MATCH_TERNARY, size);
  if (found == nullptr || value == nullptr || mask == nullptr ||
      !withinWidth(value, found->width) || !withinWidth(mask, found->width)) {
    return JX_INVALID_ARGUMENTS;
  }
  uint8_t* const packed = at(*found);
  for (size_t i = 0; i < size; ++i) packed[i] = static_cast<uint8_t>(value[i] & mask[i]);
  std::memcpy(packed + size, mask, size);
  return JX_SUCCESS;
}

jx_status_t RtTableKey::setValueRange(uint32_t field_id, uint64_t low, uint64_t high) {
  const FieldNumber low_bytes(field(field_id), low);
  const FieldNumber high_bytes(field(field_id), high);
  if (!low_bytes.ok() || !high_bytes.ok()) return JX_INVALID_ARGUMENTS;
  return setValueRange(field_id, low_bytes.data(), high_bytes.data(), low_bytes.size());
}

jx_status_t RtTableKey::setValueRange(uint32_t field_id, const uint8_t* low, const uint8_t* high,
                                      size_t size) {
  JXMODEL_ENTRY("JxRtTableKey::setValueRange");
  const KeyField* const found = field(field_id, JX_RT_MATCH_RANGE, size);
  if (found == nullptr || low == nullptr || high == nullptr || !withinWidth(low, found->width) ||
      !withinWidth(high, found->width) || std::memcmp(low, high, size) > 0) {
    return JX_INVALID_ARGUMENTS;
  }
  std::memcpy(at(*found), low, size);
  std::memcpy(at(*found) + size, high, size);
  return JX_SUCCESS;
}

jx_status_t RtTableKey::setValueLpm(uint32_t field_id, uint64_t value, uint16_t prefix_length) {
  const FieldNumber number(field(field_id), value);
  if (!number.ok()) return JX_INVALID_ARGUMENTS;
  return setValueLpm(field_id, number.data(), prefix_length, number.size());
}

jx_status_t RtTableKey::setValueLpm(uint32_t field_id, const uint8_t* value, uint16_t prefix_length,
                                    size_t size) {
  JXMODEL_ENTRY("JxRtTableKey::setValueLpm");
  const KeyField* const found = field(field_id, JX_RT_MATCH_LPM, size);
  return found == nullptr ? JX_INVALID_ARGUMENTS : setPrefix(*found, value, prefix_length);
}

jx_status_t RtTableKey::setValueOptional(uint32_t field_id, const uint8_t* value, bool is_valid,
                                         size_t size) {
  JXMODEL_ENTRY("JxRtTableKey::setValueOptional");
  const KeyField* const found = field(field_id);
  if (found == nullptr || found->match != JX_RT_MATCH_OPTIONAL) return JX_INVALID_ARGUMENTS;
  uint8_t* const packed = at(*found);
  if (!is_valid) {
    std::memset(packed, 0, found->value_bytes + 1);
    return JX_SUCCESS;
  }
  if (value == nullptr || size != found->value_bytes || !withinWidth(value, found->width)) {
    return JX_INVALID_ARGUMENTS;
  }
  std::memcpy(packed, value, size);
  packed[size] = 1;
  return JX_SUCCESS;
}

jx_status_t RtTableKey::prioritySet(uint32_t priority) {
  JXMODEL_ENTRY("JxRtTableKey::prioritySet");
  if (!table_.description().has_priority) return JX_NOT_SUPPORTED;
  priority_ = priority;
  return JX_SUCCESS;
}

jx_status_t RtTableKey::getValue(uint32_t field_id, uint64_t* value) const {
  JXMODEL_ENTRY("JxRtTableKey::getValue");
  const KeyField* const found = field(field_id);
  if (found == nullptr || value == nullptr || found->match == JX_RT_MATCH_RANGE ||
      found->width > 64) {
    return JX_INVALID_ARGUMENTS;
  }
  *value = readNumber(at(*found), found->value_bytes);
  return JX_SUCCESS;
}

jx_status_t RtTableKey::getValue(uint32_t field_id, size_t size, uint8_t* value) const {
  JXMODEL_ENTRY("JxRtTableKey::getValue");
  const KeyField* const found = field(field_id);
  if (found == nullptr || value == nullptr || found->match == JX_RT_MATCH_RANGE ||
      size != found->value_bytes) {
    return JX_INVALID_ARGUMENTS;
  }
  std::memcpy(value, at(*found), size);
  return JX_SUCCESS;
}

jx_status_t RtTableKey::getValueAndMask(uint32_t field_id, size_t size, uint8_t* value,
                                        uint8_t* mask) const {
  JXMODEL_ENTRY("JxRtTableKey::getValueAndMask");
  const KeyField* const found = field(field_id, JX_RT_MATCH_TERNARY, size);
  if (found == nullptr || value == nullptr || mask == nullptr) return JX_INVALID_ARGUMENTS;
  std::memcpy(value, at(*found), size);
  std::memcpy(mask, at(*found) + size, size);
  return JX_SUCCESS;
}

jx_status_t RtTableKey::getValueRange(uint32_t field_id, size_t size, uint8_t* low,
                                      uint8_t* high) const {
  JXMODEL_ENTRY("JxRtTableKey::getValueRange");
  const KeyField* const found = field(field_id, JX_RT_MATCH_RANGE, size);
  if (found == nullptr || low == nullptr || high == nullptr) return JX_INVALID_ARGUMENTS;
  std::memcpy(low, at(*found), size);
  std::memcpy(high, at(*found) + size, size);
  return JX_SUCCESS;
}

jx_status_t RtTableKey::getValueLpm(uint32_t field_id, size_t size, uint8_t* value,
                                    uint16_t* prefix_length) const {
  JXMODEL_ENTRY("JxRtTableKey::getValueLpm");
  const KeyField* const found = field(field_id, JX_RT_MATCH_LPM, size);
  if (found == nullptr || value == nullptr || prefix_length == nullptr) {
    return JX_INVALID_ARGUMENTS;
  }
  std::memcpy(value, at(*found), size);
  *prefix_length = at(*found)[size];
  return JX_SUCCESS;
}

jx_status_t RtTableKey::getValueOptional(uint32_t field_id, size_t size, uint8_t* value,
                                         bool* is_valid) const {
  JXMODEL_ENTRY("JxRtTableKey::getValueOptional");
  const KeyField* const found = field(field_id, JX_RT_MATCH_OPTIONAL, size);
  if (found == nullptr || value == nullptr || is_valid == nullptr) return JX_INVALID_ARGUMENTS;
  std::memcpy(value, at(*found), size);
  *is_valid = at(*found)[size] != 0;
  return JX_SUCCESS;
}

jx_status_t RtTableKey::priorityGet(uint32_t* priority) const {
  JXMODEL_ENTRY("JxRtTableKey::priorityGet");
  if (priority == nullptr) return JX_INVALID_ARGUMENTS;
  *priority = priority_;
  return JX_SUCCESS;
}

}  // namespace jxmodel
