/* The pipeline manager: placement updates out of a virtual device, placement operations into a
 * physical one.
 *
 * A write to a table of a virtual device is reported, on the writer's thread and before the write
 * returns, to the callback registered on the table: update type, parameters, placement data. On a
 * physical device the same update is made by a placement info that holds one operation and is
 * then processed. Entry, group and table handles mean the same on both.
 *
 * Parameter blocks are laid out in 32-bit words (w0, w1, ...): a pointer begins at its word and
 * takes as many words as the host needs.
 */
#ifndef JXSDK_PIPE_MGR_H
#define JXSDK_PIPE_MGR_H

#include "jxsdk/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Pipeline manager statuses are the SDK's. */
typedef jx_status_t pipe_status_t;
#define PIPE_SUCCESS JX_SUCCESS

typedef uint32_t pipe_sess_hdl_t;    /* a session, see rt.h */
typedef uint32_t pipe_tbl_hdl_t;     /* a table; depends on the program description only */
typedef uint32_t pipe_mat_ent_hdl_t; /* a match entry; 0 is none */
typedef uint32_t pipe_adt_ent_hdl_t; /* an action-data entry; 0 is none */
typedef uint32_t pipe_sel_grp_hdl_t; /* a selector group; 0 is none */
typedef uint32_t pipe_act_fn_hdl_t;  /* an action of a program; 0 is none */

/** Brings the pipeline manager up, after jx_drv_init. A second call succeeds and does nothing. */
JXSDK_API pipe_status_t pipe_mgr_init(void);

/* ---- updates out of a virtual device ---------------------------------------------------- */

/** Updates of a match table. Kinds 1, 7 and 8 are the pipeline manager's own. */
typedef enum pipe_mat_update_type {
  PIPE_MAT_UPDATE_ADD = 0,
  PIPE_MAT_UPDATE_BATCH = 1,
  PIPE_MAT_UPDATE_SET_DFLT = 2,
  PIPE_MAT_UPDATE_CLR_DFLT = 3,
  PIPE_MAT_UPDATE_DEL = 4,
  PIPE_MAT_UPDATE_MOD = 5,
  PIPE_MAT_UPDATE_MOV = 6,
  PIPE_MAT_UPDATE_RELOAD = 7,
  PIPE_MAT_UPDATE_SETTLE = 8,
  PIPE_MAT_UPDATE_32_BITS = 0x7FFFFFFF /* width of the type, no kind */
} pipe_mat_update_type;

/** Updates of an action-data table. */
typedef enum pipe_adt_update_type {
  PIPE_ADT_UPDATE_ADD = 0,
  PIPE_ADT_UPDATE_DEL = 1,
  PIPE_ADT_UPDATE_MOD = 2,
  PIPE_ADT_UPDATE_32_BITS = 0x7FFFFFFF
} pipe_adt_update_type;

/** Updates of a selector table. */
typedef enum pipe_sel_update_type {
  PIPE_SEL_UPDATE_GROUP_CREATE = 0,
  PIPE_SEL_UPDATE_GROUP_DESTROY = 1,
  PIPE_SEL_UPDATE_ADD = 2,
  PIPE_SEL_UPDATE_DEL = 3,
  PIPE_SEL_UPDATE_ACTIVATE = 4,
  PIPE_SEL_UPDATE_DEACTIVATE = 5,
  PIPE_SEL_UPDATE_SET_FALLBACK = 6,
  PIPE_SEL_UPDATE_CLR_FALLBACK = 7,
  PIPE_SEL_UPDATE_32_BITS = 0x7FFFFFFF
} pipe_sel_update_type;

#pragma pack(push, 4)

