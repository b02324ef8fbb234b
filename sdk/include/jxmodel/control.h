/* The control server of the software model, beyond jx_rt_grpc_server_run_with_addr (jxsdk/rt.h).
 * Not part of the switch SDK.
 */
#ifndef JXMODEL_CONTROL_H
#define JXMODEL_CONTROL_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

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

/** Takes the answer of jx_model_settings_call: a status code of gRPC (0 is success), a message for
 *  people where it is another, and the reply. All are valid until it returns. */
typedef void (*jx_model_settings_answer)(void* cookie, int code, const char* message,
                                         const uint8_t* reply, size_t reply_bytes);

/** Makes one call of the control server's service jx.control.v1.Settings inside of this process,
 *  whether a server runs or not: `method` is its name ("Apply"), `request` and the reply are its
 *  messages as they would be sent. `answer` is called once, before this returns.
 *  JX_INVALID_ARGUMENTS: a null pointer, and nothing was called. Any thread may call it. */
JXSDK_API jx_status_t jx_model_settings_call(const char* method, const uint8_t* request,
                                             size_t request_bytes, jx_model_settings_answer answer,
                                             void* cookie);

#ifdef __cplusplus
}
#endif
#endif
