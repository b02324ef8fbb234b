// The partner library of this process, on behalf of one session and device.
#pragma once

#include "partner.h"

namespace jexapps {

class PartnerLibrary : public Partner {
 public:
  /// The session has to outlive this. Methods are called between PartnerLibStartup and
  /// PartnerLibShutdown. The agent's control service is at `control`, HOST:PORT; if that is empty,
  /// nobody is asked.
  PartnerLibrary(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                 std::string control)
      : session_(session), target_(target), control_(std::move(control)) {}

  std::optional<uint64_t> freeSharedMemory() override;
  bool agentKeepsCounters() override;
  PartnerCounterTableHandle startCounters(const TableFacts& table) override;
  bool readCounters(PartnerCounterTableHandle counters, uint32_t first, uint32_t count,
                    PartnerCounterEntry* entries, uint64_t* synced) override;
  void stopCounters(PartnerCounterTableHandle counters) override;

  uint64_t now() override;
  uint64_t sendBarrier(PartnerCounterTableHandle counters) override;
  uint64_t sendDoubleBarrier(PartnerCounterTableHandle counters) override;
  uint64_t lastBarrier() override;
  RoundTrips roundTrips() override;

  PartnerNotificationQueueHandle createQueue(const std::string& name, size_t size) override;
  void destroyQueue(PartnerNotificationQueueHandle queue) override;
  size_t dequeue(PartnerNotificationQueueHandle queue, void** records, size_t max) override;
  void freeRecords(void** records, size_t count) override;
  void registerIdle(const TableFacts& table, const IdleTimes& times,
                    PartnerNotificationQueueHandle queue) override;
  void deregisterIdle(const TableFacts& table) override;
  DigestTaken digestTaken(const DigestFacts& digest) override;
  void registerDigest(const DigestFacts& digest, PartnerNotificationQueueHandle queue) override;
  void deregisterDigest(const DigestFacts& digest) override;

 private:
  const jxrt::JxRtSession& session_;
  jx_rt_target_t target_;
  std::string control_;
};

}  // namespace jexapps
