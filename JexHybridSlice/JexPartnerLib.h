// The application interface of libJexPartnerAgentLib.so.
//
// A Partner programs a virtual device through the switch SDK; the library sends every table update
// to the SliceAgent, the process that owns the physical device, where the same library replays
// it. Partner and SliceAgent run on one host.
//
// Plain functions have unmangled names; bool is the C++ one. The library has almost no soft
// failures: unless a function's comment says otherwise, a failure prints one line that begins with
// "Error: " on standard error and stops the process by a failed assertion (SIGABRT), whatever the
// build type. Nothing is rolled back, and nothing about failures travels to the other process.
#ifndef JEX_PARTNER_LIB_H
#define JEX_PARTNER_LIB_H

#include <cstdint>

#include "jxsdk/drv.h"
#include "jxsdk/rt.hpp"

#define JEX_API __attribute__((visibility("default")))

extern "C" {

/// Partner: brings the SDK up (once per process), adds the virtual device `target.dev_id` with
/// `profile` and `dev_type`, connects to the SliceAgent, registers the reverse path and installs
/// the update capture on every table of the device. From then on each table write returns only
/// after its update has been handed to the socket.
///
/// Blocks until a SliceAgent serves. Returns true, or stops the process: a failing SDK call, a
/// socket that cannot be opened, or a second call without PartnerLibShutdown in between (which adds
/// its device first, and then stops). `profile` is read during the call only; `session` has to
/// outlive the virtual device.
///
/// The environment variable JEXPARTNER_TEST, if its value begins with "true", turns test mode on:
/// the SDK's gRPC server is started on 0.0.0.0:50053.
///
/// Call it from one thread. Starting again after a shut-down works, but the SliceAgent of the first
/// start takes a second registration of one process id for a broken invariant and stops; start
/// again only towards a fresh SliceAgent.
JEX_API bool PartnerLibStartup(const jxrt::JxRtSession& session, jx_rt_target_t target,
                               jx_dev_type_t dev_type, jx_device_profile_t* profile);

/// Partner: removes the virtual device `dev`, stops the receive thread, waits one second for queued
/// requests to leave, closes the sockets and terminates the messaging library: no other
/// nanomsg socket of the process survives it. Call it from the thread of PartnerLibStartup, with no
/// other call into the library under way. Without a start-up before it only the device is removed.
JEX_API void PartnerLibShutdown(jx_dev_id_t dev);

/// SliceAgent: serves Partners on "ipc:///tmp/Partner0" and replays their updates on physical
/// device `dev`, on behalf of `session`, for ever: it does not return. `timeout` is the receive
/// wait in milliseconds. The caller's thread runs the loop and all of its handlers. Everything that
/// is not a well-formed request, and every update that the device refuses, stops the process.
JEX_API void PartnerLibServerStartup(jx_rt_session_hdl* session, uint8_t dev, int32_t timeout);

}  // extern "C"

namespace PartnerLib {

/// SliceAgent: sends a heartbeat to every registered Partner; each answers with a ping. Call it
/// from any one thread, at an interval of your choosing. Returns true. A Partner that cannot take
/// the message within the library's send attempts (its process hangs, or is gone) stops the
/// process.
JEX_API bool PeriodicHeartbeatUpdate();

}  // namespace PartnerLib

#endif
