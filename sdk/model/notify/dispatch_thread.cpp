#include "model/notify/dispatch_thread.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <set>
#include <utility>

namespace jxmodel {
namespace {

using Time = std::chrono::steady_clock::time_point;

/// The machine's time is looked at this often at least: somebody may set it.
constexpr std::chrono::nanoseconds kLongestNap = std::chrono::seconds(1);

}  // namespace

class DispatchThread::Timer {
 public:
  explicit Timer(TimerWork work, uint64_t number) : work_(std::move(work)), number_(number) {}

 private:
  friend class DispatchThread;
  friend struct Shared;
  const TimerWork work_;
  const uint64_t number_;     // of equal moments the timer that was made first comes first
  uint64_t moment_ = kNever;  // guarded by the mutex of the thread
};

struct DispatchThread::Shared final : ClockListener {
  struct Work {
    Time not_before;
    std::function<void()> run;
  };

  mutable Mutex mutex;
  Condition changed;
  std::deque<Work> waiting ABSL_GUARDED_BY(mutex);
  std::thread::id thread ABSL_GUARDED_BY(mutex);  // none before it runs
  bool running ABSL_GUARDED_BY(mutex) = false;    // a piece of work, without the lock
  bool held ABSL_GUARDED_BY(mutex) = false;
  bool ended ABSL_GUARDED_BY(mutex) = false;
  bool let_go ABSL_GUARDED_BY(mutex) = false;
  uint64_t timers_made ABSL_GUARDED_BY(mutex) = 0;
  uint64_t running_moment ABSL_GUARDED_BY(mutex) = kNever;  // of the timer that runs
  struct Earlier {
    bool operator()(const std::shared_ptr<Timer>& a, const std::shared_ptr<Timer>& b) const {
      return std::pair(a->moment_, a->number_) < std::pair(b->moment_, b->number_);
    }
  };
  std::set<std::shared_ptr<Timer>, Earlier> timers ABSL_GUARDED_BY(mutex);  // that are set

  void timeCame() override {
    const MutexLock lock(mutex);
    changed.notifyAll();
  }

  /// The first moment that has not been dealt with. Wakes who waits for that.
  void updateAlarm() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) {
    const uint64_t first = timers.empty() ? kNever : (*timers.begin())->moment_;
    alarm_.store(std::min(first, running_moment));
    changed.notifyAll();
  }

  /// Takes the first timer if it is due.
  bool takeTimer(Work* work) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) {
    if (timers.empty()) return false;
    const std::shared_ptr<Timer> timer = *timers.begin();
    if (timer->moment_ > Clock::instance().now()) return false;
    timers.erase(timers.begin());
    const uint64_t moment = running_moment = std::exchange(timer->moment_, kNever);
    work->run = [timer, moment] { timer->work_(moment); };
    return true;
  }

  bool takeWork(Work* work) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) {
    if (waiting.empty() || waiting.front().not_before > std::chrono::steady_clock::now()) {
      return false;
    }
    *work = std::move(waiting.front());
    waiting.pop_front();
    return true;
  }

  /// Until something is due, or has changed.
  void nap() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) {
    const Clock& clock = Clock::instance();
    const bool by_clock = !timers.empty() && clock.source() == JX_MODEL_CLOCK_REAL;
    if (held || (waiting.empty() && !by_clock)) return changed.wait(mutex);
    std::chrono::nanoseconds nap = kLongestNap;
    if (!waiting.empty()) {
      nap = waiting.front().not_before - std::chrono::steady_clock::now();
    }
    if (by_clock) {
      const uint64_t now = clock.now(), first = (*timers.begin())->moment_;
      const uint64_t left = first > now ? first - now : 0;
      nap = std::min(
          {nap, kLongestNap,
           std::chrono::nanoseconds(std::min(left, static_cast<uint64_t>(kLongestNap.count())))});
    }
    if (nap.count() > 0) changed.waitFor(mutex, nap);
  }

  /// Takes the first piece of work as soon as it may begin; false if there never is one again.
  bool next(Work* work) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex) {
    while (!ended) {
      if (!held && (takeTimer(work) || takeWork(work))) return true;
      nap();
    }
    return false;
  }
};

