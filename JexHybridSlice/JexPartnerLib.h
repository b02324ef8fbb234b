/* The application interface of libJexPartnerAgentLib.so.
 *
 * A Partner programs a virtual device through the switch SDK. The library sends every table
 * update to the SliceAgent, the process that owns the physical device, where the same library
 * replays the update. Counters come back through shared memory, notifications through queues.
 * Partner and SliceAgent run on one host, and load programs that give each table the same id and
 * the same size.
 *
 * ABI. Plain functions have unmangled names. A C program can call all of them but the queue tokens
 * and the periodic functions of the SliceAgent. bool is C's.
 *
 * Failures. The library has almost no soft failures. Unless a function's comment says otherwise:
 *  - A failure prints one line that begins with "Error: " on standard error and stops the
 *    process by a failed assertion (SIGABRT), in every build type.
 *  - Nothing is rolled back. Nothing about a failure travels to the other process.
 *  - A null where a name is asked for throws std::logic_error. An exception ends a C program.
 *  - Handles and other pointers are not checked. Null stands for "none" only where a comment
 *    says so.
 *
 * A Partner's life: start up; start counters, register notifications; work; deregister, stop the
 * counters; shut down.
 *  - Calls that send a request are valid between start-up and shut-down only: table writes,
 *    barriers, the start and the stop of counters, registering and deregistering. Nothing checks
 *    that.
 *  - Such a call returns when the messaging library has taken the request. While there is no
 *    room the call retries, 100,000 times at most; then it stops the process.
 *  - Queues can be created, drained and destroyed, and time and barrier statistics read, at any
 *    time.
 *
 * Names. The library exports four variables with very general names: requestedTime,
 * lastResponse, maxProcTime, latencyBins. A program must have no other global variable or C
 * function of these names: the linker would take it for the library's, and the library would
 * write to it. Static ones and those of a C++ namespace are no problem. A function of the
 * program may have the name of a function of the library: the library keeps calling its own. */
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
/// after its update has been handed to the socket. The other members of `target` are
/// passed to the SDK.
///
/// Success: returns true. Failure: stops the process. That is a failing SDK call, a socket that
/// cannot be opened, or a second call without PartnerLibShutdown in between. The second call adds
/// its device first, and then stops.
///
/// Blocks until a SliceAgent serves. There is no time-out, and no way to leave the wait: a signal's
/// handler runs, and the wait goes on. A program that has to end meanwhile calls _exit, from a
/// handler or from another thread.
///
/// `profile` is read during the call only. `session` stays the caller's and must outlive the
/// virtual device. Call it from one thread.
///
/// Starting again after a shut-down works towards a fresh SliceAgent only. The SliceAgent of the
/// first start stops: it takes no second registration of one process id.
///
/// The environment variable JEXPARTNER_TEST, if its value begins with "true", turns test mode on:
/// the SDK's gRPC server is started on 0.0.0.0:50053.
///
/// A C program passes the handle of jx_rt_session_create, which is the address of the session.
#ifdef __cplusplus
JEX_API bool PartnerLibStartup(const jxrt::JxRtSession& session, jx_rt_target_t target,
                               jx_dev_type_t dev_type, jx_device_profile_t* profile);
#else
JEX_API bool PartnerLibStartup(const jx_rt_session_hdl* session, jx_rt_target_t target,
                               jx_dev_type_t dev_type, jx_device_profile_t* profile);
#endif

/** Partner: removes the virtual device `dev`, stops the receive thread, waits one second for
 *  queued requests to leave, closes the sockets and terminates the messaging library. No other
 *  nanomsg socket of the process survives that.
 *
 *  Call it from the thread of PartnerLibStartup, with no other call into the library under way.
 *  Without a start-up before, only the device is removed; the process stops if there is none.
 *  Counters and registrations that still exist stay in the process's books: they can be neither
 *  removed nor made anew.
 *
 *  A Partner may also end without this call, by exit() or a signal. Requests that have not left
 *  are lost then. A Partner that has ended in either way stays registered: see
 *  PartnerLibServerStartup. */
