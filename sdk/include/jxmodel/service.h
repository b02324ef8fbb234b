/* The thread of a physical device on which the software model tells the application what happened
 * by itself: counter syncs that are done, entries that aged, learn messages. Not part of the switch
 * SDK.
 *
 * A test holds it to make sure that something is still under way, and lets it go when it has seen
 * what it wanted to see. All functions may be called from any thread. Common to them:
 * JX_OBJECT_NOT_FOUND, there is no such device; JX_NOT_SUPPORTED, the device is a virtual one.
 */
#ifndef JXMODEL_SERVICE_H
#define JXMODEL_SERVICE_H

#include <stdbool.h>
#include <stdint.h>

#include "jxsdk/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Held, the thread begins nothing: no counter sync is made and no callback called. What runs when
 *  it is held goes on to its end. Let go, it goes on in the order in which things came. Does not
 *  wait. Whether it is held is one state, not a count. jx_device_remove does not wait for whoever
 *  holds it: what has not begun is dropped. */
JXSDK_API jx_status_t jx_model_service_hold(jx_dev_id_t dev_id, bool held);

/** How much has not come to its end: what waits for its turn, and what runs. */
JXSDK_API jx_status_t jx_model_service_pending(jx_dev_id_t dev_id, uint64_t* count);

#ifdef __cplusplus
}
#endif
#endif