/** What a match entry does: seven words that several parameter blocks share. */
typedef struct pipe_mat_action_words {
  pipe_act_fn_hdl_t act_fn_hdl;   /* action of a direct table, else 0 */
  pipe_adt_ent_hdl_t adt_ent_hdl; /* action-data entry that the entry refers to, or 0 */
  pipe_tbl_hdl_t adt_tbl_hdl;     /* table of that action-data entry, or 0 */
  pipe_tbl_hdl_t sel_tbl_hdl;     /* table of sel_grp_hdl, or 0 */
  pipe_sel_grp_hdl_t sel_grp_hdl; /* selector group that the entry refers to, or 0 */
  uint32_t key_size;              /* bytes of the match key in the placement data */
  uint32_t param_size;            /* bytes of the action parameters in the placement data */
} pipe_mat_action_words;

typedef struct pipe_mat_add_params { /* 10 words and the data pointer */
  pipe_mat_ent_hdl_t ent_hdl;        /* w0 */
  uint32_t ttl_ms;                   /* w1: idle time of the entry, 0 = none */
  uint32_t priority;                 /* w2: greater wins */
  pipe_mat_action_words act;         /* w3 to w9 */
  const void* data;                  /* w10 */
} pipe_mat_add_params;

typedef struct pipe_mat_set_params { /* set default and modify: 8 words and the data pointer */
  pipe_mat_ent_hdl_t ent_hdl;        /* w0 */
  pipe_mat_action_words act;         /* w1 to w7 */
  const void* data;                  /* w8 */
} pipe_mat_set_params;

typedef struct pipe_mat_mov_params { /* 9 words and the data pointer */
  pipe_mat_ent_hdl_t ent_hdl;        /* w0 */
  uint32_t priority;                 /* w1: the new priority */
  pipe_mat_action_words act;         /* w2 to w8 */
  const void* data;                  /* w9 */
} pipe_mat_mov_params;

typedef struct pipe_mat_hdl_params { /* clear default and delete */
  pipe_mat_ent_hdl_t ent_hdl;        /* w0 */
} pipe_mat_hdl_params;

/** Parameters of a match-table update; which member holds is the update type's. */
typedef union pipe_mat_update_params {
  pipe_mat_add_params add;
  pipe_mat_set_params set_dflt;
  pipe_mat_hdl_params clr_dflt;
  pipe_mat_hdl_params del;
  pipe_mat_set_params mod;
  pipe_mat_mov_params mov;
  uint32_t words[12];
} pipe_mat_update_params;

typedef struct pipe_adt_set_params { /* add and modify */
  pipe_adt_ent_hdl_t ent_hdl;        /* w0 */
  const void* data;                  /* w1 */
} pipe_adt_set_params;

typedef struct pipe_adt_hdl_params { /* delete */
  pipe_adt_ent_hdl_t ent_hdl;        /* w0 */
} pipe_adt_hdl_params;

/** Parameters of an action-data-table update. */
typedef union pipe_adt_update_params {
  pipe_adt_set_params add;
  pipe_adt_hdl_params del;
  pipe_adt_set_params mod;
  uint32_t words[4];
} pipe_adt_update_params;

/** One element of a selector group as it is created: 8 bytes. */
typedef struct pipe_sel_element {
  pipe_adt_ent_hdl_t adt_ent_hdl; /* the member */
  uint32_t active;                /* 1 = takes traffic, 0 = does not */
} pipe_sel_element;

typedef struct pipe_sel_create_params { /* 5 words and the array pointer */
  pipe_sel_grp_hdl_t grp_hdl;           /* w0 */
  uint32_t group_id;                    /* w1: the writer's own number of the group */
  uint32_t max_members;                 /* w2: 0 = the table's limit */
  pipe_tbl_hdl_t adt_tbl_hdl;           /* w3: table of the members */
  uint32_t num_elements;                /* w4 */
  const pipe_sel_element* elements;     /* w5 */
} pipe_sel_create_params;

typedef struct pipe_sel_member_params { /* delete, activate and deactivate: 4 words */
  pipe_sel_grp_hdl_t grp_hdl;           /* w0 */
  pipe_adt_ent_hdl_t adt_ent_hdl;       /* w1: the member */
  pipe_tbl_hdl_t adt_tbl_hdl;           /* w2: table of the member */
  uint32_t active;                      /* w3: state of the member after the update */
} pipe_sel_member_params;

