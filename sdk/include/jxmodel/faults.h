/* Faults of the software model: tells an SDK entry to fail, to lie, or to be late, so that what its
 * callers do then can be tested. Not part of the switch SDK.
 *
 * An entry is named as it is called: a plain function by its name ("pipe_process_plcmt_info"), a
 * method by class and name ("JxRtDevMgr::jxRtInfoGet"). Calls are counted from the moment a fault
 * is armed on the entry; disarmed, an entry pays one predictable branch. All functions may be
 * called from any thread.
 *
 * The environment variable JX_MODEL_FAULTS arms faults before the first SDK call: a list of
 * ENTRY:NTH:EFFECT separated by ';', where EFFECT is status=N, null, count=N or delay=MS, and NTH
 * counts from 1 (0 = every call). A list that cannot be read stops the process with a message.
 */
#ifndef JXMODEL_FAULTS_H
#define JXMODEL_FAULTS_H

#include "jxsdk/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What the n-th call does. */
typedef enum jx_model_fault_effect {
  JX_MODEL_FAULT_STATUS = 0, /* returns status `value` and does nothing else */
  JX_MODEL_FAULT_NULL = 1,   /* succeeds and yields null for the pointer that it hands out */
  JX_MODEL_FAULT_COUNT = 2,  /* pipe_process_plcmt_info: works, and reports `value` operations */
  /* works, `value` milliseconds late; jx_rt_table_operations_execute and
   * JxRtTable::tableOperationsExecute return at once, and the operation completes late, with all
   * that comes after it on the device's dispatch thread (jxmodel/service.h) */
  JX_MODEL_FAULT_DELAY = 3
} jx_model_fault_effect_t;

/** Arms one fault; several may be armed on one entry. `nth` counts from 1, 0 is every call.
 *  JX_OBJECT_NOT_FOUND: no such entry. JX_INVALID_ARGUMENTS: the entry cannot have this effect. */
JXSDK_API jx_status_t jx_model_fault_arm(const char* entry, uint64_t nth,
                                         jx_model_fault_effect_t effect, uint32_t value);

/** Disarms everything and forgets all counts. */
JXSDK_API void jx_model_fault_clear(void);

/** Calls of `entry` since a fault was first armed on it; 0 for an entry without. */
JXSDK_API uint64_t jx_model_fault_calls(const char* entry);

/** Names of all entries, null-terminated, static storage. */
JXSDK_API const char* const* jx_model_fault_entries(void);

#ifdef __cplusplus
}
#endif
#endif