DispatchThread::DispatchThread() : shared_(std::make_shared<Shared>()) {
  Clock::instance().add(shared_.get());
}

DispatchThread::~DispatchThread() {
  Clock::instance().remove(shared_.get());
  end();
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void DispatchThread::run(Shared& shared) {
  MutexLock lock(shared.mutex);
  shared.thread = std::this_thread::get_id();
  Shared::Work work;
  while (shared.next(&work)) {
    shared.running = true;
    lock.unlock();
    work.run();
    work = {};  // what it holds goes before anybody hears that it has ended
    lock.lock();
    shared.running = false;
    shared.running_moment = kNever;
    shared.updateAlarm();
  }
}

void DispatchThread::start() {
  const MutexLock lock(start_mutex_);
  if (thread_.joinable()) return;
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  thread_ = std::thread([shared = shared_] { run(*shared); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void DispatchThread::post(std::function<void()> work, std::chrono::milliseconds delay) {
  const Time not_before = std::chrono::steady_clock::now() + delay;
  {
    const MutexLock lock(shared_->mutex);
    if (shared_->ended) return;
    shared_->waiting.push_back({not_before, std::move(work)});
    shared_->changed.notifyAll();
  }
  start();
}

void DispatchThread::hold(bool held) {
  const MutexLock lock(shared_->mutex);
  shared_->held = held;
  shared_->changed.notifyAll();
}

size_t DispatchThread::pending() const {
  const MutexLock lock(shared_->mutex);
  return shared_->waiting.size() + (shared_->running ? 1 : 0);
}

bool DispatchThread::waitUntilIdle(std::chrono::milliseconds patience) {
  const MutexLock lock(shared_->mutex);
  return shared_->changed.waitFor(
      shared_->mutex, patience, [this]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(shared_->mutex) {
        return !shared_->ended && !shared_->running && shared_->waiting.empty() &&
               shared_->alarm() > Clock::instance().now();
      });
}

std::shared_ptr<DispatchThread::Timer> DispatchThread::makeTimer(TimerWork work) {
  const MutexLock lock(shared_->mutex);
  return std::make_shared<Timer>(std::move(work), shared_->timers_made++);
}

void DispatchThread::set(const std::shared_ptr<Timer>& timer, uint64_t moment) {
  uint64_t alarm = kNever;
  {
    const MutexLock lock(shared_->mutex);
    if (shared_->ended || timer->moment_ == moment) return;
    if (timer->moment_ != kNever) shared_->timers.erase(timer);
    timer->moment_ = moment;
    if (moment != kNever) shared_->timers.insert(timer);
    shared_->updateAlarm();
    alarm = shared_->alarm();
  }
  if (alarm == kNever) return;
  Clock::instance().alarmSet(alarm);
  start();
}

void DispatchThread::awaitTimers(uint64_t now) {
  if (shared_->alarm() > now) return;
  const MutexLock lock(shared_->mutex);
  if (shared_->thread == std::this_thread::get_id()) return;
  shared_->changed.wait(shared_->mutex,
                        [this, now]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(shared_->mutex) {
                          return shared_->ended || shared_->let_go || shared_->alarm() > now;
                        });
}

void DispatchThread::letGo() {
  const MutexLock lock(shared_->mutex);
  shared_->let_go = true;
  shared_->changed.notifyAll();
}

bool DispatchThread::onThread() const {
  const MutexLock lock(shared_->mutex);
  return shared_->thread == std::this_thread::get_id();
}

void DispatchThread::end() {
  std::deque<Shared::Work> dropped;  // ends after the lock
  const MutexLock lock(shared_->mutex);
  shared_->ended = true;
  dropped.swap(shared_->waiting);
  for (const auto& timer : shared_->timers) timer->moment_ = kNever;
  shared_->timers.clear();
  shared_->updateAlarm();
  if (shared_->thread == std::this_thread::get_id()) return;
  shared_->changed.wait(shared_->mutex, [this]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(shared_->mutex) {
    return !shared_->running;
  });
}

}  // namespace jxmodel
