// Data of applications: an action with packed parameters, or what a table has beside those.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/program/program.h"

namespace jxmodel {

class RtTable;

class RtTableData final : public jxrt::JxRtTableData {
 public:
  /// `action` is null for data without one.
  RtTableData(const RtTable& table, const Action* action);

  jx_status_t setValue(uint32_t field_id, uint64_t value) override;
  jx_status_t setValue(uint32_t field_id, const uint8_t* value, size_t size) override;
  jx_status_t setValue(uint32_t field_id, const std::vector<uint32_t>& values) override;
  jx_status_t setValue(uint32_t field_id, const std::vector<bool>& values) override;
  jx_status_t getValue(uint32_t field_id, uint64_t* value) const override;
  jx_status_t getValue(uint32_t field_id, size_t size, uint8_t* value) const override;
  jx_status_t getValue(uint32_t field_id, std::vector<uint32_t>* values) const override;
  jx_status_t getValue(uint32_t field_id, std::vector<bool>* values) const override;
  jx_status_t actionIdGet(uint32_t* action_id) const override;
  jx_status_t isActive(uint32_t field_id, bool* is_active) const override;

  /// To the state after allocation with this action (null for none).
  void reset(const Action* action);
  /// The action that the data was allocated with; reads change action(), not this.
  const Action* allocatedAction() const { return allocated_action_; }
  /// Takes an action with all its parameters.
  void assignAction(const Action* action, const uint8_t* params);

  const RtTable& table() const { return table_; }
  const Action* action() const { return action_; }
  const uint8_t* params() const { return params_.data(); }
  /// Whether every parameter has been set or has a default.
  bool complete() const { return missing_ == 0; }

  // Fields that belong to no action. Tables without a field refuse it: see RtTable::dataFields.
  std::optional<uint32_t> member_id, group_id, max_members, ttl_ms;
  std::optional<std::vector<uint32_t>> members;
  std::optional<std::vector<bool>> members_active;
  std::optional<uint64_t> packets, bytes;

 private:
  const Param* param(uint32_t field_id) const;
  /// Of a parameter of the action.
  size_t positionOf(const Param& param) const {
    return static_cast<size_t>(&param - action_->params.data());
  }
  void markSet(const Param& param);
  /// The optional behind a 32-bit field, null if it is none.
  template <typename Self>
  static auto* number32(Self& self, uint32_t field_id);
  template <typename Self>
  static auto* number64(Self& self, uint32_t field_id);

  const RtTable& table_;
  const Action* allocated_action_ = nullptr;
  const Action* action_ = nullptr;
  std::vector<uint8_t> params_;  // packed
  std::vector<bool> set_;        // by parameter
  uint32_t missing_ = 0;         // parameters neither set nor with a default
};

}  // namespace jxmodel
