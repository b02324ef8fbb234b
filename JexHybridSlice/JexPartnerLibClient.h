// Private functions and registrations of the Partner's exported interface.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "JexPartnerLib.h"

/// The table `tableName` of program `p4Name` on device `dev`; null if the program has no such
/// table. Stops the process if the device has no such program.
const jxrt::JxRtTable* findJxRtTableFromName(uint8_t dev, std::string p4Name,
                                             std::string tableName);

/// Answers a heartbeat. Called while a ping of the same thread waits for room, it leaves the answer
/// to the call that sends that one.
void sendPing();

// ---- counters

/// Counters of one table, from start to stop: what a PartnerCounterTableHandle points at.
struct CounterHandleStruct {
  uint32_t tableId;
  unsigned char* block;     ///< in the segment
  unsigned char* counters;  ///< its first entry
  jx_rt_target_t target;
  char programName[PARTNER_PROGRAM_NAME_BYTES];
  uint64_t reserved;
};

/// Started tables by id, owned. Used by the application's one thread for counters. Never destroyed.
extern std::unordered_map<uint32_t, CounterHandleStruct*>& partnerCounterMap;

/// Asks the SliceAgent to start or stop the counters of a table. `programName` points at 256
/// readable bytes.
void sendEnableCounters(jx_rt_target_t target, const char* programName, uint32_t tableId,
                        bool enable);

// ---- notifications

/// Where notifications of one table go.
struct NotifyRegStruct {
  PartnerNotificationQueueHandle queue;
  moodycamel::ProducerToken* token;  ///< the receive thread's place in the queue, owned
  jx_rt_session_hdl* session;
  const jxrt::JxRtTable* table;  ///< of the virtual device
};

/// Where notifications of one digest go.
struct DigestNotifyRegStruct {
  PartnerNotificationQueueHandle queue;
  moodycamel::ProducerToken* token;  ///< the receive thread's place in the queue, owned
  jx_rt_session_hdl* session;
  const jxrt::JxRtLearn* learn;  ///< of the virtual device
};

// Registrations by table id and by learn id. An entry stays for ever: null once the registration
// has been given up, so that registering again is refused and late notifications are known as such.
// Application threads write them while the receive thread reads: they have a lock, in their source.
// They are never destroyed: that thread receives until a process that leaves without a shut-down is
// gone.
extern std::unordered_map<uint32_t, std::unique_ptr<NotifyRegStruct>>& partnerNotificationQueueMap;
extern std::unordered_map<uint32_t, std::unique_ptr<DigestNotifyRegStruct>>&
    partnerDigestNotificationQueueMap;

extern "C" {

/// What the virtual device reports its own aged entries to: nobody.
JEX_API jx_status_t dummyHlpIdletimeCallback(const jx_rt_target_t& target,
                                             const jxrt::JxRtTableKey* key, const void* cookie);

/// Asks the SliceAgent to arm or disarm idle-time notifications of a table.
JEX_API void sendEnableIdleNotifications(jx_rt_target_t target, const char* p4Name,
                                         unsigned tableId, unsigned ttlQueryInterval,
                                         unsigned maxTtl, unsigned minTtl, bool enable);

/// The learn object `learnName` of program `p4Name` on device `dev`; null if the program has none
/// such. Stops the process if the device has no such program.
JEX_API jxrt::JxRtLearn* findJxRtLearnFromName(uint8_t dev, std::string p4Name,
                                               std::string learnName);

/// Asks the SliceAgent to arm or disarm a digest whose fields have `size` bits in all.
JEX_API void sendEnableDigestNotifications(jx_rt_target_t target, const char* p4Name,
                                           unsigned learnId, unsigned size, bool enable);

}  // extern "C"