JEX_API void PartnerLibShutdown(jx_dev_id_t dev);

/** SliceAgent: serves Partners on "ipc:///tmp/Partner0" and replays their updates on physical
 *  device `dev`, on behalf of `session`, for ever: it does not return. `timeout` is the receive
 *  wait in milliseconds. The caller's thread runs the loop and all of its handlers.
 *
 *  What stops the process:
 *  - a message of a wrong length or of an unknown type, a request that makes no sense, an update
 *    that the device refuses. Everything else in a request is taken on trust.
 *  - a signal whose handler runs on this thread: it interrupts the loop's wait. Block all
 *    signals that have a handler on this thread before the call, and let another thread of the
 *    host take them. Other threads of the host, those of the SDK, and a Partner's threads need
 *    not block any.
 *  - a Partner that has died or hangs, as soon as a heartbeat, a notification or the reply to a
 *    barrier is due to it and its socket takes nothing for 100,000 attempts. So does a Partner
 *    that has shut down in good order: nothing takes back a registration.
 *  - a second registration of one process id.
 *  - two registrations of tables with one key, or two of digests. The key is the number of the
 *    Partner's socket in the SliceAgent, plus 10 times the id of the table or digest: Partners
 *    whose sockets are 10 apart collide on tables, or on digests, of adjacent ids.
 *  - registrations beyond about 510 in the SliceAgent's life, each start of a Partner being one:
 *    the messaging library has no more sockets. The registration itself fails without a word;
 *    the Partner's next barrier or notification then stops the SliceAgent for all Partners.
 *
 *  End of the process. exit() and a return from main, on another thread, end the process with
 *  their status. The loop, the host's timers and the SDK's threads go on until the process has
 *  ended, and what the library needs for them is never destroyed. Objects of the host that these
 *  threads use must not be destroyed by exit() either. The socket's file stays; the next
 *  SliceAgent replaces it. A signal that ends the process and _exit are as good. */
JEX_API void PartnerLibServerStartup(jx_rt_session_hdl* session, uint8_t dev, int32_t timeout);

/* ---- counters (Partner) --------------------------------------------------------------------
 *
 * PartnerCounterInit, then any number of PartnerCounterRead, then PartnerCounterFree. Call them
 * from one thread, between PartnerLibStartup and PartnerLibShutdown.
 *
 *  - Values are those of the SliceAgent's last counter sync of the table. Until the first sync
 *    all values are 0. A read during a sync may see old and new values side by side.
 *  - Ask for a sync with a barrier (below) and wait for the reply. With a SliceAgent without
 *    periodic updates, what is read then is consistent, and as new as the barrier. With periodic
 *    updates, a sync that began before the barrier may answer it, and another may run during the
 *    read. There, the double barrier shows that a sync began after its first half was handled.
 *  - The values live in the shared segment "PARTNERLIB_SHM_COUNTERS" of 128 MiB. The first
 *    PartnerCounterInit of a process makes it anew, and a SliceAgent keeps the segment that it
 *    opened first. So only one Partner process in the life of a SliceAgent can have counters. A
 *    second one's first table stops the SliceAgent.
 *  - Partner and SliceAgent must load programs with equal table sizes. A table that is larger in
 *    the SliceAgent's program than in the Partner's stops the SliceAgent. */

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

/** Starts the counters of table `tableName`, a counter table of program `programName` on the
 *  virtual device `target.dev_id`. The SliceAgent syncs all pipes of its own device, whatever
 *  `target` says. `programName` points at 256 readable bytes: see PartnerProgramName. `session`
 *  is used during the call only.
 *
 *  Success: returns true, and *handle is the table's handle; the library owns it. If the table's
 *  counters have been started before, the call returns true too, does nothing, and leaves
 *  *handle as it was. Never returns false.
 *
 *  Failure: stops the process, but throws Boost.Interprocess's exception where the segment
 *  cannot be made, or has no room for 12 bytes plus 16 bytes per entry. The library lets that
 *  exception pass: a C program ends. *handle is as it was. The segment's file is sparse: where
 *  /dev/shm has no memory left for it, the process ends by SIGBUS.
 *
 *  Does not wait until the SliceAgent has handled it. The call writes zeros to the table's part of
 * the segment, which takes some 30 ms per million entries. */
