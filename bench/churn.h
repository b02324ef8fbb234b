// A thread that withdraws entries of a table and announces them again, as fast as it can.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "model/device/device.h"
#include "model/placement/placement.h"

namespace bench {

/// Writes as a slice agent does: each update is a placement operation whose data is decoded from
/// its packed form, and has the device's mutex for itself. When the churn ends, the table is as it
/// was.
class Churn {
 public:
  /// Starts with the entries that `table` has now, at most `kEntries` spread over all of them, and
  /// returns when updates flow. Nobody else writes to the device meanwhile.
  Churn(jxmodel::Device& device, jxmodel::TableState& table);
  ~Churn();
  Churn(const Churn&) = delete;
  Churn& operator=(const Churn&) = delete;

  /// Updates so far: a withdrawal is one, an announcement is one.
  uint64_t updates() const { return updates_.load(std::memory_order_relaxed); }

 private:
  static constexpr uint32_t kEntries = 100'000;
  struct Entry {
    uint32_t handle;
    uint32_t priority;
    uint32_t member_handle;  // 0: it has an action of its own
    std::vector<uint8_t> packed;
  };

  void record(uint32_t slot);
  void run();
  void withdraw(const Entry& entry);
  void announce(const Entry& entry);

  jxmodel::Device& device_;
  jxmodel::TableState& table_;
  std::vector<Entry> entries_;
  std::atomic<uint64_t> updates_{0};
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

}  // namespace bench
