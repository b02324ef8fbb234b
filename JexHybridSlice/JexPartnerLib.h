/* The application interface of libJexPartnerAgentLib.so.
 *
 * A Partner programs a virtual device through the switch SDK; the library sends every table update
 * to the SliceAgent, the process that owns the physical device, where the same library replays
 * it. Counters come back through shared memory, notifications through queues. Partner and
 * SliceAgent run on one host.
 *
 * Plain functions have unmangled names; a C program can call all of them but those of the queue
 * tokens. bool is C's. The library has almost no soft failures: unless a function's comment says
 * otherwise, a failure prints one line that begins with "Error: " on standard error and stops the
 * process by a failed assertion (SIGABRT), whatever the build type. Nothing is rolled back, and
 * nothing about failures travels to the other process. A null where a name is asked for throws
 * std::logic_error, which a C caller cannot catch. Handles and other pointers are used as they are:
 * null is none only where that is said.
 *
 * A Partner's life: start up; start counters, register notifications; work; deregister, stop the
 * counters; shut down. What sends a request (all of that, and barriers) needs the connection, and
 * nothing checks that there is one: outside start-up and shut-down it is undefined. Queues can be
 * created, drained and destroyed, and time and barrier statistics read, at any time.
 */
#ifndef JEX_PARTNER_LIB_H
#define JEX_PARTNER_LIB_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "jxsdk/drv.h"
#include "jxsdk/rt.h"
#ifdef __cplusplus
#include "jxsdk/rt.hpp"
namespace moodycamel {
struct ProducerToken;
}
#endif

#define JEX_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* ---- start and stop ------------------------------------------------------------------------ */

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
///
/// A C program passes the handle of jx_rt_session_create, which is the address of the session.
#ifdef __cplusplus
JEX_API bool PartnerLibStartup(const jxrt::JxRtSession& session, jx_rt_target_t target,
                               jx_dev_type_t dev_type, jx_device_profile_t* profile);
#else
JEX_API bool PartnerLibStartup(const jx_rt_session_hdl* session, jx_rt_target_t target,
                               jx_dev_type_t dev_type, jx_device_profile_t* profile);
#endif

/** Partner: removes the virtual device `dev`, stops the receive thread, waits one second for queued
 *  requests to leave, closes the sockets and terminates the messaging library: no other
 *  nanomsg socket of the process survives it. Call it from the thread of PartnerLibStartup, with no
 *  other call into the library under way. Without a start-up before it only the device is
 *  removed (and the process stopped, if there is none). Counters and registrations that were not
 *  given up before stay in the process's books: they can be neither given up nor made anew. */
JEX_API void PartnerLibShutdown(jx_dev_id_t dev);

/** SliceAgent: serves Partners on "ipc:///tmp/Partner0" and replays their updates on physical
 *  device `dev`, on behalf of `session`, for ever: it does not return. `timeout` is the receive
 *  wait in milliseconds. The caller's thread runs the loop and all of its handlers. A message of a
 *  wrong length or an unknown type, a request that makes no sense, and every update that the device
 *  refuses stop the process. What else is in a request is taken on trust. The process ends by a
 *  signal or _exit: exit() would destroy what this thread and the SDK's go on using. */
JEX_API void PartnerLibServerStartup(jx_rt_session_hdl* session, uint8_t dev, int32_t timeout);

/* ---- counters (Partner) --------------------------------------------------------------------
 *
 * PartnerCounterInit, then any number of PartnerCounterRead, then PartnerCounterFree. Call them
 * from one thread, between PartnerLibStartup and PartnerLibShutdown. Values are those of the
 * SliceAgent's last counter sync of the table: ask for one with a barrier (below) and wait for it,
 * and what is read then is consistent. A read beside a sync may see old and new values side by
 * side. Until the first sync all values are 0.
 *
 * The values live in the shared segment "PARTNERLIB_SHM_COUNTERS". The first PartnerCounterInit of
 * a process makes it anew, and a SliceAgent keeps the one that it opened first: only one Partner
 * process in the life of a SliceAgent can have counters. A second one's first table stops the
 * SliceAgent. */

/** Counters of one table, from PartnerCounterInit to PartnerCounterFree. */
typedef void* PartnerCounterTableHandle;

/** One entry of a counter table. */
typedef struct PartnerCounterEntry {
  uint64_t packets;
  uint64_t bytes;
} PartnerCounterEntry;

#define PARTNER_PROGRAM_NAME_BYTES 256

/** A program name in as many bytes as PartnerCounterInit reads, WHATEVER THE NAME'S LENGTH. Use
 *  this, or a buffer of your own of at least 256 readable bytes: a pointer to a shorter string
 *  constant is read past its end. */
typedef struct PartnerProgramName {
  char text[PARTNER_PROGRAM_NAME_BYTES];
} PartnerProgramName;

