// What the shell asks of the partner library. It stands behind an interface, so that tests can
// answer in the library's place.
//
// The library stops the process over requests that make no sense to it; whoever calls these methods
// has made sure that they do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "JexHybridSlice/JexPartnerLib.h"
#include "agent_control.h"
#include "digests.h"
#include "table.h"

namespace jexapps {

/// How a table's entries are watched: milliseconds.
struct IdleTimes {
  uint32_t query = 0;    // between two looks at the entries
  uint32_t max_ttl = 0;  // bounds of an entry's time to live
  uint32_t min_ttl = 0;
};

/// Round trips of barriers as the library counts them; see PartnerBarrierGetMaxProcTime.
struct RoundTrips {
  static constexpr size_t kBins = 32;
  uint64_t max = 0;  // milliseconds
  uint64_t bins[kBins] = {};
};

class Partner {
 public:
  virtual ~Partner() = default;

  // Counters. freeSharedMemory: bytes, none if it cannot be told; the library touches memory that
  // is not there, and the process ends over it. agentKeepsCounters: whether the slice agent has a
  // partner's segment already, and so stops over another one's. startCounters throws what the
  // library throws when the shared segment is full.
  virtual std::optional<uint64_t> freeSharedMemory() = 0;
  virtual bool agentKeepsCounters() = 0;
  virtual PartnerCounterTableHandle startCounters(const TableFacts& table) = 0;
  virtual bool readCounters(PartnerCounterTableHandle counters, uint32_t first, uint32_t count,
                            PartnerCounterEntry* entries, uint64_t* synced) = 0;
  virtual void stopCounters(PartnerCounterTableHandle counters) = 0;

  // Barriers: sending gives the time stamp that names them. Without counters, none are synced.
  virtual uint64_t now() = 0;
  virtual uint64_t sendBarrier(PartnerCounterTableHandle counters) = 0;
  virtual uint64_t sendDoubleBarrier(PartnerCounterTableHandle counters) = 0;
  virtual uint64_t lastBarrier() = 0;
  virtual RoundTrips roundTrips() = 0;

  // Notifications. Records belong to the caller until they are freed.
  virtual PartnerNotificationQueueHandle createQueue(const std::string& name, size_t size) = 0;
  virtual void destroyQueue(PartnerNotificationQueueHandle queue) = 0;
  virtual size_t dequeue(PartnerNotificationQueueHandle queue, void** records, size_t max) = 0;
  virtual void freeRecords(void** records, size_t count) = 0;
  virtual void registerIdle(const TableFacts& table, const IdleTimes& times,
                            PartnerNotificationQueueHandle queue) = 0;
  virtual void deregisterIdle(const TableFacts& table) = 0;
  // Whether a digest is another partner's, which loses it when this one registers it.
  virtual DigestTaken digestTaken(const DigestFacts& digest) = 0;
  virtual void registerDigest(const DigestFacts& digest, PartnerNotificationQueueHandle queue) = 0;
  virtual void deregisterDigest(const DigestFacts& digest) = 0;
};

}  // namespace jexapps