typedef struct pipe_sel_add_params { /* 4 words and the data pointer */
  pipe_sel_grp_hdl_t grp_hdl;        /* w0 */
  pipe_adt_ent_hdl_t adt_ent_hdl;    /* w1 */
  pipe_tbl_hdl_t adt_tbl_hdl;        /* w2 */
  uint32_t active;                   /* w3 */
  const void* data;                  /* w4: action and parameters of the member */
} pipe_sel_add_params;

typedef struct pipe_sel_fallback_params { /* set fallback */
  pipe_adt_ent_hdl_t adt_ent_hdl;         /* w0 */
  const void* data;                       /* w1: action and parameters of the member */
} pipe_sel_fallback_params;

typedef struct pipe_sel_destroy_params {
  pipe_sel_grp_hdl_t grp_hdl; /* w0 */
} pipe_sel_destroy_params;

/** Parameters of a selector-table update; clear fallback has none. */
typedef union pipe_sel_update_params {
  pipe_sel_create_params grp_create;
  pipe_sel_destroy_params grp_destroy;
  pipe_sel_add_params add;
  pipe_sel_member_params del;
  pipe_sel_member_params activate;
  pipe_sel_member_params deactivate;
  pipe_sel_fallback_params set_fallback;
  uint32_t words[8];
} pipe_sel_update_params;

#pragma pack(pop)

/* Placement callbacks. They run on the thread that wrote the table, inside its call, one at a
 * time for a device; `params`, and all it points to, is valid until the callback returns. A
 * callback must not call into the device that reports. */
typedef void (*pipe_mat_update_cb)(jx_dev_target_t dev_tgt, pipe_tbl_hdl_t tbl_hdl,
                                   pipe_mat_update_type update_type, pipe_mat_update_params* params,
                                   void* cookie);
typedef void (*pipe_adt_update_cb)(jx_dev_target_t dev_tgt, pipe_tbl_hdl_t tbl_hdl,
                                   pipe_adt_update_type update_type, pipe_adt_update_params* params,
                                   void* cookie);
typedef void (*pipe_sel_update_cb)(jx_dev_target_t dev_tgt, pipe_tbl_hdl_t tbl_hdl,
                                   pipe_sel_update_type update_type, pipe_sel_update_params* params,
                                   void* cookie);

/* ---- operations into a physical device ---------------------------------------------------- */

/** Holds one placement operation. Made by pipe_create_plcmt_info, filled by one
 *  pipe_set_one_plcmt_op_* call (a second one fails with JX_ALREADY_EXISTS), processed, destroyed.
 *  It keeps references to the data and elements that it is given, not copies. */
typedef struct pipe_plcmt_info pipe_plcmt_info;

/** A fresh placement info, or null when memory is out. */
JXSDK_API pipe_plcmt_info* pipe_create_plcmt_info(void);

/** Frees a placement info; null is allowed. */
JXSDK_API void pipe_destroy_plcmt_info(pipe_plcmt_info* info);

/* `data` is what jx_drv_plcmt_copy_unpack wrote; data of another kind than the operation's, or
 * null, is JX_INVALID_ARGUMENTS. It must outlive the processing. */
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_mat_add(
    pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl, uint32_t pipe, uint32_t priority,
    pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl, const void* data);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_mat_set_dflt(
    pipe_plcmt_info* info, pipe_mat_ent_hdl_t ent_hdl, uint32_t pipe,
    pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl, const void* data);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_mat_clr_dflt(pipe_plcmt_info* info,
                                                           pipe_mat_ent_hdl_t ent_hdl,
                                                           uint32_t pipe);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_mat_del(pipe_plcmt_info* info,
                                                      pipe_mat_ent_hdl_t ent_hdl);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_mat_mod(pipe_plcmt_info* info,
                                                      pipe_mat_ent_hdl_t ent_hdl,
                                                      pipe_sel_grp_hdl_t sel_grp_hdl,
                                                      pipe_adt_ent_hdl_t adt_ent_hdl,
                                                      const void* data);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_mat_mov(pipe_plcmt_info* info,
                                                      pipe_mat_ent_hdl_t ent_hdl, uint32_t priority,
                                                      pipe_sel_grp_hdl_t sel_grp_hdl,
                                                      pipe_adt_ent_hdl_t adt_ent_hdl,
                                                      const void* data);