/** `name` with zeros behind it. A name that is too long is cut, and no program has such a name. */
static inline PartnerProgramName PartnerProgramNameOf(const char* name) {
  PartnerProgramName whole;
  memset(whole.text, 0, sizeof(whole.text));
  for (size_t i = 0; i + 1 < sizeof(whole.text) && name[i] != '\0'; ++i) {
    whole.text[i] = name[i];
  }
  return whole;
}

/** Starts the counters of table `tableName` (a counter table of program `programName`) and stores
 *  their handle in *handle. `programName` points at 256 readable bytes: see PartnerProgramName.
 *  Returns true. If the table's counters have been started before, it returns true too, does
 *  nothing, and leaves *handle as it was. `session` is used during the call only.
 *
 *  A table that does not fit into what the segment (128 MiB, 16 bytes an entry) has left throws
 *  Boost.Interprocess's exception, which the library lets pass. */
JEX_API bool PartnerCounterInit(const char* programName, const char* tableName,
                                jx_rt_target_t target, jx_rt_session_hdl* session, void** handle);

/** Copies entries `first` to `first + count - 1` to `out` (16 bytes each: PartnerCounterEntry), and
 *  the time of their last sync (milliseconds of PartnerGetTimestamp's clock, 0 = never) to
 *  *timestamp. One copy, no lock, no message. Neither `first` nor `count` is checked against the
 *  table's size. False if the handle has no values. */
JEX_API bool PartnerCounterRead(PartnerCounterTableHandle handle, uint32_t first, uint32_t count,
                                void* out, uint64_t* timestamp);

/** Stops the counters. `handle` is invalid afterwards; the table's can be started again. Barriers
 *  that still wait for a sync of the table are answered without one.
 *
 *  The values leave the segment at once. A SliceAgent that has not handled the start by then stops:
 *  wait for a barrier in between. */
JEX_API void PartnerCounterFree(PartnerCounterTableHandle handle);

/* ---- barriers (Partner) --------------------------------------------------------------------
 *
 * A barrier is named by its time stamp, which the send functions return; it is complete when
 * PartnerBarrierGetLastComplete returns that value. Two that are sent in the same millisecond share
 * a name: before you send the next one, wait until PartnerGetTimestamp has passed the last. Wait
 * for the answer in a loop of your own, with a time-out: of barriers with counter sync that follow
 * each other quickly on one table, the last one only may be answered. Replies arrive on the
 * library's receive thread. */

/** Milliseconds of the steady clock: the time base of barriers, counters and notifications. */
JEX_API uint64_t PartnerGetTimestamp(void);

/** Asks the SliceAgent to answer when it has handled everything sent before. */
JEX_API uint64_t PartnerBarrierSend(void);
/** Asks it to sync the counters of the handle's table first. `handle` must not be null. */
JEX_API uint64_t PartnerBarrierSendWithCounterSync(PartnerCounterTableHandle handle);
/** Two barriers, the second stamped 10 ms later than the first: it is answered only after a sync
 *  that began after the first was handled. Returns the second's. A null handle asks for no sync. */
JEX_API uint64_t PartnerBarrierSendWithCounterSyncDouble(PartnerCounterTableHandle handle);

/** Time stamp of the barrier answered last, 0 before the first. */
JEX_API uint64_t PartnerBarrierGetLastComplete(void);

/** The longest round trip in milliseconds. Stores in *bins the live histogram of round trips and in
 *  *binCount its length, 32: bin 0 counts those below 10 ms, bin k those from 5(k+1) to below
 *  5(k+2) ms, the last those of 160 ms and more. Nothing resets them. A double barrier that is
 *  answered before its second time stamp has come counts as one beyond all bounds. */
JEX_API uint64_t PartnerBarrierGetMaxProcTime(uint32_t* binCount, uint64_t** bins);

/** Sends one barrier that asks for a sync of table `tableId` (0: none). The functions above do
 *  this, and remember it. */
JEX_API void sendBarrier(uint32_t tableId, uint64_t timestamp, int pid);

/* State of the barriers, in milliseconds; read it through the functions above. */
JEX_API extern uint64_t requestedTime; /* the last one sent; 0 when it has been answered */
JEX_API extern uint64_t lastResponse;  /* the last one answered */
JEX_API extern uint64_t maxProcTime;   /* the longest round trip */
JEX_API extern uint64_t latencyBins[32];

/* ---- notifications (Partner) ---------------------------------------------------------------
 *
 * In this order: create a queue; register tables and digests on it; drain it (dequeue, look, free)
 * from any number of threads; deregister; drain what is left; destroy the queue.
 *
 *  - Queues are created and destroyed, tables and digests registered and deregistered, from any
 *    thread; one queue may serve many registrations, and gets their records in the order in which
 *    they arrive, each registration's in its own order.
 *  - A queue that a registration still names must not be destroyed. What a queue still holds when
 *    it is destroyed is lost, and its memory with it: drain it first.
 *  - A table or digest can be registered ONCE in the life of a process: registering it again, even
 *    after it was deregistered, stops the process.
 *  - A record that arrives after its deregistration is dropped. */

