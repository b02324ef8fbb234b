#include "model/runtime/learn_data.h"

#include <cstring>

#include "model/base/faults.h"
#include "model/base/wire_value.h"

namespace jxmodel {

jx_status_t LearnData::setValue(uint32_t, uint64_t) {
  JXMODEL_ENTRY("JxRtTableData::setValue");
  return JX_NOT_SUPPORTED;
}

jx_status_t LearnData::setValue(uint32_t, const uint8_t*, size_t) {
  JXMODEL_ENTRY("JxRtTableData::setValue");
  return JX_NOT_SUPPORTED;
}

jx_status_t LearnData::setValue(uint32_t, const std::vector<uint32_t>&) {
  JXMODEL_ENTRY("JxRtTableData::setValue");
  return JX_NOT_SUPPORTED;
}

jx_status_t LearnData::setValue(uint32_t, const std::vector<bool>&) {
  JXMODEL_ENTRY("JxRtTableData::setValue");
  return JX_NOT_SUPPORTED;
}

jx_status_t LearnData::getValue(uint32_t field_id, uint64_t* value) const {
  JXMODEL_ENTRY("JxRtTableData::getValue");
  const LearnLayout::Field* const found = field(field_id);
  if (found == nullptr || value == nullptr || found->width > 64) return JX_INVALID_ARGUMENTS;
  const uint64_t number = readNumber(at(*found), bytesOf(found->width));
  std::memcpy(value, &number, sizeof number);  // `value` need not be aligned
  return JX_SUCCESS;
}

jx_status_t LearnData::getValue(uint32_t field_id, size_t size, uint8_t* value) const {
  JXMODEL_ENTRY("JxRtTableData::getValue");
  const LearnLayout::Field* const found = field(field_id);
  if (found == nullptr || value == nullptr || size != bytesOf(found->width)) {
    return JX_INVALID_ARGUMENTS;
  }
  std::memcpy(value, at(*found), size);
  return JX_SUCCESS;
}

jx_status_t LearnData::getValue(uint32_t, std::vector<uint32_t>*) const {
  JXMODEL_ENTRY("JxRtTableData::getValue");
  return JX_INVALID_ARGUMENTS;  // no field is a list
}

jx_status_t LearnData::getValue(uint32_t, std::vector<bool>*) const {
  JXMODEL_ENTRY("JxRtTableData::getValue");
  return JX_INVALID_ARGUMENTS;
}

jx_status_t LearnData::actionIdGet(uint32_t* action_id) const {
  JXMODEL_ENTRY("JxRtTableData::actionIdGet");
  if (action_id == nullptr) return JX_INVALID_ARGUMENTS;
  *action_id = 0;
  return JX_SUCCESS;
}

jx_status_t LearnData::isActive(uint32_t field_id, bool* is_active) const {
  JXMODEL_ENTRY("JxRtTableData::isActive");
  if (is_active == nullptr || field(field_id) == nullptr) return JX_INVALID_ARGUMENTS;
  *is_active = true;
  return JX_SUCCESS;
}

}  // namespace jxmodel
