// Locks that clang checks: what an attribute of absl/base/thread_annotations.h says about a member
// or a function is checked by scripts/lint.sh.
//
// These wrap the standard library's locks, which carry no attributes. abseil's Mutex carries them,
// but it is compiled into a library that the thread sanitizer does not see into: it would report a
// race on everything that such a lock guards.
#pragma once

#include <absl/base/thread_annotations.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace jxmodel {

class ABSL_LOCKABLE Mutex {
 public:
  void lock() ABSL_EXCLUSIVE_LOCK_FUNCTION() { mutex_.lock(); }
  void unlock() ABSL_UNLOCK_FUNCTION() { mutex_.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex_;
};

/// Holds a mutex until the end of the scope.
class ABSL_SCOPED_LOCKABLE MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ABSL_EXCLUSIVE_LOCK_FUNCTION(mutex) : lock_(mutex) {}
  ~MutexLock() ABSL_UNLOCK_FUNCTION() = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  /// Releases the mutex for a while, for a call that must not hold it.
  void unlock() ABSL_UNLOCK_FUNCTION() { lock_.unlock(); }
  void lock() ABSL_EXCLUSIVE_LOCK_FUNCTION() { lock_.lock(); }

 private:
  std::unique_lock<Mutex> lock_;
};

/// A condition of what a mutex guards. The caller of a wait holds the mutex.
class Condition {
 public:
  void notifyOne() { changed_.notify_one(); }
  void notifyAll() { changed_.notify_all(); }

  /// Until the next notification; may return without one.
  void wait(Mutex& mutex) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) {
    Held held(mutex);
    changed_.wait(held.lock);
  }
  /// The same, for `patience` at most.
  void waitFor(Mutex& mutex, std::chrono::nanoseconds patience)
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) {
    Held held(mutex);
    changed_.wait_for(held.lock, patience);
  }
  /// Until `reached()`, which is called with the mutex held and says so in its attribute.
  template <typename Reached>
  void wait(Mutex& mutex, Reached reached) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) {
    Held held(mutex);
    changed_.wait(held.lock, std::move(reached));
  }
  /// The same, for `patience` at most. Whether it was reached.
  template <typename Reached>
  bool waitFor(Mutex& mutex, std::chrono::nanoseconds patience, Reached reached)
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) {
    Held held(mutex);
    return changed_.wait_for(held.lock, patience, std::move(reached));
  }

 private:
  /// What the standard library wants to see of a mutex that is held, and goes on being held.
  struct Held {
    explicit Held(Mutex& mutex) : lock(mutex.mutex_, std::adopt_lock) {}
    ~Held() { lock.release(); }
    std::unique_lock<std::mutex> lock;
  };

  std::condition_variable changed_;
};

class ABSL_LOCKABLE SharedMutex {
 public:
  void lock() ABSL_EXCLUSIVE_LOCK_FUNCTION() { mutex_.lock(); }
  void unlock() ABSL_UNLOCK_FUNCTION() { mutex_.unlock(); }
  void lock_shared() ABSL_SHARED_LOCK_FUNCTION() { mutex_.lock_shared(); }
  void unlock_shared() ABSL_UNLOCK_FUNCTION() { mutex_.unlock_shared(); }

 private:
  std::shared_mutex mutex_;
};

/// Holds a shared mutex alone until the end of the scope.
class ABSL_SCOPED_LOCKABLE WriterLock {
 public:
  explicit WriterLock(SharedMutex& mutex) ABSL_EXCLUSIVE_LOCK_FUNCTION(mutex) : lock_(mutex) {}
  ~WriterLock() ABSL_UNLOCK_FUNCTION() = default;

 private:
  const std::lock_guard<SharedMutex> lock_;
};

/// Holds a shared mutex alongside other readers until the end of the scope.
class ABSL_SCOPED_LOCKABLE ReaderLock {
 public:
  explicit ReaderLock(SharedMutex& mutex) ABSL_SHARED_LOCK_FUNCTION(mutex) : lock_(mutex) {}
  ~ReaderLock() ABSL_UNLOCK_FUNCTION() = default;

 private:
  const std::shared_lock<SharedMutex> lock_;
};

}  // namespace jxmodel