/** A queue of notifications. */
typedef void* PartnerNotificationQueueHandle;

enum {
  PARTNER_NOTIFY_IDLE = 0,  /* PartnerIdleNotify */
  PARTNER_NOTIFY_DIGEST = 1 /* PartnerDigestNotify */
};

#pragma pack(push, 1)

/** An entry has aged out. */
typedef struct PartnerIdleNotify {
  uint8_t type;      /* PARTNER_NOTIFY_IDLE */
  uint8_t devId;     /* low byte of the physical device's number */
  uint8_t unused[2]; /* unspecified */
  uint32_t tableId;
  uint32_t entryKey; /* the entry's handle, the same on both devices */
  uint64_t time;     /* of sending; milliseconds of PartnerGetTimestamp's clock */
} PartnerIdleNotify;

/** A digest has been learned. `valueSize` bytes of field values follow: each field takes its width
 *  rounded up to bytes, in network byte order, in the learn object's order, without padding. */
typedef struct PartnerDigestNotify {
  uint8_t type; /* PARTNER_NOTIFY_DIGEST */
  uint8_t devId;
  uint16_t length; /* on the wire only; unspecified in what is dequeued */
  uint32_t learnId;
  uint64_t time;
  uint32_t valueSize;
} PartnerDigestNotify;

#pragma pack(pop)

/** Creates a queue called `name` with room for about `size` notifications before it has to allocate
 *  (it grows without bound), or finds the one of that name. Returns true, the queue in *handle. */
JEX_API bool PartnerNotificationQueueCreate(const char* name, size_t size, void** handle);

/** Takes up to `maxCount` notifications out of a queue, without waiting, and returns how many. Each
 *  points at a record whose first byte says which: it belongs to the caller, who gives it back
 *  through PartnerNotificationQueueValuesFree. */
JEX_API size_t PartnerNotificationQueueTryDequeue(void* queue, void** values, size_t maxCount);

/** Frees notifications; nulls among them are left out. */
JEX_API void PartnerNotificationQueueValuesFree(void** values, size_t count);

/** Destroys a queue; null is none. Returns true. */
JEX_API bool PartnerNotificationQueueDestroy(void* queue);

/** Asks for a notification on `queue` each time an entry of table `tableName` ages out. Intervals
 *  in milliseconds, as the SDK takes them: how often entries are looked at, and the bounds of an
 *  entry's time to live. Only the pipe of `target` is asked, on the SliceAgent's own device.
 *  `session` is used during the call. Returns true. */
JEX_API bool PartnerRegisterIdleNotification(const char* p4Name, const char* tableName,
                                             uint32_t ttlQueryInterval, uint32_t maxTtl,
                                             uint32_t minTtl, jx_rt_target_t target,
                                             jx_rt_session_hdl* session,
                                             PartnerNotificationQueueHandle queue);

/** Ends it. Returns FALSE, also when all went well. A table that was never registered stops the
 *  SliceAgent. */
JEX_API bool PartnerDeregisterIdleNotification(const char* p4Name, const char* tableName,
                                               jx_rt_target_t target);

/** Asks for a notification on `queue` for each entry of digest `digestName`. Returns true. */
JEX_API bool PartnerRegisterDigestNotification(const char* p4Name, const char* digestName,
                                               jx_rt_target_t target, jx_rt_session_hdl* session,
                                               PartnerNotificationQueueHandle queue);

/** Ends it. Returns true. A digest that was never registered stops the SliceAgent. */
JEX_API bool PartnerDeregisterDigestNotification(const char* p4Name, const char* digestName,
                                                 jx_rt_target_t target);

#ifdef __cplusplus

/// A producer's place in a queue, for code that uses the queue's own type,
/// moodycamel::ConcurrentQueue<void*>. Null if there is no memory for it.
JEX_API moodycamel::ProducerToken* PartnerNotificationQueueCreateToken(void* queue);
/// Gives it back; what it put into the queue stays there. Null is none.
JEX_API void PartnerNotificationQueueDeleteToken(moodycamel::ProducerToken* token);

}  // extern "C"

namespace PartnerLib {

// SliceAgent: what its host program calls on threads and at intervals of its own choosing, each
// from one thread at a time. All return true.

/// Sends a heartbeat to every registered Partner; each answers with a ping. A Partner that cannot
/// take the message within the library's send attempts (its process hangs, or is gone) stops the
/// process.
JEX_API bool PeriodicHeartbeatUpdate();

/// Starts a counter sync of every table whose counters a Partner has started, and returns. It also
/// answers barriers that came while an earlier sync was under way: without it they wait.
JEX_API bool PeriodicHybridCounterUpdate();

/// The same with a second sync of each table behind the first, which nobody is told of: for
/// software models of the chip.
JEX_API bool PeriodicHybridCounterUpdateModel();

}  // namespace PartnerLib
#endif

#endif
