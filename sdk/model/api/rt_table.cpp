// The C face of the runtime: entries, default entries, attributes and operations.
#include "model/runtime/rt_table.h"

#include "model/api/rt_handles.h"
#include "model/base/faults.h"

using namespace jxmodel;  // the functions below are this file's C face
using jxrt::JxRtTableAttributes;
using jxrt::JxRtTableOperations;

jx_status_t jx_rt_table_entry_add(const jx_rt_table_hdl* table, const jx_rt_session_hdl* session,
                                  const jx_rt_target_t* target, uint64_t flags,
                                  const jx_rt_table_key_hdl* key,
                                  const jx_rt_table_data_hdl* data) {
  JXMODEL_ENTRY("jx_rt_table_entry_add");
  if (anyNull(table, session, target) || anyNull(key, data)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableEntryAdd(*object(session), *target, flags, *object(key),
                                      *object(data));
}

jx_status_t jx_rt_table_entry_mod(const jx_rt_table_hdl* table, const jx_rt_session_hdl* session,
                                  const jx_rt_target_t* target, uint64_t flags,
                                  const jx_rt_table_key_hdl* key,
                                  const jx_rt_table_data_hdl* data) {
  JXMODEL_ENTRY("jx_rt_table_entry_mod");
  if (anyNull(table, session, target) || anyNull(key, data)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableEntryMod(*object(session), *target, flags, *object(key),
                                      *object(data));
}

jx_status_t jx_rt_table_entry_move(const jx_rt_table_hdl* table, const jx_rt_session_hdl* session,
                                   const jx_rt_target_t* target, uint64_t flags,
                                   const jx_rt_table_key_hdl* key) {
  JXMODEL_ENTRY("jx_rt_table_entry_move");
  if (anyNull(table, session, target, key)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableEntryMove(*object(session), *target, flags, *object(key));
}

jx_status_t jx_rt_table_entry_del(const jx_rt_table_hdl* table, const jx_rt_session_hdl* session,
                                  const jx_rt_target_t* target, uint64_t flags,
                                  const jx_rt_table_key_hdl* key) {
  JXMODEL_ENTRY("jx_rt_table_entry_del");
  if (anyNull(table, session, target, key)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableEntryDel(*object(session), *target, flags, *object(key));
}

jx_status_t jx_rt_table_entry_get(const jx_rt_table_hdl* table, const jx_rt_session_hdl* session,
                                  const jx_rt_target_t* target, const jx_rt_table_key_hdl* key,
                                  jx_rt_table_data_hdl* data, uint64_t flags) {
  JXMODEL_ENTRY("jx_rt_table_entry_get");
  if (anyNull(table, session, target, key)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableEntryGet(*object(session), *target, flags, *object(key), object(data));
}

jx_status_t jx_rt_table_entry_get_first(const jx_rt_table_hdl* table,
                                        const jx_rt_session_hdl* session,
                                        const jx_rt_target_t* target, jx_rt_table_key_hdl* key,
                                        jx_rt_table_data_hdl* data, uint64_t flags) {
  JXMODEL_ENTRY("jx_rt_table_entry_get_first");
  if (anyNull(table, session, target)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableEntryGetFirst(*object(session), *target, flags, object(key),
                                           object(data));
}

jx_status_t jx_rt_table_entry_get_next(const jx_rt_table_hdl* table,
                                       const jx_rt_session_hdl* session,
                                       const jx_rt_target_t* target, const jx_rt_table_key_hdl* key,
                                       jx_rt_table_key_hdl* next_key, jx_rt_table_data_hdl* data,
                                       uint64_t flags) {
  JXMODEL_ENTRY("jx_rt_table_entry_get_next");
  if (anyNull(table, session, target, key)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableEntryGetNext(*object(session), *target, flags, *object(key),
                                          object(next_key), object(data));
}

jx_status_t jx_rt_table_entry_handle_get(const jx_rt_table_hdl* table,
                                         const jx_rt_session_hdl* session,
                                         const jx_rt_target_t* target,
                                         const jx_rt_table_key_hdl* key, uint32_t* entry_handle) {
  JXMODEL_ENTRY("jx_rt_table_entry_handle_get");
  if (anyNull(table, session, target, key)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableEntryHandleGet(*object(session), *target, *object(key), entry_handle);
}

jx_status_t jx_rt_table_default_entry_set(const jx_rt_table_hdl* table,
                                          const jx_rt_session_hdl* session,
                                          const jx_rt_target_t* target, uint64_t flags,
                                          const jx_rt_table_data_hdl* data) {
  JXMODEL_ENTRY("jx_rt_table_default_entry_set");
  if (anyNull(table, session, target, data)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableDefaultEntrySet(*object(session), *target, flags, *object(data));
}

jx_status_t jx_rt_table_default_entry_clear(const jx_rt_table_hdl* table,
                                            const jx_rt_session_hdl* session,
                                            const jx_rt_target_t* target, uint64_t flags) {
  JXMODEL_ENTRY("jx_rt_table_default_entry_clear");
  if (anyNull(table, session, target)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableDefaultEntryClear(*object(session), *target, flags);
}

jx_status_t jx_rt_table_default_entry_get(const jx_rt_table_hdl* table,
                                          const jx_rt_session_hdl* session,
                                          const jx_rt_target_t* target, jx_rt_table_data_hdl* data,
                                          uint64_t flags) {
  JXMODEL_ENTRY("jx_rt_table_default_entry_get");
  if (anyNull(table, session, target)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableDefaultEntryGet(*object(session), *target, flags, object(data));
}

/* ---- idle time -------------------------------------------------------------------------- */

jx_status_t jx_rt_table_idle_table_attributes_allocate(const jx_rt_table_hdl* table,
                                                       jx_rt_idle_table_mode_t mode,
                                                       jx_rt_table_attributes_hdl** attributes) {
  if (anyNull(table, attributes)) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_table_idle_table_attributes_allocate", attributes);
  return allocateHandle<JxRtTableAttributes>(attributes, [table, mode](auto* made) {
    return object(table)->idleTableAttributesAllocate(mode, made);
  });
}

jx_status_t jx_rt_table_attributes_deallocate(jx_rt_table_attributes_hdl* attributes) {
  JXMODEL_ENTRY("jx_rt_table_attributes_deallocate");
  return deallocateHandle(attributes);
}

jx_status_t jx_rt_attributes_idle_table_notify_mode_set(jx_rt_table_attributes_hdl* attributes,
                                                        bool enable, jx_rt_idle_tmo_cb callback,
                                                        uint32_t ttl_query_interval,
                                                        uint32_t max_ttl, uint32_t min_ttl,
                                                        void* cookie) {
  JXMODEL_ENTRY("jx_rt_attributes_idle_table_notify_mode_set");
  if (attributes == nullptr) return JX_INVALID_ARGUMENTS;
  jxrt::JxRtIdleTmoCb notify;
  if (callback != nullptr) {
    notify = [callback](const jx_rt_target_t& target, const jxrt::JxRtTableKey* key,
                        const void* given) {
      jx_rt_target_t copy = target;
      return callback(&copy, handleOf<const jx_rt_table_key_hdl>(key), const_cast<void*>(given));
    };
  }
  return object(attributes)
      ->idleTableNotifyModeSet(enable, notify, ttl_query_interval, max_ttl, min_ttl, cookie);
}

jx_status_t jx_rt_table_attributes_set(const jx_rt_table_hdl* table,
                                       const jx_rt_session_hdl* session,
                                       const jx_rt_target_t* target, uint64_t flags,
                                       const jx_rt_table_attributes_hdl* attributes) {
  JXMODEL_ENTRY("jx_rt_table_attributes_set");
  if (anyNull(table, session, target, attributes)) return JX_INVALID_ARGUMENTS;
  return object(table)->tableAttributesSet(*object(session), *target, flags, *object(attributes));
}

/* ---- operations ------------------------------------------------------------------------- */

jx_status_t jx_rt_table_operations_allocate(const jx_rt_table_hdl* table,
                                            jx_rt_table_operations_mode_t mode,
                                            jx_rt_table_operations_hdl** operations) {
  if (anyNull(table, operations)) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("jx_rt_table_operations_allocate", operations);
  return allocateHandle<JxRtTableOperations>(operations, [table, mode](auto* made) {
    return object(table)->operationsAllocate(mode, made);
  });
}

jx_status_t jx_rt_table_operations_deallocate(jx_rt_table_operations_hdl* operations) {
  JXMODEL_ENTRY("jx_rt_table_operations_deallocate");
  return deallocateHandle(operations);
}

jx_status_t jx_rt_operations_counter_sync_set(jx_rt_table_operations_hdl* operations,
                                              const jx_rt_session_hdl* session,
                                              const jx_rt_target_t* target,
                                              jx_rt_counter_sync_cb callback, const void* cookie) {
  JXMODEL_ENTRY("jx_rt_operations_counter_sync_set");
  if (anyNull(operations, session, target)) return JX_INVALID_ARGUMENTS;
  return object(operations)->counterSyncSet(*object(session), *target, callback, cookie);
}

jx_status_t jx_rt_table_operations_execute(const jx_rt_table_hdl* table,
                                           const jx_rt_table_operations_hdl* operations) {
  const fault::Hit hit = fault::checkWithoutWaiting("jx_rt_table_operations_execute");
  if (hit.isStatus()) return hit.status();
  if (anyNull(table, operations)) return JX_INVALID_ARGUMENTS;
  return static_cast<const RtTable*>(object(table))->executeLate(*object(operations), hit.delay);
}
