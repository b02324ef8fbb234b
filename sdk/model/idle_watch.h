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
// Thread safety: looks happen on the service thread. They take the device's mutex for kSlice
// entries at a time; no lock is held while the callback runs. The device's mutex comes before the
// watch's.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/service_thread.h"
#include "model/table_state.h"

namespace jxmodel {

class Device;
class RtTable;

/// What an application has set; see jx_rt_attributes_idle_table_notify_mode_set.
struct IdleAttributes {
  bool enabled = false;
  jxrt::JxRtIdleTmoCb callback;
  uint32_t interval_ms = 0;  // 0: kShortestInterval
  uint32_t max_ttl_ms = 0;   // 0: none
  uint32_t min_ttl_ms = 0;
  const void* cookie = nullptr;
};

class IdleWatch {
 public:
  static constexpr uint32_t kShortestIntervalMs = 1;
  static constexpr uint32_t kSlice = 256;

  /// Of a physical device, which outlives the watch.
  IdleWatch(const Device& device, const RtTable& table, TableState& state);
  IdleWatch(const IdleWatch&) = delete;
  IdleWatch& operator=(const IdleWatch&) = delete;

  /// In place of what was set before, whose callback has returned when this returns and is not
  /// called any more, unless it is the caller. Looks are counted from now on; entries that have
  /// aged out are told anew.
  void set(IdleAttributes attributes, const jx_rt_target_t& target);

  /// Nothing is told any more. When the device is being removed.
  void end();

  /// An entry was added or modified. Under the device's mutex.
  void written(uint32_t slot);
  /// A packet has hit an entry that had aged out. In the ReadSection of the look-up.
  void woken(uint32_t slot);

  /// Lets an entry age out now. JX_NOT_READY: nobody is told; JX_OBJECT_NOT_FOUND: no such entry.
  jx_status_t expire(uint32_t handle);

 private:
  using Lock = std::unique_lock<std::mutex>;
  struct Watcher {
    IdleAttributes attributes;
    jx_rt_target_t target{};
  };
  struct Report {
    uint32_t handle;
    uint32_t priority;
  };
  /// Entries found in one go, told outside the locks.
  struct Finds {
    std::shared_ptr<const Watcher> watcher;
    std::vector<Report> reports;
    std::vector<uint8_t> keys;  // packed, one after the other
    bool more = false;
  };

  // The mutex is held over all of these.
  uint64_t intervalNs() const;
  uint64_t timeOf(uint64_t look) const { return origin_ + look * intervalNs(); }
  uint64_t ttlNs(uint32_t slot) const;
  uint64_t deadlineOf(uint32_t slot) const;
  void enter(uint32_t slot);
  bool nextInLook(uint64_t moment, uint32_t* slot);
  void setTimer();
  /// The device's mutex, too.
  void inspect(uint32_t slot, uint64_t moment, Finds* finds);
  void age(uint32_t slot, Finds* finds);

  void enterAll(const std::shared_ptr<const Watcher>& watcher);
  void look(uint64_t moment);
  Finds find(uint64_t moment);
  Finds findExpired();
  void tell(const Finds& finds);
  void show(const Report& report, const uint8_t* key) const;

  const Device& device_;
  const RtTable& table_;
  TableState& state_;
  const std::shared_ptr<ServiceThread::Timer> timer_;

  std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  std::shared_ptr<const Watcher> watcher_;  // null: nobody is told
  uint64_t calls_begun_ = 0, calls_ended_ = 0;
  // The calendar. Looks are numbered: number n is n intervals after the origin.
  uint64_t origin_ = 0;
  std::map<uint64_t, std::vector<uint32_t>> calendar_;  // slots by look; some are out of date:
  std::vector<uint64_t> look_of_;                       // by slot; 0: stands nowhere
  std::vector<uint32_t> current_;                       // of the look that is under way
  uint64_t current_look_ = 0;
  size_t current_at_ = 0;
  std::vector<uint32_t> expired_;  // handles of entries that age out now
};

}  // namespace jxmodel
