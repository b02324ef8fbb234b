// Counters and barriers on the SliceAgent, and the shared segment through which counters reach
// Partners.
#pragma once

#include <boost/interprocess/managed_shared_memory.hpp>
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

#include "JexPartnerLib.h"
#include "JexPartnerLibWire.h"

namespace PartnerLib {

/// The segment of counters. A Partner makes it, and in it a block per table, named by the table's
/// id: a CounterBlockHeader_t and a PartnerCounterEntry per index. The SliceAgent finds the blocks
/// and writes the values. Its mutex guards making, finding and destroying blocks; values cross
/// without a lock.
struct CounterShm {
  static constexpr const char* kName = "PARTNERLIB_SHM_COUNTERS";
  static constexpr size_t kSize = 0x8000000;
  static constexpr int kPermissions = 0644;

  /// Null until the process first needs it; never released.
  JEX_API static boost::interprocess::managed_shared_memory* segment;

  static std::string blockName(uint32_t tableId) { return std::to_string(tableId); }
  /// Bytes of the block of a table with `entries` entries.
  static constexpr size_t blockBytes(size_t entries) {
    return sizeof(CounterBlockHeader_t) + entries * sizeof(PartnerCounterEntry);
  }
};

/// SliceAgent: one table whose counters a Partner has started. MSG_COUNTER_READ carries an image of
/// it, so what else the service keeps of a record stands elsewhere.
struct CounterReadStruct_t {
  uint32_t tableId;
  const jx_rt_table_hdl* table;  ///< of the physical device
  jx_rt_target_t target;         ///< the physical device, all pipes
  jx_rt_session_hdl* session;
  unsigned char* block;     ///< in the segment; not owned
  unsigned char* counters;  ///< its first entry
  uint32_t size;            ///< entries
  uint32_t indexField;
  uint32_t packetsField;
  uint32_t bytesField;
  int replySocket;          ///< of the Partner that started the counters; -1 if it never registered
  int32_t pid;              ///< of that Partner
  uint64_t readFlags;       ///< 0: the software copy, which the sync has refreshed
  uint64_t pendingBarrier;  ///< answered by the sync under way; 0 = none
  uint64_t nextBarrier;     ///< came meanwhile; 0 = none
};

/// A record's key in countersCallbackMap.
inline uint32_t counterKey(uint32_t tableId) { return tableId * 10; }

/// Records of the tables whose counters are started, owned. The loop writes it while timers of the
/// host program read it: it has a lock, in its source. It is never destroyed: these threads use it
/// until the process has ended.
JEX_API extern std::unordered_map<uint32_t, CounterReadStruct_t*>& countersCallbackMap;

// Handlers of one request each, on the loop thread.

JEX_API void counterConfigDeserialize(uint8_t dev, uint32_t sessionArg, const void* payload,
                                      size_t len, int replySocket, int pid);
JEX_API void counterReadDeserialize(uint8_t dev, uint32_t sessionArg, const void* payload,
                                    size_t len, int replySocket);
JEX_API void barrierDeserialize(uint8_t dev, uint32_t sessionArg, const void* payload, size_t len,
                                int replySocket);

/// Starts or stops the counters of one table. After it has stopped them, nothing is written into
/// the table's block any more. Stopping answers no barrier; a sync that is under way keeps the
/// record alive, completes, and answers the barrier that waits for it.
JEX_API void setCountersSync(jx_rt_target_t target, const char* programName, uint32_t tableId,
                             jx_rt_session_hdl* session, int replySocket, int pid, bool enable);

/// Starts one counter sync; `callback` is told on the SDK's thread when it is done. JX_SUCCESS, or
/// the process stops.
JEX_API jx_status_t registerCounterSyncCallback(jx_rt_target_t target, jx_rt_session_hdl* session,
                                                uint32_t tableId, const jx_rt_table_hdl* table,
                                                jx_rt_counter_sync_cb callback, void* cookie);

/// Copies a table's synced values into its block and answers the barrier that waited for them.
JEX_API void processCounterRead(CounterReadStruct_t* rec);

}  // namespace PartnerLib

/// The SDK's completion of a counter sync; `cookie` is the CounterReadStruct_t.
extern "C" JEX_API void counter_sync_callback(jx_rt_target_t* target, void* cookie);
