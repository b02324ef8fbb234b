// The C face of the runtime: bring-up, programs, facts of tables, keys and data.
#include "model/api/rt_handles.h"
#include "model/base/faults.h"
#include "model/device/registry.h"
#include "model/runtime/rt_table.h"

using namespace jxmodel;  // the functions below are this file's C face
using jxrt::JxRtTableData;
using jxrt::JxRtTableKey;

jx_status_t jx_rt_module_init(uint32_t reserved0, uint32_t reserved1, const void* reserved2,
                              const void* reserved3) {
  JXMODEL_ENTRY("jx_rt_module_init");
  if (reserved0 != 0 || reserved1 != 0 || reserved2 != nullptr || reserved3 != nullptr) {
    return JX_INVALID_ARGUMENTS;
  }
  return bringUp(BringUp::kRuntime);
}

/* ---- programs and tables ---------------------------------------------------------------- */

jx_status_t jx_rt_info_get(jx_dev_id_t dev_id, const char* p4_name, const jx_rt_info_hdl** info) {
  if (anyNull(p4_name, info)) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_info_get", info);
  const jxrt::JxRtInfo* found = nullptr;
  const jx_status_t status = DeviceRegistry::instance().jxRtInfoGet(dev_id, p4_name, &found);
  if (status == JX_SUCCESS) *info = handleOf<const jx_rt_info_hdl>(found);
  return status;
}

jx_status_t jx_rt_table_from_name_get(const jx_rt_info_hdl* info, const char* name,
                                      const jx_rt_table_hdl** table) {
  if (anyNull(info, name, table)) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_table_from_name_get", table);
  const jxrt::JxRtTable* found = nullptr;
  const jx_status_t status = object(info)->tableFromNameGet(name, &found);
  if (status == JX_SUCCESS) *table = handleOf<const jx_rt_table_hdl>(found);
  return status;
}

jx_status_t jx_rt_table_from_id_get(const jx_rt_info_hdl* info, uint32_t table_id,
                                    const jx_rt_table_hdl** table) {
  if (anyNull(info, table)) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_table_from_id_get", table);
  const jxrt::JxRtTable* found = nullptr;
  const jx_status_t status = object(info)->tableFromIdGet(table_id, &found);
  if (status == JX_SUCCESS) *table = handleOf<const jx_rt_table_hdl>(found);
  return status;
}

jx_status_t jx_rt_table_id_get(const jx_rt_table_hdl* table, uint32_t* id) {
  JXMODEL_ENTRY("jx_rt_table_id_get");
  return anyNull(table) ? JX_INVALID_ARGUMENTS : object(table)->tableIdGet(id);
}

jx_status_t jx_rt_table_name_get(const jx_rt_table_hdl* table, const char** name) {
  if (anyNull(table, name)) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_table_name_get", name);
  *name = static_cast<const RtTable*>(object(table))->name().c_str();
  return JX_SUCCESS;
}

jx_status_t jx_rt_table_type_get(const jx_rt_table_hdl* table, jx_rt_table_type_t* type) {
  JXMODEL_ENTRY("jx_rt_table_type_get");
  return anyNull(table) ? JX_INVALID_ARGUMENTS : object(table)->tableTypeGet(type);
}

