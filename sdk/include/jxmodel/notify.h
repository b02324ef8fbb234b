/* What the software model tells an application by itself: learn messages and entries that age. How
 * it gathers them, what became of them, and how a test makes them without packets. Not part of the
 * switch SDK.
 *
 * All functions may be called from any thread. Common to them: JX_OBJECT_NOT_FOUND, there is no
 * such device, program, learn object or table; JX_NOT_SUPPORTED, the device is a virtual one, which
 * tells nothing by itself.
 */
#ifndef JXMODEL_NOTIFY_H
#define JXMODEL_NOTIFY_H

#include <stddef.h>
#include <stdint.h>

#include "jxsdk/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- learn messages ----------------------------------------------------------------------- */

/** How digests become messages, for one learn object. None is 0 but batch_ms. */
typedef struct jx_model_learn_options {
  uint32_t batch;       /* a message is complete with so many digests; 32 to begin with, at
                           most 65536 */
  uint32_t batch_ms;    /* or so many milliseconds after its first one, by the model's clock;
                           1 to begin with, 0 sends each digest at once. With a clock that
                           follows captures a message is also complete when those end */
  uint32_t max_unacked; /* messages that may be delivered and not acknowledged; 16 */
  uint32_t max_waiting; /* digests that may wait meanwhile; 65536 */
} jx_model_learn_options_t;

/** What became of digests since the device was added. Each is counted once among suppressed, lost,
 *  unclaimed, delivered and waiting. */
typedef struct jx_model_learn_counts {
  uint64_t suppressed; /* an equal one was on its way, not acknowledged yet */
  uint64_t lost;       /* too many waited */
  uint64_t unclaimed;  /* nobody had registered, or has deregistered before they were delivered */
  uint64_t delivered;  /* given to the application */
  uint64_t waiting;    /* to be delivered */
  uint64_t messages;   /* delivered */
  uint64_t unacked;    /* messages delivered and not acknowledged */
} jx_model_learn_counts_t;

JXSDK_API jx_status_t jx_model_learn_options_get(jx_dev_id_t dev_id, const char* p4_name,
                                                 const char* learn_name,
                                                 jx_model_learn_options_t* options);
JXSDK_API jx_status_t jx_model_learn_options_set(jx_dev_id_t dev_id, const char* p4_name,
                                                 const char* learn_name,
                                                 const jx_model_learn_options_t* options);
JXSDK_API jx_status_t jx_model_learn_counts_get(jx_dev_id_t dev_id, const char* p4_name,
                                                const char* learn_name,
                                                jx_model_learn_counts_t* counts);

/** Makes `count` digests as if packets had sent them; `values` holds one after the other, each the
 *  object's fields in order, (width + 7) / 8 bytes in network byte order each. Equal ones are not
 *  suppressed. Waits until all have found room, so that none is lost. JX_NO_LEARN_CLIENTS: nobody
 *  has registered; JX_INVALID_ARGUMENTS: a value does not fit its field; JX_IN_USE: called from a
 *  callback of the device; JX_NOT_READY: the device is being removed. */
JXSDK_API jx_status_t jx_model_learn_inject(jx_dev_id_t dev_id, const char* p4_name,
                                            const char* learn_name, const uint8_t* values,
                                            size_t count);

/* ---- entries that age --------------------------------------------------------------------- */

/** Lets the entry age out now, whatever its TTL says: it is reported like any other, once, until a
 *  packet hits it. Does not wait for the report. JX_OBJECT_NOT_FOUND: no such entry; JX_NOT_READY:
 *  nobody is told of this table's entries, or the device is being removed. */
JXSDK_API jx_status_t jx_model_idle_expire(jx_dev_id_t dev_id, const char* p4_name,
                                           const char* table_name, uint32_t entry_handle);

/* ---- both --------------------------------------------------------------------------------- */

/** Waits until the device has told all that there is to tell at the time of the model's clock, and
 *  its callbacks have returned. JX_NOT_READY: `timeout_ms` passed before; JX_IN_USE: called from a
 *  callback of the device. */
JXSDK_API jx_status_t jx_model_notify_wait_idle(jx_dev_id_t dev_id, uint32_t timeout_ms);

#ifdef __cplusplus
}
#endif
#endif