JEX_API bool PartnerCounterInit(const char* programName, const char* tableName,
                                jx_rt_target_t target, jx_rt_session_hdl* session, void** handle);

/** Copies entries `first` to `first + count - 1` to `out` (16 bytes each: PartnerCounterEntry),
 *  and the time of their last sync (milliseconds of PartnerGetTimestamp's clock, 0 = never) to
 *  *timestamp. One copy, no lock, no message, no wait. Neither `first` nor `count` is checked
 *  against the table's size. Returns true; false, with nothing written, if the handle has no
 *  values. */
JEX_API bool PartnerCounterRead(PartnerCounterTableHandle handle, uint32_t first, uint32_t count,
                                void* out, uint64_t* timestamp);

/** Stops the counters. `handle` is invalid afterwards; the table's counters can be started
 *  again. Does not wait until the SliceAgent has handled it.
 *
 *  - Before: wait for a barrier after PartnerCounterInit. The table's block leaves the segment
 *    at once, and a SliceAgent that has not handled the start by then stops.
 *  - After: a sync under way may still write into the memory that the block had. Send a plain
 *    barrier and wait for its reply before other counters are started: then nothing writes there
 *    any more.
 *  - Barriers: a sync that is under way answers the barrier that waits for it. A barrier that
 *    waits for a later sync is never answered. */
JEX_API void PartnerCounterFree(PartnerCounterTableHandle handle);

/* ---- barriers (Partner) --------------------------------------------------------------------
 *
 * A barrier asks the SliceAgent for a reply when everything sent before has been handled, and,
 * if the barrier names a table with counters, when these have been synced.
 *
 *  - A barrier is named by its time stamp, which the send functions return. It is complete when
 *    PartnerBarrierGetLastComplete returns that value.
 *  - Have one barrier outstanding per process, sent by one thread. A waiter that compares for
 *    equality misses its value when another reply follows before it looks.
 *  - Two barriers that are sent in the same millisecond share a name. Before the next one is
 *    sent, wait until PartnerGetTimestamp has passed the last.
 *  - Wait in a loop of your own, with a time-out. The library has no call that waits.
 *  - A barrier for a table that arrives during the sync of an earlier barrier waits for a second
 *    sync. A third takes the place of the second, which is then never answered. Only the
 *    SliceAgent's periodic updates start that second sync. Without them the barrier that waits,
 *    and all that follow it for this table, are never answered: send one after the reply to the
 *    other.
 *  - The reply of a barrier with counter sync goes to the Partner that STARTED the counters, not
 *    to the Partner that sent the barrier.
 *  - A barrier for a table with counters whose time stamp is 0 is never answered: see
 *    sendBarrier.
 *
 * Replies arrive on the library's receive thread. */

/** Milliseconds of the steady clock: the time base of barriers, counters and notifications. Any
 *  thread. */
JEX_API uint64_t PartnerGetTimestamp(void);

/** Sends a barrier without counter sync, and returns its time stamp. */
JEX_API uint64_t PartnerBarrierSend(void);
/** Sends a barrier that asks for a sync of the counters of the handle's table. Returns its time
 *  stamp. `handle` must not be null. */
JEX_API uint64_t PartnerBarrierSendWithCounterSync(PartnerCounterTableHandle handle);
/** Sends two such barriers, the second stamped 10 ms later than the first: the second is
 *  answered only after a sync that began after the first was handled. That takes a SliceAgent
 *  with periodic updates. Returns the second's time stamp. A null handle asks for no sync. */
JEX_API uint64_t PartnerBarrierSendWithCounterSyncDouble(PartnerCounterTableHandle handle);

