/* The control server of the software model, beyond jx_rt_grpc_server_run_with_addr (jxsdk/rt.h).
 * Not part of the switch SDK.
 */
#ifndef JXMODEL_CONTROL_H
#define JXMODEL_CONTROL_H

#include "jxsdk/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The TCP port that the control server of this process listens on, 0 if it does not run. Of use
 *  where the server was told to take a free one. Any thread may call it. */
JXSDK_API int jx_model_grpc_port(void);

#ifdef __cplusplus
}
#endif
#endif
