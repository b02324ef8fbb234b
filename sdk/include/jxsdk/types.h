/* Statuses, device identifiers and device profiles of the switch SDK.
 *
 * Every header of this folder but rt.hpp compiles as C and as C++. Functions return a
 * jx_status_t unless they say otherwise; outputs are left untouched on failure. All functions may
 * be called from any thread.
 */
#ifndef JXSDK_TYPES_H
#define JXSDK_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define JXSDK_API __attribute__((visibility("default")))
#else
#define JXSDK_API
#endif

/** Result of an SDK call: one of the values of jx_status_code, 0 on success. */
typedef int jx_status_t;

/** The statuses, each with the text that jx_rt_err_str gives for it. */
enum jx_status_code {
  JX_SUCCESS = 0,                       /* Success */
  JX_NOT_READY = 1,                     /* Not ready */
  JX_NO_SYSTEM_RESOURCES = 2,           /* No system resources */
  JX_INVALID_ARGUMENTS = 3,             /* Invalid arguments */
  JX_ALREADY_EXISTS = 4,                /* Already exists */
  JX_HW_ACCESS_FAILS = 5,               /* HW access fails */
  JX_OBJECT_NOT_FOUND = 6,              /* Object not found */
  JX_MAX_SESSIONS_EXCEEDED = 7,         /* Max sessions exceeded */
  JX_SESSION_NOT_FOUND = 8,             /* Session not found */
  JX_NOT_ENOUGH_SPACE = 9,              /* Not enough space */
  JX_TRY_AGAIN = 10,                    /* Resource temporarily not available, try again later */
  JX_INITIALIZATION_ERROR = 11,         /* Initialization error */
  JX_NOT_SUPPORTED_IN_TRANSACTION = 12, /* Not supported in transaction */
  JX_HELD_BY_ANOTHER_SESSION = 13,      /* Resource held by another session */
  JX_IO_ERROR = 14,                     /* IO error */
  JX_UNEXPECTED_ERROR = 15,             /* Unexpected error */
  JX_ACTION_DATA_REFERENCED = 16,       /* Action data entry is being referenced by match entries */
  JX_NOT_SUPPORTED = 17,                /* Operation not supported */
  JX_HW_UPDATE_FAILED = 18,             /* Updating hardware failed */
  JX_NO_LEARN_CLIENTS = 19,             /* No learning clients registered */
  JX_IDLE_UPDATE_IN_PROGRESS = 20,      /* Idle time update state already in progress */
  JX_DEVICE_LOCKED = 21,                /* Device locked */
  JX_INTERNAL_ERROR = 22,               /* Internal error */
  JX_TABLE_NOT_FOUND = 23,              /* Table not found */
  JX_IN_USE = 24,                       /* In use */
  JX_NOT_IMPLEMENTED = 25,              /* Object not implemented */
  JX_HW_ENTRY_NOT_FOUND = 26,           /* Hardware entry not found */
  JX_STATUS_COUNT = 27
};

/** Number of a device in this process: 0 to 255. */
typedef int32_t jx_dev_id_t;

/** What a device is made of. */
typedef enum jx_dev_type {
  JX_DEV_TYPE_ANY = 0,  /* whatever the driver stands on */
  JX_DEV_TYPE_CHIP = 1, /* a switching chip */
  JX_DEV_TYPE_MODEL = 2 /* the software model */
} jx_dev_type_t;

/** Which pipe of which device a placement update is for. */
typedef struct jx_dev_target {
  jx_dev_id_t device_id;
  uint32_t dev_pipe_id; /* pipe number, or JX_PIPE_ALL */
} jx_dev_target_t;

/** Every pipe of a device. */
#define JX_PIPE_ALL 0xFFFFu

/** What a device carries. Read during the call that it is given to; the caller keeps it. */
typedef struct jx_device_profile {
  uint32_t num_programs;            /* length of program_files */
  const char* const* program_files; /* the P4 programs to load, in order: paths of descriptions, of
                                       the compiler's JSON (or "JSON,P4INFO") or of P4Info */
  uint32_t handle_base;             /* virtual devices: the first entry and group handle given
                                       out; partners that share a table take ranges that are
                                       disjoint. 0 takes the driver's default, 1. Entries that a
                                       program gives a table from the start have the handles 1, 2,
                                       3 ... on every device; in such a table, those given out
                                       begin at handle_base plus their number */
} jx_device_profile_t;

#ifdef __cplusplus
}
#endif
#endif
