/* The runtime table API as plain functions: programs, tables, keys, data, entries, attributes and
 * operations. Each handle is the C face of the object of the same name in rt.hpp.
 *
 * Ownership: handles of programs, tables and learn objects belong to their device and live as long
 * as it; keys, data, attributes, operations and sessions belong to the caller, who gives them back
 * through the matching deallocate or destroy call.
 *
 * Values: a field of `width` bits is read and written as a uint64_t (width up to 64) or as
 * (width + 7) / 8 bytes in network byte order. A value that does not fit its field is
 * JX_INVALID_ARGUMENTS.
 */
#ifndef JXSDK_RT_H
#define JXSDK_RT_H

#include "jxsdk/types.h"

#ifndef __cplusplus
#include <stdbool.h>
#else
extern "C" {
#endif

typedef struct jx_rt_info_hdl jx_rt_info_hdl;                         /* jxrt::JxRtInfo */
typedef struct jx_rt_table_hdl jx_rt_table_hdl;                       /* jxrt::JxRtTable */
typedef struct jx_rt_table_key_hdl jx_rt_table_key_hdl;               /* jxrt::JxRtTableKey */
typedef struct jx_rt_table_data_hdl jx_rt_table_data_hdl;             /* jxrt::JxRtTableData */
typedef struct jx_rt_session_hdl jx_rt_session_hdl;                   /* jxrt::JxRtSession */
typedef struct jx_rt_table_attributes_hdl jx_rt_table_attributes_hdl; /* JxRtTableAttributes */
typedef struct jx_rt_table_operations_hdl jx_rt_table_operations_hdl; /* JxRtTableOperations */
typedef struct jx_rt_learn_msg_hdl jx_rt_learn_msg_hdl; /* a learn message to acknowledge */

/** Which part of which device a call is for. */
typedef struct jx_rt_target {
  jx_dev_id_t dev_id;
  uint32_t pipe_id;   /* pipe number, or 0xFFFF for all pipes */
  uint32_t direction; /* 0 = both */
  uint32_t prsr_id;   /* parser number, 0 where it does not matter */
} jx_rt_target_t;

/** Kinds of table, by their numeric code. */
typedef enum jx_rt_table_type {
  JX_RT_TABLE_MATCH_DIRECT = 0,      /* an entry holds its action and parameters */
  JX_RT_TABLE_MATCH_ACTION_DATA = 1, /* an entry refers to an action-data entry */
  JX_RT_TABLE_MATCH_SELECTOR = 2,    /* an entry refers to an action-data entry or to a group */
  JX_RT_TABLE_ACTION_DATA = 3,
  JX_RT_TABLE_SELECTOR = 4,
  JX_RT_TABLE_COUNTER = 5
} jx_rt_table_type_t;

/** How a key field matches. */
typedef enum jx_rt_key_match_type {
  JX_RT_MATCH_INVALID = 0,
  JX_RT_MATCH_EXACT = 1,
  JX_RT_MATCH_TERNARY = 2,
  JX_RT_MATCH_RANGE = 3,
  JX_RT_MATCH_LPM = 4,
  JX_RT_MATCH_OPTIONAL = 5
} jx_rt_key_match_type_t;

/* Names of the fields that are no fields of a program. */
/* Key of an action-data table; data of an entry that refers to a member. 32 bits. */
#define JX_RT_FIELD_MEMBER_ID "$MEMBER_ID"
/* Key of a selector table; data of an entry that refers to a group. 32 bits. */
#define JX_RT_FIELD_GROUP_ID "$GROUP_ID"
/* Data of a group: 32 bits; a list of member ids; a list of states. */
#define JX_RT_FIELD_MAX_MEMBERS "$MAX_MEMBERS"
#define JX_RT_FIELD_MEMBERS "$MEMBERS"
#define JX_RT_FIELD_MEMBERS_ACTIVE "$MEMBERS_ACTIVE"
/* Data of an entry that ages: milliseconds, 32 bits. With 0, or without it, the entry stays. */
#define JX_RT_FIELD_TTL "$TTL"
/* Counter tables: key of 32 bits, data of 64 bits each. See the operations in rt.hpp. */
#define JX_RT_FIELD_COUNTER_INDEX "$COUNTER_INDEX"
#define JX_RT_FIELD_COUNTER_PKTS "$COUNTER_SPEC_PKTS"
#define JX_RT_FIELD_COUNTER_BYTES "$COUNTER_SPEC_BYTES"

/** Flags of reads: ask the hardware instead of the software copy. */
#define JX_RT_FLAG_FROM_HARDWARE UINT64_C(1)
/** Flag of jx_rt_table_attributes_set: the attributes are about idle time, as all are so far. It
 * may be left out. */
#define JX_RT_FLAG_IDLE_TIME UINT64_C(16)

/** Modes of idle-time attributes. */
typedef enum jx_rt_idle_table_mode {
  JX_RT_IDLE_MODE_POLL = 0,  /* the application asks */
  JX_RT_IDLE_MODE_NOTIFY = 1 /* the SDK calls back */
} jx_rt_idle_table_mode_t;

/** Kinds of table operation. */
typedef enum jx_rt_table_operations_mode {
  JX_RT_OPERATION_COUNTER_SYNC = 0
} jx_rt_table_operations_mode_t;

/** Called on the SDK's thread when an entry ages out. `key` names the entry: the first 32-bit word
 * in memory at `key` is the entry handle, and the key's fields can be read; it is valid until the
 *  callback returns. The callback may call the SDK; what it returns is not looked at. */
typedef jx_status_t (*jx_rt_idle_tmo_cb)(jx_rt_target_t* target, const jx_rt_table_key_hdl* key,
                                         void* cookie);

/** Called on the SDK's thread when a counter sync has completed. `target` is the sync's, valid
 * until the callback returns. The callback may call the SDK. */
typedef void (*jx_rt_counter_sync_cb)(jx_rt_target_t* target, void* cookie);

/** Brings the runtime up, after pipe_mgr_init. All four arguments are reserved and zero. A second
 *  call succeeds and does nothing. */
JXSDK_API jx_status_t jx_rt_module_init(uint32_t reserved0, uint32_t reserved1,
                                        const void* reserved2, const void* reserved3);

/** Stores the text of `status` in *text: static storage, "Unknown error" for an unknown one. */
JXSDK_API void jx_rt_err_str(jx_status_t status, const char** text);

/* ---- sessions --------------------------------------------------------------------------- */

/** Creates a session, as jxrt::JxRtSession::sessionCreate does. JX_MAX_SESSIONS_EXCEEDED if the
 *  process has as many as it can have (1024).
 *
 *  A session's handle is the address of its jxrt::JxRtSession object. A function with C linkage
 * that takes the object by reference is therefore declared in C with the handle in its place. */
JXSDK_API jx_status_t jx_rt_session_create(jx_rt_session_hdl** session);
/** Ends a session of jx_rt_session_create. JX_SESSION_NOT_FOUND if it is none. */
JXSDK_API jx_status_t jx_rt_session_destroy(jx_rt_session_hdl* session);
/** The session's handle in pipeline-manager calls; never 0. */
JXSDK_API uint32_t jx_rt_session_pipe_handle_get(const jx_rt_session_hdl* session);

/* ---- programs and tables ---------------------------------------------------------------- */

/** The information object of program `p4_name` on a device. JX_OBJECT_NOT_FOUND if there is no
 *  such device or program. */
JXSDK_API jx_status_t jx_rt_info_get(jx_dev_id_t dev_id, const char* p4_name,
                                     const jx_rt_info_hdl** info);
JXSDK_API jx_status_t jx_rt_table_from_name_get(const jx_rt_info_hdl* info, const char* name,
                                                const jx_rt_table_hdl** table);
JXSDK_API jx_status_t jx_rt_table_from_id_get(const jx_rt_info_hdl* info, uint32_t table_id,
                                              const jx_rt_table_hdl** table);
JXSDK_API jx_status_t jx_rt_table_id_get(const jx_rt_table_hdl* table, uint32_t* id);
/** The table's name, valid as long as the table. */
JXSDK_API jx_status_t jx_rt_table_name_get(const jx_rt_table_hdl* table, const char** name);
JXSDK_API jx_status_t jx_rt_table_type_get(const jx_rt_table_hdl* table, jx_rt_table_type_t* type);
/** Entries that the table can hold. */
JXSDK_API jx_status_t jx_rt_table_size_get(const jx_rt_table_hdl* table,
                                           const jx_rt_session_hdl* session,
                                           const jx_rt_target_t* target, uint64_t flags,
                                           size_t* size);
/** Entries that the table holds, without the default entry. */
JXSDK_API jx_status_t jx_rt_table_usage_get(const jx_rt_table_hdl* table,
                                            const jx_rt_session_hdl* session,
                                            const jx_rt_target_t* target, uint64_t flags,
                                            uint32_t* count);
/** Field and action ids by name; a data field of an action is looked up with that action. */
JXSDK_API jx_status_t jx_rt_key_field_id_get(const jx_rt_table_hdl* table, const char* name,
                                             uint32_t* id);
JXSDK_API jx_status_t jx_rt_data_field_id_get(const jx_rt_table_hdl* table, const char* name,
                                              uint32_t* id);
JXSDK_API jx_status_t jx_rt_data_field_id_with_action_get(const jx_rt_table_hdl* table,
                                                          const char* name, uint32_t action_id,
                                                          uint32_t* id);
JXSDK_API jx_status_t jx_rt_action_name_to_id(const jx_rt_table_hdl* table, const char* name,
                                              uint32_t* id);

/* ---- keys ------------------------------------------------------------------------------- */

JXSDK_API jx_status_t jx_rt_table_key_allocate(const jx_rt_table_hdl* table,
                                               jx_rt_table_key_hdl** key);
JXSDK_API jx_status_t jx_rt_table_key_deallocate(jx_rt_table_key_hdl* key);
/** Back to the state after allocation: every exact field 0, every other one a wildcard. */
JXSDK_API jx_status_t jx_rt_table_key_reset(const jx_rt_table_hdl* table,
                                            jx_rt_table_key_hdl** key);
JXSDK_API jx_status_t jx_rt_key_field_set_value(jx_rt_table_key_hdl* key, uint32_t field_id,
                                                uint64_t value);
JXSDK_API jx_status_t jx_rt_key_field_set_value_ptr(jx_rt_table_key_hdl* key, uint32_t field_id,
                                                    const uint8_t* value, size_t size);
JXSDK_API jx_status_t jx_rt_key_field_set_value_and_mask_ptr(jx_rt_table_key_hdl* key,
                                                             uint32_t field_id,
                                                             const uint8_t* value,
                                                             const uint8_t* mask, size_t size);
JXSDK_API jx_status_t jx_rt_key_field_set_value_range_ptr(jx_rt_table_key_hdl* key,
                                                          uint32_t field_id, const uint8_t* low,
                                                          const uint8_t* high, size_t size);
JXSDK_API jx_status_t jx_rt_key_field_set_value_lpm_ptr(jx_rt_table_key_hdl* key, uint32_t field_id,
                                                        const uint8_t* value,
                                                        uint16_t prefix_length, size_t size);
JXSDK_API jx_status_t jx_rt_key_field_set_value_optional_ptr(jx_rt_table_key_hdl* key,
                                                             uint32_t field_id,
                                                             const uint8_t* value, bool is_valid,
                                                             size_t size);
JXSDK_API jx_status_t jx_rt_key_field_get_value(const jx_rt_table_key_hdl* key, uint32_t field_id,
                                                uint64_t* value);
JXSDK_API jx_status_t jx_rt_key_field_get_value_ptr(const jx_rt_table_key_hdl* key,
                                                    uint32_t field_id, uint8_t* value, size_t size);
JXSDK_API jx_status_t jx_rt_key_priority_set(jx_rt_table_key_hdl* key, uint32_t priority);
JXSDK_API jx_status_t jx_rt_key_priority_get(const jx_rt_table_key_hdl* key, uint32_t* priority);

/* ---- data ------------------------------------------------------------------------------- */

/** Data without an action: for entries that refer to a member or group, groups, counters. */
JXSDK_API jx_status_t jx_rt_table_data_allocate(const jx_rt_table_hdl* table,
                                                jx_rt_table_data_hdl** data);
JXSDK_API jx_status_t jx_rt_table_action_data_allocate(const jx_rt_table_hdl* table,
                                                       uint32_t action_id,
                                                       jx_rt_table_data_hdl** data);
JXSDK_API jx_status_t jx_rt_table_data_deallocate(jx_rt_table_data_hdl* data);
JXSDK_API jx_status_t jx_rt_table_data_reset(const jx_rt_table_hdl* table,
                                             jx_rt_table_data_hdl** data);
JXSDK_API jx_status_t jx_rt_data_field_set_value(jx_rt_table_data_hdl* data, uint32_t field_id,
                                                 uint64_t value);
JXSDK_API jx_status_t jx_rt_data_field_set_value_ptr(jx_rt_table_data_hdl* data, uint32_t field_id,
                                                     const uint8_t* value, size_t size);
JXSDK_API jx_status_t jx_rt_data_field_set_value_array(jx_rt_table_data_hdl* data,
                                                       uint32_t field_id, const uint32_t* values,
                                                       size_t count);
JXSDK_API jx_status_t jx_rt_data_field_set_value_bool_array(jx_rt_table_data_hdl* data,
                                                            uint32_t field_id, const bool* values,
                                                            size_t count);
/** Writes 8 bytes at `value`, which need not be aligned. */
JXSDK_API jx_status_t jx_rt_data_field_get_value(const jx_rt_table_data_hdl* data,
                                                 uint32_t field_id, uint64_t* value);
JXSDK_API jx_status_t jx_rt_data_field_get_value_ptr(const jx_rt_table_data_hdl* data,
                                                     uint32_t field_id, size_t size,
                                                     uint8_t* value);
/** The action of the data, 0 if it has none. */
JXSDK_API jx_status_t jx_rt_data_action_id_get(const jx_rt_table_data_hdl* data, uint32_t* id);

/* ---- entries: as the methods of jxrt::JxRtTable of the same names -------------------------- */

JXSDK_API jx_status_t jx_rt_table_entry_add(const jx_rt_table_hdl* table,
                                            const jx_rt_session_hdl* session,
                                            const jx_rt_target_t* target, uint64_t flags,
                                            const jx_rt_table_key_hdl* key,
                                            const jx_rt_table_data_hdl* data);
JXSDK_API jx_status_t jx_rt_table_entry_mod(const jx_rt_table_hdl* table,
                                            const jx_rt_session_hdl* session,
                                            const jx_rt_target_t* target, uint64_t flags,
                                            const jx_rt_table_key_hdl* key,
                                            const jx_rt_table_data_hdl* data);
JXSDK_API jx_status_t jx_rt_table_entry_move(const jx_rt_table_hdl* table,
                                             const jx_rt_session_hdl* session,
                                             const jx_rt_target_t* target, uint64_t flags,
                                             const jx_rt_table_key_hdl* key);
JXSDK_API jx_status_t jx_rt_table_entry_del(const jx_rt_table_hdl* table,
                                            const jx_rt_session_hdl* session,
                                            const jx_rt_target_t* target, uint64_t flags,
                                            const jx_rt_table_key_hdl* key);
JXSDK_API jx_status_t jx_rt_table_entry_get(const jx_rt_table_hdl* table,
                                            const jx_rt_session_hdl* session,
                                            const jx_rt_target_t* target,
                                            const jx_rt_table_key_hdl* key,
                                            jx_rt_table_data_hdl* data, uint64_t flags);
JXSDK_API jx_status_t jx_rt_table_entry_get_first(const jx_rt_table_hdl* table,
                                                  const jx_rt_session_hdl* session,
                                                  const jx_rt_target_t* target,
                                                  jx_rt_table_key_hdl* key,
                                                  jx_rt_table_data_hdl* data, uint64_t flags);
JXSDK_API jx_status_t jx_rt_table_entry_get_next(const jx_rt_table_hdl* table,
                                                 const jx_rt_session_hdl* session,
                                                 const jx_rt_target_t* target,
                                                 const jx_rt_table_key_hdl* key,
                                                 jx_rt_table_key_hdl* next_key,
                                                 jx_rt_table_data_hdl* data, uint64_t flags);
JXSDK_API jx_status_t jx_rt_table_entry_handle_get(const jx_rt_table_hdl* table,
                                                   const jx_rt_session_hdl* session,
                                                   const jx_rt_target_t* target,
                                                   const jx_rt_table_key_hdl* key,
                                                   uint32_t* entry_handle);
JXSDK_API jx_status_t jx_rt_table_default_entry_set(const jx_rt_table_hdl* table,
                                                    const jx_rt_session_hdl* session,
                                                    const jx_rt_target_t* target, uint64_t flags,
                                                    const jx_rt_table_data_hdl* data);
JXSDK_API jx_status_t jx_rt_table_default_entry_clear(const jx_rt_table_hdl* table,
                                                      const jx_rt_session_hdl* session,
                                                      const jx_rt_target_t* target, uint64_t flags);
JXSDK_API jx_status_t jx_rt_table_default_entry_get(const jx_rt_table_hdl* table,
                                                    const jx_rt_session_hdl* session,
                                                    const jx_rt_target_t* target,
                                                    jx_rt_table_data_hdl* data, uint64_t flags);

/* ---- idle time -------------------------------------------------------------------------- */

/* An entry ages out when no packet has hit it for its TTL ($TTL), counted from the last hit, or
 * else from when it was added or modified. It stays where it is: the application is told, once, at
 * the first look after the TTL, and decides. A packet that hits the entry afterwards, or a
 * modification, wakes it: it can age out again. Default entries do not age.
 *
 * Packets hit the entries of physical devices. On a virtual device attributes can be set like
 * anywhere, but nothing ages and nobody is told.
 */

/** Attributes of a table that ages its entries, to be filled in and then set. JX_NOT_SUPPORTED: the
 *  table does not, or the mode is JX_RT_IDLE_MODE_POLL. */
JXSDK_API jx_status_t jx_rt_table_idle_table_attributes_allocate(
    const jx_rt_table_hdl* table, jx_rt_idle_table_mode_t mode,
    jx_rt_table_attributes_hdl** attributes);
JXSDK_API jx_status_t jx_rt_table_attributes_deallocate(jx_rt_table_attributes_hdl* attributes);
/** Fills attributes in: whether somebody is told, and who. `ttl_query_interval` is how often
 * entries are looked at, in milliseconds from when the attributes are set, 0 for as often as there
 * is something to find (1 ms). A TTL other than 0 counts as at most `max_ttl` and at least
 * `min_ttl` milliseconds, where these are not 0. JX_INVALID_ARGUMENTS: no callback, though enabled,
 * or `min_ttl` above `max_ttl`. */
JXSDK_API jx_status_t jx_rt_attributes_idle_table_notify_mode_set(
    jx_rt_table_attributes_hdl* attributes, bool enable, jx_rt_idle_tmo_cb callback,
    uint32_t ttl_query_interval, uint32_t max_ttl, uint32_t min_ttl, void* cookie);
/** Sets a table's attributes, in place of those that were set before: one callback is told of a
 *  table's entries. `flags` is 0 or JX_RT_FLAG_IDLE_TIME. The former callback is not called with
 * its cookie any more once this has returned, nor does it run then, unless it is where this is
 * called: that is the moment from which on the cookie may go. Nothing keeps a callback that runs,
 * or is about to, from using a cookie that went before. Entries that have aged out already are told
 * anew. The attributes may be deallocated at once. JX_INVALID_ARGUMENTS: they are another table's,
 * or were not filled in. */
JXSDK_API jx_status_t jx_rt_table_attributes_set(const jx_rt_table_hdl* table,
                                                 const jx_rt_session_hdl* session,
                                                 const jx_rt_target_t* target, uint64_t flags,
                                                 const jx_rt_table_attributes_hdl* attributes);

/* ---- operations: see rt.hpp -------------------------------------------------------------- */

JXSDK_API jx_status_t jx_rt_table_operations_allocate(const jx_rt_table_hdl* table,
                                                      jx_rt_table_operations_mode_t mode,
                                                      jx_rt_table_operations_hdl** operations);
JXSDK_API jx_status_t jx_rt_table_operations_deallocate(jx_rt_table_operations_hdl* operations);
/** `callback` may be null: the sync is made and nobody told. */
JXSDK_API jx_status_t jx_rt_operations_counter_sync_set(jx_rt_table_operations_hdl* operations,
                                                        const jx_rt_session_hdl* session,
                                                        const jx_rt_target_t* target,
                                                        jx_rt_counter_sync_cb callback,
                                                        const void* cookie);
/** Starts the operation and returns at once; the handle may be deallocated, or set and executed
 *  anew, before it completes. */
JXSDK_API jx_status_t jx_rt_table_operations_execute(const jx_rt_table_hdl* table,
                                                     const jx_rt_table_operations_hdl* operations);

/* ---- control server --------------------------------------------------------------------- */

/** Starts the SDK's gRPC server on `address` ("host:port"; port 0 takes a free one). It serves
 *  every device of the process until the process ends. JX_ALREADY_EXISTS if it runs,
 *  JX_INVALID_ARGUMENTS for a port that is no number up to 65535, JX_IO_ERROR if the address cannot
 *  be bound. */
JXSDK_API jx_status_t jx_rt_grpc_server_run_with_addr(const char* address);

#ifdef __cplusplus
}
#endif
#endif
