// A partner library that does nothing but remember what it was asked, and answers as it is told.
#pragma once

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "partner.h"

namespace jexapps {

class FakePartner : public Partner {
 public:
  ~FakePartner() override {
    for (const auto& queue : queues_) {
      for (void* record : queue->records) delete[] static_cast<uint8_t*>(record);
    }
  }

  // What it is told.
  bool agent_keeps_counters = false;
  std::optional<uint64_t> free_shared_memory = uint64_t{1} << 30;
  bool segment_is_full = false;
  DigestTaken digest_taken{false, {}};
  bool answers = true;  // barriers
  uint64_t time = 1000;
  uint64_t synced = 0;
  RoundTrips trips;
  std::vector<PartnerCounterEntry> counters;  // of any table

  /// Puts a notification into the queue of that name.
  template <typename Record>
  void notify(const std::string& queue, const Record& record, const std::string& values = {}) {
    auto* const bytes = new uint8_t[sizeof record + values.size()];
    std::memcpy(bytes, &record, sizeof record);
    std::memcpy(bytes + sizeof record, values.data(), values.size());
    named(queue).records.push_back(bytes);
    ++live_records;
  }

  // What it was asked, a line a call but for time and dequeuing.
  std::vector<std::string> calls;
  int live_records = 0;  // that nobody has freed

  std::optional<uint64_t> freeSharedMemory() override { return free_shared_memory; }
  bool agentKeepsCounters() override { return agent_keeps_counters; }
  PartnerCounterTableHandle startCounters(const TableFacts& table) override {
    calls.push_back("start " + table.program + "." + table.name);
    if (segment_is_full) throw std::runtime_error("no memory");
    return const_cast<TableFacts*>(&table);
  }
  bool readCounters(PartnerCounterTableHandle handle, uint32_t first, uint32_t count,
                    PartnerCounterEntry* entries, uint64_t* time_of_sync) override {
    calls.push_back("read " + nameOf(handle) + " " + std::to_string(first) + " " +
                    std::to_string(count));
    for (uint32_t i = 0; i < count; ++i) {
      entries[i] = first + i < counters.size() ? counters[first + i] : PartnerCounterEntry{0, 0};
    }
    *time_of_sync = synced;
    return true;
  }
  void stopCounters(PartnerCounterTableHandle handle) override {
    calls.push_back("stop " + nameOf(handle));
  }

  uint64_t now() override { return time++; }
  uint64_t sendBarrier(PartnerCounterTableHandle handle) override {
    calls.push_back("barrier " + nameOf(handle));
    return sent(time);
  }
  uint64_t sendDoubleBarrier(PartnerCounterTableHandle handle) override {
    calls.push_back("double barrier " + nameOf(handle));
    return sent(time + 10);
  }
  uint64_t lastBarrier() override { return last_barrier_; }
  RoundTrips roundTrips() override { return trips; }

  PartnerNotificationQueueHandle createQueue(const std::string& name, size_t size) override {
    calls.push_back("create " + name + " " + std::to_string(size));
    queues_.push_back(std::make_unique<Queue>(Queue{name, {}}));
    return queues_.back().get();
  }
  void destroyQueue(PartnerNotificationQueueHandle queue) override {
    calls.push_back("destroy " + static_cast<Queue*>(queue)->name);
    queues_.erase(std::find_if(queues_.begin(), queues_.end(),
                               [&](const auto& item) { return item.get() == queue; }));
  }
  size_t dequeue(PartnerNotificationQueueHandle handle, void** records, size_t max) override {
    Queue& queue = *static_cast<Queue*>(handle);
    size_t count = 0;
    for (; count < max && !queue.records.empty(); ++count) {
      records[count] = queue.records.front();
      queue.records.pop_front();
    }
    return count;
  }
  void freeRecords(void** records, size_t count) override {
    for (size_t i = 0; i < count; ++i) delete[] static_cast<uint8_t*>(records[i]);
    live_records -= static_cast<int>(count);
  }
  void registerIdle(const TableFacts& table, const IdleTimes& times,
                    PartnerNotificationQueueHandle queue) override {
    calls.push_back("register " + table.name + " " + std::to_string(times.query) + " " +
                    std::to_string(times.max_ttl) + " " + std::to_string(times.min_ttl) + " on " +
                    static_cast<Queue*>(queue)->name);
  }
  void deregisterIdle(const TableFacts& table) override {
    calls.push_back("deregister " + table.name);
  }
  DigestTaken digestTaken(const DigestFacts&) override { return digest_taken; }
  void registerDigest(const DigestFacts& digest, PartnerNotificationQueueHandle queue) override {
    calls.push_back("register " + digest.name + " on " + static_cast<Queue*>(queue)->name);
  }
  void deregisterDigest(const DigestFacts& digest) override {
    calls.push_back("deregister " + digest.name);
  }

 private:
  struct Queue {
    std::string name;
    std::deque<void*> records;
  };

  static std::string nameOf(PartnerCounterTableHandle handle) {
    return handle == nullptr ? "plain" : static_cast<TableFacts*>(handle)->name;
  }
  uint64_t sent(uint64_t timestamp) {
    if (answers) last_barrier_ = timestamp;
    return timestamp;
  }
  Queue& named(const std::string& name) {
    const auto it = std::find_if(queues_.begin(), queues_.end(),
                                 [&](const auto& queue) { return queue->name == name; });
    if (it == queues_.end()) throw std::logic_error("no queue " + name);
    return **it;
  }

  uint64_t last_barrier_ = 0;
  std::vector<std::unique_ptr<Queue>> queues_;
};

}  // namespace jexapps