/** Time stamp of the barrier answered last, 0 before the first. Any thread; does not wait. */
JEX_API uint64_t PartnerBarrierGetLastComplete(void);

/** Returns the longest round trip in milliseconds. Stores in *bins the live histogram of round
 *  trips and in *binCount its length, 32. Bin 0 counts those below 10 ms, bin k those from
 *  5(k+1) to below 5(k+2) ms, the last those of 160 ms and more. Nothing resets them. The second
 *  of a double barrier, answered before its time stamp has come, counts as a round trip beyond
 *  all bounds. Any thread; does not wait. The histogram is the library's, for the life of the
 *  process. */
JEX_API uint64_t PartnerBarrierGetMaxProcTime(uint32_t* binCount, uint64_t** bins);

/** Sends one barrier named `timestamp` that asks for a sync of table `tableId` (0: none), on
 *  behalf of process `pid`. The send functions above call this, and then store the time stamp in
 *  requestedTime. `timestamp` must not be 0: for a table with counters a barrier of that name is
 *  never answered. */
JEX_API void sendBarrier(uint32_t tableId, uint64_t timestamp, int pid);

/* State of the barriers, in milliseconds. Read the last three through the functions above. Each
 * is stored by the receive thread, requestedTime by the sending thread too. */

/** Time stamp of the barrier sent last; 0 when that one has been answered. The send functions
 *  store it after sending: an answer that comes before the store does not clear it, and it keeps
 *  the time stamp of an answered barrier until the next one is sent. Compare
 *  PartnerBarrierGetLastComplete with the time stamp rather than wait for 0. */
JEX_API extern uint64_t requestedTime;
JEX_API extern uint64_t lastResponse; /* the last one answered */
JEX_API extern uint64_t maxProcTime;  /* the longest round trip */
JEX_API extern uint64_t latencyBins[32];

/* ---- notifications (Partner) ---------------------------------------------------------------
 *
 * In this order: create a queue; register tables and digests on it; drain it (dequeue, read,
 * free) from any number of threads; deregister; drain what is left; destroy the queue.
 *
 *  - Queues are created and destroyed, tables and digests registered and deregistered, from any
 *    thread. One queue may serve many registrations. The records of each registration are
 *    dequeued in their order; between registrations there is no order.
 *  - A queue that a registration still names must not be destroyed. What a queue still holds
 *    when it is destroyed is lost, and its memory with it: drain it first.
 *  - A table or digest can be registered ONCE in the life of a process. Registering it again,
 *    even after it was deregistered, stops the process.
 *  - A record that arrives after its deregistration is dropped.
 *  - Two Partners must not register one table or one digest. The SDK reports to one of them: the
 *    second takes the reports over without a word, and whichever deregisters first ends them for
 *    both.
 *  - A digest whose fields make 2028 bytes or more stops the SliceAgent, not the Partner, at its
 *    first message. */

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

/** A digest has been learned. `valueSize` bytes of field values follow: each field takes its
 *  width rounded up to bytes, in network byte order, in the learn object's order, without
 *  padding. */
typedef struct PartnerDigestNotify {
  uint8_t type;     /* PARTNER_NOTIFY_DIGEST */
  uint8_t devId;    /* low byte of the physical device's number */
  uint16_t length;  /* on the wire only; unspecified in what is dequeued */
  uint32_t learnId; /* of the digest; see PartnerRegisterDigestNotification */
  uint64_t time;    /* of sending; milliseconds of PartnerGetTimestamp's clock */
  uint32_t valueSize;
} PartnerDigestNotify;

#pragma pack(pop)

/** Creates a queue called `name` with room for about `size` notifications before it has to
 *  allocate (it grows without bound), or finds the queue of that name. Returns true, the queue
 *  in *handle; the library owns it until PartnerNotificationQueueDestroy. */
JEX_API bool PartnerNotificationQueueCreate(const char* name, size_t size, void** handle);

