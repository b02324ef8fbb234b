#include "partner_library.h"

#include <algorithm>
#include <iterator>

#include "agent_segment.h"

namespace jexapps {

std::optional<uint64_t> PartnerLibrary::freeSharedMemory() { return jexapps::freeSharedMemory(); }

bool PartnerLibrary::agentKeepsCounters() { return agentHasCounterSegment(); }

PartnerCounterTableHandle PartnerLibrary::startCounters(const TableFacts& table) {
  const PartnerProgramName program = PartnerProgramNameOf(table.program.c_str());
  PartnerCounterTableHandle counters = nullptr;
  PartnerCounterInit(program.text, table.name.c_str(), target_, session_.cHandle(), &counters);
  return counters;
}

bool PartnerLibrary::readCounters(PartnerCounterTableHandle counters, uint32_t first,
                                  uint32_t count, PartnerCounterEntry* entries, uint64_t* synced) {
  return PartnerCounterRead(counters, first, count, entries, synced);
}

void PartnerLibrary::stopCounters(PartnerCounterTableHandle counters) {
  PartnerCounterFree(counters);
}

uint64_t PartnerLibrary::now() { return PartnerGetTimestamp(); }

uint64_t PartnerLibrary::sendBarrier(PartnerCounterTableHandle counters) {
  return counters == nullptr ? PartnerBarrierSend() : PartnerBarrierSendWithCounterSync(counters);
}

uint64_t PartnerLibrary::sendDoubleBarrier(PartnerCounterTableHandle counters) {
  return PartnerBarrierSendWithCounterSyncDouble(counters);
}

uint64_t PartnerLibrary::lastBarrier() { return PartnerBarrierGetLastComplete(); }

RoundTrips PartnerLibrary::roundTrips() {
  RoundTrips trips;
  uint32_t count = 0;
  uint64_t* bins = nullptr;
  trips.max = PartnerBarrierGetMaxProcTime(&count, &bins);
  std::copy_n(bins, std::min<size_t>(count, RoundTrips::kBins), std::begin(trips.bins));
  return trips;
}

PartnerNotificationQueueHandle PartnerLibrary::createQueue(const std::string& name, size_t size) {
  PartnerNotificationQueueHandle queue = nullptr;
  PartnerNotificationQueueCreate(name.c_str(), size, &queue);
  return queue;
}

void PartnerLibrary::destroyQueue(PartnerNotificationQueueHandle queue) {
  PartnerNotificationQueueDestroy(queue);
}

size_t PartnerLibrary::dequeue(PartnerNotificationQueueHandle queue, void** records, size_t max) {
  return PartnerNotificationQueueTryDequeue(queue, records, max);
}

void PartnerLibrary::freeRecords(void** records, size_t count) {
  PartnerNotificationQueueValuesFree(records, count);
}

void PartnerLibrary::registerIdle(const TableFacts& table, const IdleTimes& times,
                                  PartnerNotificationQueueHandle queue) {
  PartnerRegisterIdleNotification(table.program.c_str(), table.name.c_str(), times.query,
                                  times.max_ttl, times.min_ttl, target_, session_.cHandle(), queue);
}

void PartnerLibrary::deregisterIdle(const TableFacts& table) {
  PartnerDeregisterIdleNotification(table.program.c_str(), table.name.c_str(), target_);
}

DigestTaken PartnerLibrary::digestTaken(const DigestFacts& digest) {
  return control_.empty() ? DigestTaken{false, {}} : askDigestTaken(control_, digest);
}

void PartnerLibrary::registerDigest(const DigestFacts& digest,
                                    PartnerNotificationQueueHandle queue) {
  PartnerRegisterDigestNotification(digest.program.c_str(), digest.name.c_str(), target_,
                                    session_.cHandle(), queue);
}

void PartnerLibrary::deregisterDigest(const DigestFacts& digest) {
  PartnerDeregisterDigestNotification(digest.program.c_str(), digest.name.c_str(), target_);
}

}  // namespace jexapps
