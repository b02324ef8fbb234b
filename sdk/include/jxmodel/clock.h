/* The clock of the software model: what hits of entries, ages and time stamps go by. One for the
 * process. Not part of the switch SDK.
 *
 * It runs with the time of the machine, or with the time stamps of the captures that come in (a day
 * of traffic in seconds), or stands still until it is moved. It never goes back while its source
 * stays the same. All functions may be called from any thread.
 */
#ifndef JXMODEL_CLOCK_H
#define JXMODEL_CLOCK_H

#include "jxsdk/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Where the time comes from. */
typedef enum jx_model_clock_source {
  JX_MODEL_CLOCK_REAL = 0,    /* the machine's time, as at the start */
  JX_MODEL_CLOCK_CAPTURE = 1, /* the latest time stamp of a packet that came in */
  JX_MODEL_CLOCK_STOPPED = 2  /* stands until it is moved */
} jx_model_clock_source_t;

/** Sets the source, and the time where the source is not the machine: `now_ns` in nanoseconds since
 *  1970 (ignored for JX_MODEL_CLOCK_REAL). JX_INVALID_ARGUMENTS: no such source. */
JXSDK_API jx_status_t jx_model_clock_set(jx_model_clock_source_t source, uint64_t now_ns);

/** Moves a clock that stands still on by `ns` nanoseconds. JX_NOT_SUPPORTED: it runs. */
JXSDK_API jx_status_t jx_model_clock_advance(uint64_t ns);

/** Nanoseconds since 1970. */
JXSDK_API uint64_t jx_model_clock_now(void);

/** The source. */
JXSDK_API jx_model_clock_source_t jx_model_clock_source(void);

#ifdef __cplusplus
}
#endif
#endif