jx_status_t jx_rt_table_size_get(const jx_rt_table_hdl* table, const jx_rt_session_hdl* session,
                                 const jx_rt_target_t* target, uint64_t flags, size_t* size) {
  JXMODEL_ENTRY("jx_rt_table_size_get");
  if (anyNull(table, session, target)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableSizeGet(*object(session), *target, flags, size);
}

jx_status_t jx_rt_table_usage_get(const jx_rt_table_hdl* table, const jx_rt_session_hdl* session,
                                  const jx_rt_target_t* target, uint64_t flags, uint32_t* count) {
  JXMODEL_ENTRY("jx_rt_table_usage_get");
  if (anyNull(table, session, target)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableUsageGet(*object(session), *target, flags, count);
}

jx_status_t jx_rt_key_field_id_get(const jx_rt_table_hdl* table, const char* name, uint32_t* id) {
  JXMODEL_ENTRY("jx_rt_key_field_id_get");
  return anyNull(table, name) ? JX_INVALID_ARGUMENTS : object(table)->keyFieldIdGet(name, id);
}

jx_status_t jx_rt_data_field_id_get(const jx_rt_table_hdl* table, const char* name, uint32_t* id) {
  JXMODEL_ENTRY("jx_rt_data_field_id_get");
  return anyNull(table, name) ? JX_INVALID_ARGUMENTS : object(table)->dataFieldIdGet(name, id);
}

jx_status_t jx_rt_data_field_id_with_action_get(const jx_rt_table_hdl* table, const char* name,
                                                uint32_t action_id, uint32_t* id) {
  JXMODEL_ENTRY("jx_rt_data_field_id_with_action_get");
  if (anyNull(table, name)) return JX_INVALID_ARGUMENTS;
  return object(table)->dataFieldIdGet(name, action_id, id);
}

jx_status_t jx_rt_action_name_to_id(const jx_rt_table_hdl* table, const char* name, uint32_t* id) {
  JXMODEL_ENTRY("jx_rt_action_name_to_id");
  return anyNull(table, name) ? JX_INVALID_ARGUMENTS : object(table)->actionIdGet(name, id);
}

/* ---- keys ------------------------------------------------------------------------------- */

jx_status_t jx_rt_table_key_allocate(const jx_rt_table_hdl* table, jx_rt_table_key_hdl** key) {
  if (anyNull(table, key)) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_table_key_allocate", key);
  return allocateHandle<JxRtTableKey>(
      key, [table](auto* made) { return object(table)->keyAllocate(made); });
}

jx_status_t jx_rt_table_key_deallocate(jx_rt_table_key_hdl* key) {
  JXMODEL_ENTRY("jx_rt_table_key_deallocate");
  return deallocateHandle(key);
}

jx_status_t jx_rt_table_key_reset(const jx_rt_table_hdl* table, jx_rt_table_key_hdl** key) {
  JXMODEL_ENTRY("jx_rt_table_key_reset");
  return anyNull(table, key) ? JX_INVALID_ARGUMENTS : object(table)->keyReset(object(*key));
}

jx_status_t jx_rt_key_field_set_value(jx_rt_table_key_hdl* key, uint32_t field_id, uint64_t value) {
  JXMODEL_ENTRY("jx_rt_key_field_set_value");
  return anyNull(key) ? JX_INVALID_ARGUMENTS : object(key)->setValue(field_id, value);
}

jx_status_t jx_rt_key_field_set_value_ptr(jx_rt_table_key_hdl* key, uint32_t field_id,
                                          const uint8_t* value, size_t size) {
  JXMODEL_ENTRY("jx_rt_key_field_set_value_ptr");
  return anyNull(key) ? JX_INVALID_ARGUMENTS : object(key)->setValue(field_id, value, size);
}

jx_status_t jx_rt_key_field_set_value_and_mask_ptr(jx_rt_table_key_hdl* key, uint32_t field_id,
                                                   const uint8_t* value, const uint8_t* mask,
                                                   size_t size) {
  JXMODEL_ENTRY("jx_rt_key_field_set_value_and_mask_ptr");
  if (anyNull(key)) return JX_INVALID_ARGUMENTS;
  return object(key)->setValueAndMask(field_id, value, mask, size);
}

jx_status_t jx_rt_key_field_set_value_range_ptr(jx_rt_table_key_hdl* key, uint32_t field_id,
                                                const uint8_t* low, const uint8_t* high,
                                                size_t size) {
  JXMODEL_ENTRY("jx_rt_key_field_set_value_range_ptr");
  if (anyNull(key)) return JX_INVALID_ARGUMENTS;
  return object(key)->setValueRange(field_id, low, high, size);
}

jx_status_t jx_rt_key_field_set_value_lpm_ptr(jx_rt_table_key_hdl* key, uint32_t field_id,
                                              const uint8_t* value, uint16_t prefix_length,
                                              size_t size) {
  JXMODEL_ENTRY("jx_rt_key_field_set_value_lpm_ptr");
  if (anyNull(key)) return JX_INVALID_ARGUMENTS;
  return object(key)->setValueLpm(field_id, value, prefix_length, size);
}

jx_status_t jx_rt_key_field_set_value_optional_ptr(jx_rt_table_key_hdl* key, uint32_t field_id,
                                                   const uint8_t* value, bool is_valid,
                                                   size_t size) {
  JXMODEL_ENTRY("jx_rt_key_field_set_value_optional_ptr");
  if (anyNull(key)) return JX_INVALID_ARGUMENTS;
  return object(key)->setValueOptional(field_id, value, is_valid, size);
}

jx_status_t jx_rt_key_field_get_value(const jx_rt_table_key_hdl* key, uint32_t field_id,
                                      uint64_t* value) {
  JXMODEL_ENTRY("jx_rt_key_field_get_value");
  return anyNull(key) ? JX_INVALID_ARGUMENTS : object(key)->getValue(field_id, value);
}

jx_status_t jx_rt_key_field_get_value_ptr(const jx_rt_table_key_hdl* key, uint32_t field_id,
                                          uint8_t* value, size_t size) {
  JXMODEL_ENTRY("jx_rt_key_field_get_value_ptr");
  return anyNull(key) ? JX_INVALID_ARGUMENTS : object(key)->getValue(field_id, size, value);
}

jx_status_t jx_rt_key_priority_set(jx_rt_table_key_hdl* key, uint32_t priority) {
  JXMODEL_ENTRY("jx_rt_key_priority_set");
  return anyNull(key) ? JX_INVALID_ARGUMENTS : object(key)->prioritySet(priority);
}

jx_status_t jx_rt_key_priority_get(const jx_rt_table_key_hdl* key, uint32_t* priority) {
  JXMODEL_ENTRY("jx_rt_key_priority_get");
  return anyNull(key) ? JX_INVALID_ARGUMENTS : object(key)->priorityGet(priority);
}

/* ---- data ------------------------------------------------------------------------------- */

jx_status_t jx_rt_table_data_allocate(const jx_rt_table_hdl* table, jx_rt_table_data_hdl** data) {
  if (anyNull(table, data)) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_table_data_allocate", data);
  return allocateHandle<JxRtTableData>(
      data, [table](auto* made) { return object(table)->dataAllocate(made); });
}

jx_status_t jx_rt_table_action_data_allocate(const jx_rt_table_hdl* table, uint32_t action_id,
                                             jx_rt_table_data_hdl** data) {
  if (anyNull(table, data)) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_table_action_data_allocate", data);
  return allocateHandle<JxRtTableData>(data, [table, action_id](auto* made) {
    return object(table)->dataAllocate(action_id, made);
  });
}

jx_status_t jx_rt_table_data_deallocate(jx_rt_table_data_hdl* data) {
  JXMODEL_ENTRY("jx_rt_table_data_deallocate");
  return deallocateHandle(data);
}

jx_status_t jx_rt_table_data_reset(const jx_rt_table_hdl* table, jx_rt_table_data_hdl** data) {
  JXMODEL_ENTRY("jx_rt_table_data_reset");
  return anyNull(table, data) ? JX_INVALID_ARGUMENTS : object(table)->dataReset(object(*data));
}

jx_status_t jx_rt_data_field_set_value(jx_rt_table_data_hdl* data, uint32_t field_id,
                                       uint64_t value) {
  JXMODEL_ENTRY("jx_rt_data_field_set_value");
  return anyNull(data) ? JX_INVALID_ARGUMENTS : object(data)->setValue(field_id, value);
}

jx_status_t jx_rt_data_field_set_value_ptr(jx_rt_table_data_hdl* data, uint32_t field_id,
                                           const uint8_t* value, size_t size) {
  JXMODEL_ENTRY("jx_rt_data_field_set_value_ptr");
  return anyNull(data) ? JX_INVALID_ARGUMENTS : object(data)->setValue(field_id, value, size);
}

jx_status_t jx_rt_data_field_set_value_array(jx_rt_table_data_hdl* data, uint32_t field_id,
                                             const uint32_t* values, size_t count) {
  JXMODEL_ENTRY("jx_rt_data_field_set_value_array");
  if (anyNull(data) || (count != 0 && values == nullptr)) return JX_INVALID_ARGUMENTS;
  return object(data)->setValue(field_id, std::vector<uint32_t>(values, values + count));
}

jx_status_t jx_rt_data_field_set_value_bool_array(jx_rt_table_data_hdl* data, uint32_t field_id,
                                                  const bool* values, size_t count) {
  JXMODEL_ENTRY("jx_rt_data_field_set_value_bool_array");
  if (anyNull(data) || (count != 0 && values == nullptr)) return JX_INVALID_ARGUMENTS;
  return object(data)->setValue(field_id, std::vector<bool>(values, values + count));
}

jx_status_t jx_rt_data_field_get_value(const jx_rt_table_data_hdl* data, uint32_t field_id,
                                       uint64_t* value) {
  JXMODEL_ENTRY("jx_rt_data_field_get_value");
  return anyNull(data) ? JX_INVALID_ARGUMENTS : object(data)->getValue(field_id, value);
}

jx_status_t jx_rt_data_field_get_value_ptr(const jx_rt_table_data_hdl* data, uint32_t field_id,
                                           size_t size, uint8_t* value) {
  JXMODEL_ENTRY("jx_rt_data_field_get_value_ptr");
  return anyNull(data) ? JX_INVALID_ARGUMENTS : object(data)->getValue(field_id, size, value);
}

jx_status_t jx_rt_data_action_id_get(const jx_rt_table_data_hdl* data, uint32_t* id) {
  JXMODEL_ENTRY("jx_rt_data_action_id_get");
  return anyNull(data) ? JX_INVALID_ARGUMENTS : object(data)->actionIdGet(id);
}
