// The thread of a physical device on which it tells the application what happened by itself:
// counter syncs that are done, entries that aged, learn messages.
//
// Thread safety: any thread may call anything at any time, the work that runs on the thread
// included. No lock is held while work runs, so it may call the SDK as it likes, even remove the
// device.
//
// 1. Work runs one after the other, in the order in which it was posted; what is delayed holds back
//    what comes after it.
// 2. After end() has returned nothing runs any more: what had not begun was dropped, what ran has
//    come to its end. Only to the work that itself calls end() this does not apply: it goes on to
//    its end.
// 3. The thread starts with the first piece of work, or timer that is set, and takes no signals.
// 4. Timers go by the model's clock. What is due runs before work that waits, in order of the
//    moments, whatever way the clock took: moved on by a day, it meets every moment of that day.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <thread>

#include "model/base/clock.h"
#include "model/base/mutex.h"

namespace jxmodel {

class DispatchThread {
 public:
  static constexpr uint64_t kNever = ClockListener::kNever;
  /// What is done at a moment of the model's clock. `moment` is the one it was set to; the clock
  /// may be far behind it.
  class Timer;
  using TimerWork = std::function<void(uint64_t moment)>;

  DispatchThread();
  /// As end(). May happen on the thread itself.
  ~DispatchThread();
  DispatchThread(const DispatchThread&) = delete;
  DispatchThread& operator=(const DispatchThread&) = delete;

  /// Runs `work` on the thread, not before `delay` has passed. Never waits. Dropped after end().
  void post(std::function<void()> work, std::chrono::milliseconds delay = {});

  /// Held, nothing begins until it is let go again.
  void hold(bool held);
  /// Pieces of work that have not come to their end.
  size_t pending() const;
  /// Waits until none is left and no timer is due. False if `patience` ended before, or the thread
  /// has ended. Not by what runs on the thread.
  bool waitUntilIdle(std::chrono::milliseconds patience);

  std::shared_ptr<Timer> makeTimer(TimerWork work);
  /// Sets the moment, in nanoseconds as the model's clock, in place of the one that was set. Never
  /// waits. kNever takes it back: a run that has begun goes on.
  void set(const std::shared_ptr<Timer>& timer, uint64_t moment);

  /// Waits until no timer is left whose moment is not after `now`. For packets, which come after
  /// what was due before them. Returns at once on the thread itself, and after letGo().
  void awaitTimers(uint64_t now);
  /// Nobody waits in awaitTimers() any more.
  void letGo();

  /// Whether the caller runs on the thread.
  bool onThread() const;

  /// See invariant 2. A second call does the same.
  void end();

 private:
  struct Shared;
  static void run(Shared& shared);
  void start();

  // The thread's too: it may live on for a moment when it has ended itself.
  const std::shared_ptr<Shared> shared_;
  Mutex start_mutex_;
  std::thread thread_ ABSL_GUARDED_BY(start_mutex_);
};

}  // namespace jxmodel
