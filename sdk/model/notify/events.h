// What happens on a device by itself, for people who watch it: copies, queued between the threads
// on which it happens and the ones that look.
//
// Thread safety: any thread may call anything. Whoever raises an event waits for nobody: an event
// that finds a queue full is counted as lost there. As long as nobody watches, it costs a load.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/base/mutex.h"

namespace jxmodel {

struct Event {
  enum class Kind : uint8_t { kLearned, kAged, kPortUp, kPortDown };
  Kind kind = Kind::kLearned;
  uint64_t time = 0;            // of the model's clock, ns; set by raise()
  std::string program;          // kLearned, kAged
  std::string object;           // kLearned: the learn object's name; kAged: the table's
  std::vector<uint8_t> values;  // kLearned: the fields, see LearnLayout; kAged: the packed key
  uint32_t entry_handle = 0;    // kAged
  uint32_t port = 0;            // kPortUp, kPortDown
};

/// The events that one watcher has not seen yet.
class EventWatch {
 public:
  struct Harvest {
    std::vector<Event> events;
    uint64_t lost = 0;   // in all
    bool ended = false;  // no event will follow these
  };

  void put(const Event& event);
  void end();
  /// Takes what has gathered; waits up to `patience` for a first event, or for the end.
  Harvest take(std::chrono::milliseconds patience);

 private:
  static constexpr size_t kMaxEvents = 65536;  // in the queue

  Mutex mutex_;
  Condition changed_;
  std::vector<Event> queue_ ABSL_GUARDED_BY(mutex_);
  uint64_t lost_ ABSL_GUARDED_BY(mutex_) = 0;
  bool ended_ ABSL_GUARDED_BY(mutex_) = false;
};

/// The events of one device.
class EventSource {
 public:
  /// Whether it is worth making an event.
  bool watched() const { return watched_.load(std::memory_order_acquire); }
  void raise(Event event);

  /// What happens from now on.
  std::shared_ptr<EventWatch> open();
  void close(const std::shared_ptr<EventWatch>& watch);
  /// Ends all watches, and those that are opened later. When the device is being removed.
  void end();

 private:
  std::atomic<bool> watched_{false};
  Mutex mutex_;
  std::vector<std::shared_ptr<EventWatch>> watches_ ABSL_GUARDED_BY(mutex_);
  bool ended_ ABSL_GUARDED_BY(mutex_) = false;
};

}  // namespace jxmodel
