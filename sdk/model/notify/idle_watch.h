// Who watches the entries of one table that ages, and tells when one has aged out.
//
// An entry ages out when no packet has hit it for its TTL, counted from the last hit, or else from
// when it was added or modified. It is told once; the next hit, or a modification, wakes it.
//
// Nobody scans the table. Each entry stands in a calendar, at the first look after its TTL could
// have run out; hits leave it there. The look finds out when it was really active last, and tells,
// or puts it where it belongs then: a few dozen nanoseconds an entry and TTL, whatever packets do.
// An entry that has aged out stands nowhere: the packet that wakes it puts it back. So entries that
// stay silent cost nothing, and a clock that moves on by a day meets only looks that find
// something.
//
// Thread safety: looks happen on the dispatch thread. They take the device's mutex for kSlice
// entries at a time; no lock is held while the callback runs.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "model/base/mutex.h"
#include "model/notify/device_core.h"
#include "model/tables/table_state.h"

namespace jxmodel {

/// One entry that has aged out.
struct AgedEntry {
  uint32_t handle = 0;
  uint32_t priority = 0;
  const uint8_t* key = nullptr;  // packed; valid during the report
};

/// What an application asks for; see jx_rt_attributes_idle_table_notify_mode_set.
struct IdleRequest {
  std::function<void(const AgedEntry&)> report;  // runs on the dispatch thread
  uint32_t interval_ms = 0;                      // 0: kShortestIntervalMs
  uint32_t max_ttl_ms = 0;                       // 0: none
  uint32_t min_ttl_ms = 0;
};

class IdleWatch final : public EntryAging {
 public:
  static constexpr uint32_t kShortestIntervalMs = 1;
  static constexpr uint32_t kSlice = 256;

  /// Of a physical device, which outlives the watch.
  IdleWatch(const DeviceCore& device, TableState& state);
  IdleWatch(const IdleWatch&) = delete;
  IdleWatch& operator=(const IdleWatch&) = delete;

  /// Replaces the request; null ends all reports. A report of the replaced request has returned
  /// when this returns, unless that report is the caller. Looks are counted from now on; entries
  /// that have aged out are reported anew.
  void set(std::shared_ptr<const IdleRequest> request);

  /// Ends all reports. The device is being removed.
  void end();

  void written(uint32_t slot) override;
  void woken(uint32_t slot) override;

  /// Lets an entry age out now. JX_NOT_READY: nothing asks for reports; JX_OBJECT_NOT_FOUND: no
  /// such entry.
  jx_status_t expire(uint32_t handle);

 private:
  /// Entries found in one go, reported outside the locks.
  struct Finds {
    std::shared_ptr<const IdleRequest> request;
    std::vector<AgedEntry> entries;  // their keys are not set
    std::vector<uint8_t> keys;       // packed, one after the other
    bool more = false;
  };

  uint64_t intervalNs() const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  uint64_t timeOf(uint64_t look) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_) {
    return origin_ + look * intervalNs();
  }
  uint64_t ttlNs(uint32_t slot) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  uint64_t deadlineOf(uint32_t slot) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  void enter(uint32_t slot) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  bool nextInLook(uint64_t moment, uint32_t* slot) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  void setTimer() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  void inspect(uint32_t slot, uint64_t moment, Finds* finds)
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(device_.mutex(), mutex_);
  void age(uint32_t slot, Finds* finds) ABSL_EXCLUSIVE_LOCKS_REQUIRED(device_.mutex());

  void enterAll(const std::shared_ptr<const IdleRequest>& request);
  void look(uint64_t moment);
  Finds find(uint64_t moment);
  Finds findExpired();
  void report(const Finds& finds);
  void show(const AgedEntry& entry) const;

  const DeviceCore& device_;
  TableState& state_;
  const std::shared_ptr<DispatchThread::Timer> timer_;

  Mutex mutex_ ABSL_ACQUIRED_AFTER(device_.mutex());
  Condition changed_;
  std::shared_ptr<const IdleRequest> request_ ABSL_GUARDED_BY(mutex_);  // null: nothing is reported
  uint64_t calls_begun_ ABSL_GUARDED_BY(mutex_) = 0;
  uint64_t calls_ended_ ABSL_GUARDED_BY(mutex_) = 0;
  // The calendar. Looks are numbered: number n is n intervals after the origin.
  uint64_t origin_ ABSL_GUARDED_BY(mutex_) = 0;
  // Slots by look; some are out of date: look_of_ says which.
  std::map<uint64_t, std::vector<uint32_t>> calendar_ ABSL_GUARDED_BY(mutex_);
  std::vector<uint64_t> look_of_ ABSL_GUARDED_BY(mutex_);  // by slot; 0: stands nowhere
  std::vector<uint32_t> current_ ABSL_GUARDED_BY(mutex_);  // of the look that is under way
  uint64_t current_look_ ABSL_GUARDED_BY(mutex_) = 0;
  size_t current_at_ ABSL_GUARDED_BY(mutex_) = 0;
  std::vector<uint32_t> expired_ ABSL_GUARDED_BY(mutex_);  // handles of entries that age out now
};

}  // namespace jxmodel
