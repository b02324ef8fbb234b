#include "model/runtime/rt_data.h"

#include <cstring>

#include "model/base/faults.h"
#include "model/base/wire_value.h"
#include "model/runtime/rt_table.h"
#include "model/tables/key_codec.h"

namespace jxmodel {

RtTableData::RtTableData(const RtTable& table, const Action* action) : table_(table) {
  reset(action);
}

void RtTableData::reset(const Action* action) {
  member_id = group_id = max_members = ttl_ms = std::nullopt;
  members = std::nullopt;
  members_active = std::nullopt;
  packets = bytes = std::nullopt;
  allocated_action_ = action_ = action;
  missing_ = 0;
  params_.assign(action == nullptr ? 0 : action->param_bytes, 0);
  set_.assign(action == nullptr ? 0 : action->params.size(), false);
  if (action == nullptr) return;
  for (const Param& param : action->params) {
    if (!param.default_value) {
      ++missing_;
      continue;
    }
    std::memcpy(params_.data() + param.offset, param.default_value->data(), bytesOf(param.width));
  }
}

void RtTableData::assignAction(const Action* action, const uint8_t* params) {
  action_ = action;
  params_.assign(params, params + action->param_bytes);
  set_.assign(action->params.size(), true);
  missing_ = 0;
}

const Param* RtTableData::param(uint32_t field_id) const {
  return action_ == nullptr ? nullptr : findById(action_->params, field_id);
}

void RtTableData::markSet(const Param& param) {
  const size_t index = positionOf(param);
  if (!set_[index] && !param.default_value) --missing_;
  set_[index] = true;
}

template <typename Self>
auto* RtTableData::number32(Self& self, uint32_t field_id) {
  using Field = decltype(&self.member_id);
  Field field = nullptr;
  switch (field_id) {
    case kFieldMemberId:
      field = &self.member_id;
      break;
    case kFieldGroupId:
      field = &self.group_id;
      break;
    case kFieldMaxMembers:
      field = &self.max_members;
      break;
    case kFieldTtl:
      field = &self.ttl_ms;
      break;
    default:
      return Field{nullptr};
  }
  return self.table_.hasDataField(field_id) ? field : Field{nullptr};
}

template <typename Self>
auto* RtTableData::number64(Self& self, uint32_t field_id) {
  using Field = decltype(&self.packets);
  if (field_id != kFieldCounterPkts && field_id != kFieldCounterBytes) return Field{nullptr};
  if (!self.table_.hasDataField(field_id)) return Field{nullptr};
  return field_id == kFieldCounterPkts ? &self.packets : &self.bytes;
}

jx_status_t RtTableData::setValue(uint32_t field_id, uint64_t value) {
  JXMODEL_ENTRY("JxRtTableData::setValue");
  if (const Param* const found = param(field_id)) {
    if (!numberFits(value, found->width)) return JX_INVALID_ARGUMENTS;
    writeNumber(value, params_.data() + found->offset, bytesOf(found->width));
    markSet(*found);
    return JX_SUCCESS;
  }
  if (auto* const field = number32(*this, field_id)) {
    if (!numberFits(value, 32)) return JX_INVALID_ARGUMENTS;
    *field = static_cast<uint32_t>(value);
    return JX_SUCCESS;
  }
  auto* const field = number64(*this, field_id);
  if (field == nullptr) return JX_INVALID_ARGUMENTS;
  *field = value;
  return JX_SUCCESS;
}

jx_status_t RtTableData::setValue(uint32_t field_id, const uint8_t* value, size_t size) {
  if (value == nullptr) return JX_INVALID_ARGUMENTS;
  const Param* const found = param(field_id);
  if (found == nullptr) {
    const size_t expected = number64(*this, field_id) != nullptr ? 8 : 4;
    if (size != expected) return JX_INVALID_ARGUMENTS;
    return setValue(field_id, readNumber(value, static_cast<uint32_t>(size)));
  }
  JXMODEL_ENTRY("JxRtTableData::setValue");
  if (size != bytesOf(found->width) || !withinWidth(value, found->width)) {
    return JX_INVALID_ARGUMENTS;
  }
  std::memcpy(params_.data() + found->offset, value, size);
  markSet(*found);
  return JX_SUCCESS;
}

jx_status_t RtTableData::setValue(uint32_t field_id, const std::vector<uint32_t>& values) {
  JXMODEL_ENTRY("JxRtTableData::setValue");
  if (field_id != kFieldMembers || !table_.hasDataField(field_id)) return JX_INVALID_ARGUMENTS;
  members = values;
  return JX_SUCCESS;
}

jx_status_t RtTableData::setValue(uint32_t field_id, const std::vector<bool>& values) {
  JXMODEL_ENTRY("JxRtTableData::setValue");
  if (field_id != kFieldMembersActive || !table_.hasDataField(field_id)) {
    return JX_INVALID_ARGUMENTS;
  }
  members_active = values;
  return JX_SUCCESS;
}

jx_status_t RtTableData::getValue(uint32_t field_id, uint64_t* value) const {
  JXMODEL_ENTRY("JxRtTableData::getValue");
  if (value == nullptr) return JX_INVALID_ARGUMENTS;
  uint64_t read = 0;
  if (const Param* const found = param(field_id)) {
    if (found->width > 64) return JX_INVALID_ARGUMENTS;
    if (!set_[positionOf(*found)] && !found->default_value) return JX_OBJECT_NOT_FOUND;
    read = readNumber(params_.data() + found->offset, bytesOf(found->width));
  } else if (const auto* const narrow = number32(*this, field_id)) {
    if (!*narrow) return JX_OBJECT_NOT_FOUND;
    read = **narrow;
  } else {
    const auto* const wide = number64(*this, field_id);
    if (wide == nullptr) return JX_INVALID_ARGUMENTS;
    if (!*wide) return JX_OBJECT_NOT_FOUND;
    read = **wide;
  }
  std::memcpy(value, &read, sizeof read);  // `value` need not be aligned
  return JX_SUCCESS;
}

jx_status_t RtTableData::getValue(uint32_t field_id, size_t size, uint8_t* value) const {
  if (value == nullptr) return JX_INVALID_ARGUMENTS;
  const Param* const found = param(field_id);
  if (found == nullptr) {
    const size_t expected = number64(*this, field_id) != nullptr ? 8 : 4;
    if (size != expected) return JX_INVALID_ARGUMENTS;
    uint64_t number = 0;
    const jx_status_t status = getValue(field_id, &number);
    if (status == JX_SUCCESS) writeNumber(number, value, static_cast<uint32_t>(size));
    return status;
  }
  JXMODEL_ENTRY("JxRtTableData::getValue");
  if (size != bytesOf(found->width)) return JX_INVALID_ARGUMENTS;
  if (!set_[positionOf(*found)] && !found->default_value) return JX_OBJECT_NOT_FOUND;
  std::memcpy(value, params_.data() + found->offset, size);
  return JX_SUCCESS;
}

jx_status_t RtTableData::getValue(uint32_t field_id, std::vector<uint32_t>* values) const {
  JXMODEL_ENTRY("JxRtTableData::getValue");
  if (field_id != kFieldMembers || !table_.hasDataField(field_id) || values == nullptr) {
    return JX_INVALID_ARGUMENTS;
  }
  if (!members) return JX_OBJECT_NOT_FOUND;
  *values = *members;
  return JX_SUCCESS;
}

jx_status_t RtTableData::getValue(uint32_t field_id, std::vector<bool>* values) const {
  JXMODEL_ENTRY("JxRtTableData::getValue");
  if (field_id != kFieldMembersActive || !table_.hasDataField(field_id) || values == nullptr) {
    return JX_INVALID_ARGUMENTS;
  }
  if (!members_active) return JX_OBJECT_NOT_FOUND;
  *values = *members_active;
  return JX_SUCCESS;
}

jx_status_t RtTableData::actionIdGet(uint32_t* action_id) const {
  JXMODEL_ENTRY("JxRtTableData::actionIdGet");
  if (action_id == nullptr) return JX_INVALID_ARGUMENTS;
  *action_id = action_ == nullptr ? 0 : action_->id;
  return JX_SUCCESS;
}

jx_status_t RtTableData::isActive(uint32_t field_id, bool* is_active) const {
  JXMODEL_ENTRY("JxRtTableData::isActive");
  if (is_active == nullptr) return JX_INVALID_ARGUMENTS;
  if (const Param* const found = param(field_id)) {
    *is_active = set_[positionOf(*found)];
  } else if (!table_.hasDataField(field_id)) {
    return JX_INVALID_ARGUMENTS;
  } else if (const auto* const narrow = number32(*this, field_id)) {
    *is_active = narrow->has_value();
  } else if (const auto* const wide = number64(*this, field_id)) {
    *is_active = wide->has_value();
  } else {
    *is_active = field_id == kFieldMembers ? members.has_value() : members_active.has_value();
  }
  return JX_SUCCESS;
}

}  // namespace jxmodel