/** Takes up to `maxCount` notifications out of a queue, without waiting, and returns how many.
 *  Each points at a record whose first byte is its kind. The record belongs to the caller, who
 *  releases it by PartnerNotificationQueueValuesFree. `values` beyond the returned number are as
 *  they were. */
JEX_API size_t PartnerNotificationQueueTryDequeue(void* queue, void** values, size_t maxCount);

/** Frees notifications; nulls among them are left out. Any thread. */
JEX_API void PartnerNotificationQueueValuesFree(void** values, size_t count);

/** Destroys a queue; null is none. Returns true. */
JEX_API bool PartnerNotificationQueueDestroy(void* queue);

/* What `target` means in the four calls that follow: `dev_id` is the Partner's own virtual
 * device, on which the names are looked up; `pipe_id` is the pipe of the SliceAgent's device
 * that reports, 0xFFFF for all; the other members do not reach the SliceAgent. None of these
 * calls waits until the SliceAgent has handled it. A name that does not exist stops the process. */

/** Asks for a notification on `queue` each time an entry of table `tableName` ages out.
 *  Intervals in milliseconds, as the SDK takes them: how often entries are scanned, and the
 *  bounds of an entry's time to live. `session` is used during the call only. `queue` stays the
 *  caller's. Returns true. */
JEX_API bool PartnerRegisterIdleNotification(const char* p4Name, const char* tableName,
                                             uint32_t ttlQueryInterval, uint32_t maxTtl,
                                             uint32_t minTtl, jx_rt_target_t target,
                                             jx_rt_session_hdl* session,
                                             PartnerNotificationQueueHandle queue);

/** Ends it. Returns FALSE, also when all went well. A table that was never registered stops the
 *  SliceAgent. */
JEX_API bool PartnerDeregisterIdleNotification(const char* p4Name, const char* tableName,
                                               jx_rt_target_t target);

/** Asks for a notification on `queue` for each entry of digest `digestName`. `session` is not
 *  used. `queue` stays the caller's. Returns true.
 *
 *  A notification names its digest by `learnId`. C++ gets that id from
 *  jxrt::JxRtLearn::learnIdGet. The SDK has no C function for it: a C program gives each digest
 *  a queue of its own, or takes the id from the first notification. */
JEX_API bool PartnerRegisterDigestNotification(const char* p4Name, const char* digestName,
                                               jx_rt_target_t target, jx_rt_session_hdl* session,
                                               PartnerNotificationQueueHandle queue);

/** Ends it. Returns true. A digest that was never registered stops the SliceAgent. */
JEX_API bool PartnerDeregisterDigestNotification(const char* p4Name, const char* digestName,
                                                 jx_rt_target_t target);

#ifdef __cplusplus

/// A producer's place in a queue, for code that uses the queue's own type,
/// moodycamel::ConcurrentQueue<void*>. Null if there is no memory for it. The caller owns it.
JEX_API moodycamel::ProducerToken* PartnerNotificationQueueCreateToken(void* queue);
/// Releases a token; what was put into the queue with it stays there. Null is none.
JEX_API void PartnerNotificationQueueDeleteToken(moodycamel::ProducerToken* token);

}  // extern "C"

namespace PartnerLib {

// SliceAgent: what its host program calls on threads and at intervals of its own choosing, each
// from one thread at a time. All return true.

/// Sends a heartbeat to every registered Partner; each answers with a ping. A Partner that cannot
/// take the message within the library's send attempts (its process hangs, or has ended) stops the
/// process. So call it only where Partners never end before the SliceAgent does.
JEX_API bool PeriodicHeartbeatUpdate();

/// Starts a counter sync of every table whose counters a Partner has started, and returns. These
/// syncs also answer the barriers that came while an earlier sync was under way; nothing else does.
JEX_API bool PeriodicHybridCounterUpdate();

/// The same with a second sync of each table behind the first, which reports to no callback: for
/// software models of the chip.
JEX_API bool PeriodicHybridCounterUpdateModel();

}  // namespace PartnerLib
#endif

#endif
