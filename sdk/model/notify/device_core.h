// What a device is to its tables, watches, ports and packets: which one it is, the lock over its
// tables, and the threads and watchers that belong to it.
//
// Thread safety: the mutex of a device is held over every access to its tables but a packet's
// look-up (see MatchTable), on a virtual device until the placement callback of the write has
// returned. So writes take effect and are reported in one order.
#pragma once

#include <memory>

#include "jxsdk/types.h"
#include "model/base/mutex.h"
#include "model/base/read_copy_update.h"
#include "model/notify/dispatch_thread.h"
#include "model/notify/events.h"

namespace jxmodel {

class DeviceCore {
 public:
  enum class Kind { kPhysical, kVirtual };

  DeviceCore(jx_dev_id_t id, Kind kind);
  DeviceCore(const DeviceCore&) = delete;
  DeviceCore& operator=(const DeviceCore&) = delete;

  jx_dev_id_t id() const { return id_; }
  bool isVirtual() const { return kind_ == Kind::kVirtual; }
  Mutex& mutex() const ABSL_LOCK_RETURNED(mutex_) { return mutex_; }

  /// Of a physical device; null on a virtual one, whose tables no packet reads.
  Reclaimer* reclaimer() const { return reclaimer_.get(); }
  /// Of a physical device; null on a virtual one, which reports nothing by itself.
  DispatchThread* dispatch() const { return dispatch_.get(); }
  /// For those who watch the device.
  EventSource& events() const { return events_; }

  /// The device that owns this. Work that is posted to the dispatch thread locks a copy of it: the
  /// device stays until that work has returned, although the work may remove it.
  const std::weak_ptr<void>& owner() const { return owner_; }
  /// Called once, before anything is posted.
  void setOwner(std::weak_ptr<void> owner) { owner_ = std::move(owner); }

 private:
  const jx_dev_id_t id_;
  const Kind kind_;
  mutable Mutex mutex_;
  mutable EventSource events_;
  const std::unique_ptr<Reclaimer> reclaimer_;
  const std::unique_ptr<DispatchThread> dispatch_;
  std::weak_ptr<void> owner_;
};

}  // namespace jxmodel
