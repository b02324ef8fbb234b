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
// 3. The thread starts with the first piece of work and takes no signals.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace jxmodel {

class ServiceThread {
 public:
  ServiceThread();
  /// As end(). May happen on the thread itself.
  ~ServiceThread();
  ServiceThread(const ServiceThread&) = delete;
  ServiceThread& operator=(const ServiceThread&) = delete;

  /// Runs `work` on the thread, not before `delay` has passed. Never waits. Dropped after end().
  void post(std::function<void()> work, std::chrono::milliseconds delay = {});

  /// Held, nothing begins until it is let go again.
  void hold(bool held);
  /// Pieces of work that have not come to their end.
  size_t pending() const;

  /// See invariant 2. A second call does the same.
  void end();

 private:
  struct Shared;
  static void run(Shared& shared);
  void start();

  // The thread's too: it may live on for a moment when it has ended itself.
  const std::shared_ptr<Shared> shared_;
  std::mutex start_mutex_;  // guards thread_
  std::thread thread_;
};

}  // namespace jxmodel