JXSDK_API pipe_status_t pipe_set_one_plcmt_op_adt_add(pipe_plcmt_info* info,
                                                      pipe_adt_ent_hdl_t ent_hdl, uint32_t pipe,
                                                      const void* data);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_adt_del(pipe_plcmt_info* info,
                                                      pipe_adt_ent_hdl_t ent_hdl);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_adt_mod(pipe_plcmt_info* info,
                                                      pipe_adt_ent_hdl_t ent_hdl, const void* data);

JXSDK_API pipe_status_t pipe_set_one_plcmt_op_sel_grp_create(
    pipe_plcmt_info* info, pipe_sel_grp_hdl_t grp_hdl, uint32_t pipe, uint32_t max_members,
    uint32_t group_id, pipe_tbl_hdl_t adt_tbl_hdl, uint32_t num_elements,
    const pipe_sel_element* elements);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_sel_grp_destroy(pipe_plcmt_info* info,
                                                              pipe_sel_grp_hdl_t grp_hdl,
                                                              uint32_t pipe);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_sel_add(pipe_plcmt_info* info,
                                                      pipe_sel_grp_hdl_t grp_hdl,
                                                      pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe,
                                                      pipe_tbl_hdl_t adt_tbl_hdl, uint32_t active,
                                                      const void* data);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_sel_del(pipe_plcmt_info* info,
                                                      pipe_sel_grp_hdl_t grp_hdl,
                                                      pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe,
                                                      pipe_tbl_hdl_t adt_tbl_hdl, uint32_t active);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_sel_activate(
    pipe_plcmt_info* info, pipe_sel_grp_hdl_t grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
    uint32_t pipe, pipe_tbl_hdl_t adt_tbl_hdl, uint32_t active);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_sel_deactivate(
    pipe_plcmt_info* info, pipe_sel_grp_hdl_t grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
    uint32_t pipe, pipe_tbl_hdl_t adt_tbl_hdl, uint32_t active);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_sel_set_fallback(pipe_plcmt_info* info,
                                                               pipe_adt_ent_hdl_t adt_ent_hdl,
                                                               uint32_t pipe, const void* data);
JXSDK_API pipe_status_t pipe_set_one_plcmt_op_sel_clr_fallback(pipe_plcmt_info* info,
                                                               uint32_t pipe);

/** Applies the info's operation to table `tbl_hdl` of physical device `dev_id`, and reports how
 *  many operations were processed: 1, or 0 for an info without an operation. `flags` is 0.
 *
 *  Nothing is half applied. JX_SESSION_NOT_FOUND, JX_OBJECT_NOT_FOUND (device, entry, group or
 *  member), JX_TABLE_NOT_FOUND, JX_ALREADY_EXISTS (handle or key taken), JX_NOT_ENOUGH_SPACE (table
 *  or group full), JX_ACTION_DATA_REFERENCED (action data still in use), JX_IN_USE (group still in
 *  use), JX_INVALID_ARGUMENTS (operation or data does not fit the table), JX_NOT_SUPPORTED (virtual
 *  device). */
JXSDK_API pipe_status_t pipe_process_plcmt_info(pipe_sess_hdl_t sess_hdl, jx_dev_id_t dev_id,
                                                pipe_tbl_hdl_t tbl_hdl, pipe_plcmt_info* info,
                                                uint32_t flags, uint32_t* num_processed);

#ifdef __cplusplus
}
#endif
#endif
