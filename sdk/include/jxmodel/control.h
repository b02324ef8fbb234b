/* The control server of the software model, beyond jx_rt_grpc_server_run_with_addr (jxsdk/rt.h).
 * Not part of the switch SDK.
 */
#ifndef JXMODEL_CONTROL_H
#define JXMODEL_CONTROL_H

#include <stdbool.h>

#include "jxsdk/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The TCP port that the control server of this process listens on, 0 if it does not run. Of use
 *  where the server was told to take a free one. Any thread may call it. */
JXSDK_API int jx_model_grpc_port(void);

/** What the control server of this process answers to health checks from now on: SERVING or
 *  NOT_SERVING. It begins with SERVING: the server itself knows of nothing that could be wrong, so
 * a host whose work can stand still while the server answers says so here. Nothing else changes.
 *  Without a server nothing is done. Any thread may call it. */
JXSDK_API void jx_model_grpc_serving_set(bool serving);

#ifdef __cplusplus
}
#endif
#endif
