// Match keys of applications: packed in canonical form as they are set.
#pragma once

#include <cstdint>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/program/program.h"

namespace jxmodel {

class RtTable;

/// What the C face of a key points at: its first word in memory is the handle of the entry that the
/// key was read from by the SDK, 0 for a key that was not.
struct KeyFace {
  uint32_t entry_handle = 0;
};

class RtTableKey final : public jxrt::JxRtTableKey, public KeyFace {
 public:
  explicit RtTableKey(const RtTable& table);

  jx_status_t setValue(uint32_t field_id, uint64_t value) override;
  jx_status_t setValue(uint32_t field_id, const uint8_t* value, size_t size) override;
  jx_status_t setValueAndMask(uint32_t field_id, uint64_t value, uint64_t mask) override;
  jx_status_t setValueAndMask(uint32_t field_id, const uint8_t* value, const uint8_t* mask,
                              size_t size) override;
  jx_status_t setValueRange(uint32_t field_id, uint64_t low, uint64_t high) override;
  jx_status_t setValueRange(uint32_t field_id, const uint8_t* low, const uint8_t* high,
                            size_t size) override;
  jx_status_t setValueLpm(uint32_t field_id, uint64_t value, uint16_t prefix_length) override;
  jx_status_t setValueLpm(uint32_t field_id, const uint8_t* value, uint16_t prefix_length,
                          size_t size) override;
  jx_status_t setValueOptional(uint32_t field_id, const uint8_t* value, bool is_valid,
                               size_t size) override;
  jx_status_t prioritySet(uint32_t priority) override;

  jx_status_t getValue(uint32_t field_id, uint64_t* value) const override;
  jx_status_t getValue(uint32_t field_id, size_t size, uint8_t* value) const override;
  jx_status_t getValueAndMask(uint32_t field_id, size_t size, uint8_t* value,
                              uint8_t* mask) const override;
  jx_status_t getValueRange(uint32_t field_id, size_t size, uint8_t* low,
                            uint8_t* high) const override;
  jx_status_t getValueLpm(uint32_t field_id, size_t size, uint8_t* value,
                          uint16_t* prefix_length) const override;
  jx_status_t getValueOptional(uint32_t field_id, size_t size, uint8_t* value,
                               bool* is_valid) const override;
  jx_status_t priorityGet(uint32_t* priority) const override;

  const RtTable& table() const { return table_; }
  const uint8_t* packed() const { return packed_.data(); }
  uint32_t priority() const { return priority_; }
  void reset();
  /// Takes a packed key of the table as it stands.
  void assign(const uint8_t* packed, uint32_t priority);
  /// Keys of one number: members, groups, counters.
  uint32_t number() const;
  void assignNumber(uint32_t number);

 private:
  const KeyField* field(uint32_t field_id) const;
  /// The field, if it is there, of this kind, and `size` its bytes; else null.
  const KeyField* field(uint32_t field_id, jx_rt_key_match_type_t match, size_t size) const;
  jx_status_t setPrefix(const KeyField& field, const uint8_t* value, uint32_t prefix_length);
  uint8_t* at(const KeyField& field) { return packed_.data() + field.offset; }
  const uint8_t* at(const KeyField& field) const { return packed_.data() + field.offset; }

  const RtTable& table_;
  std::vector<uint8_t> packed_;
  uint32_t priority_ = 0;
};

}  // namespace jxmodel
