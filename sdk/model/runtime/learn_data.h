// One digest as an application sees it: the fields of a learn object with their values.
#pragma once

#include <memory>

#include "jxsdk/rt.hpp"
#include "model/notify/learn_message.h"

namespace jxmodel {

/// Read only: every setter gives JX_NOT_SUPPORTED.
class LearnData final : public jxrt::JxRtTableData {
 public:
  LearnData(std::shared_ptr<const LearnMessage> message, uint32_t index)
      : message_(std::move(message)), index_(index) {}

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

 private:
  const LearnLayout::Field* field(uint32_t id) const { return message_->layout->find(id); }
  const uint8_t* at(const LearnLayout::Field& field) const {
    return message_->digest(index_) + field.offset;
  }

  const std::shared_ptr<const LearnMessage> message_;
  const uint32_t index_;
};

}  // namespace jxmodel
