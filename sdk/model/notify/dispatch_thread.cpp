#include "model/notify/dispatch_thread.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
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

  mutable std::mutex mutex;  // guards all below
  std::condition_variable changed;
  std::deque<Work> waiting;
  std::thread::id thread;  // none before it runs
  bool running = false;    // a piece of work, without the lock
  bool held = false;
  bool ended = false;
  bool let_go = false;
  uint64_t timers_made = 0;
  uint64_t running_moment = kNever;  // of the timer that runs
  struct Earlier {
    bool operator()(const std::shared_ptr<Timer>& a, const std::shared_ptr<Timer>& b) const {
      return std::pair(a->moment_, a->number_) < std::pair(b->moment_, b->number_);
    }
  };
  std::set<std::shared_ptr<Timer>, Earlier> timers;  // that are set

  void timeCame() override {
    const std::lock_guard lock(mutex);
    changed.notify_all();
  }

  /// The first moment that has not been dealt with. Wakes who waits for that.
  void updateAlarm() {
    const uint64_t first = timers.empty() ? kNever : (*timers.begin())->moment_;
    alarm_.store(std::min(first, running_moment));
    changed.notify_all();
  }

  /// Takes the first timer if it is due.
  bool takeTimer(Work* work) {
    if (timers.empty()) return false;
    const std::shared_ptr<Timer> timer = *timers.begin();
    if (timer->moment_ > Clock::instance().now()) return false;
    timers.erase(timers.begin());
    const uint64_t moment = running_moment = std::exchange(timer->moment_, kNever);
    work->run = [timer, moment] { timer->work_(moment); };
    return true;
  }

  bool takeWork(Work* work) {
    if (waiting.empty() || waiting.front().not_before > std::chrono::steady_clock::now()) {
      return false;
    }
    *work = std::move(waiting.front());
    waiting.pop_front();
    return true;
  }

  /// Until something is due, or has changed.
  void nap(std::unique_lock<std::mutex>& lock) {
    const Clock& clock = Clock::instance();
    const bool by_clock = !timers.empty() && clock.source() == JX_MODEL_CLOCK_REAL;
    if (held || (waiting.empty() && !by_clock)) return changed.wait(lock);
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
    if (nap.count() > 0) changed.wait_for(lock, nap);
  }

  /// Takes the first piece of work as soon as it may begin; false if there never is one again.
  bool next(std::unique_lock<std::mutex>& lock, Work* work) {
    while (!ended) {
      if (!held && (takeTimer(work) || takeWork(work))) return true;
      nap(lock);
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
  std::unique_lock lock(shared.mutex);
  shared.thread = std::this_thread::get_id();
  Shared::Work work;
  while (shared.next(lock, &work)) {
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
  const std::lock_guard lock(start_mutex_);
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
    const std::lock_guard lock(shared_->mutex);
    if (shared_->ended) return;
    shared_->waiting.push_back({not_before, std::move(work)});
    shared_->changed.notify_all();
  }
  start();
}

void DispatchThread::hold(bool held) {
  const std::lock_guard lock(shared_->mutex);
  shared_->held = held;
  shared_->changed.notify_all();
}

size_t DispatchThread::pending() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->waiting.size() + (shared_->running ? 1 : 0);
}

bool DispatchThread::waitUntilIdle(std::chrono::milliseconds patience) {
  std::unique_lock lock(shared_->mutex);
  return shared_->changed.wait_for(lock, patience, [this] {
    return !shared_->ended && !shared_->running && shared_->waiting.empty() &&
           shared_->alarm() > Clock::instance().now();
  });
}

std::shared_ptr<DispatchThread::Timer> DispatchThread::makeTimer(TimerWork work) {
  const std::lock_guard lock(shared_->mutex);
  return std::make_shared<Timer>(std::move(work), shared_->timers_made++);
}

void DispatchThread::set(const std::shared_ptr<Timer>& timer, uint64_t moment) {
  uint64_t alarm = kNever;
  {
    const std::lock_guard lock(shared_->mutex);
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
  std::unique_lock lock(shared_->mutex);
  if (shared_->thread == std::this_thread::get_id()) return;
  shared_->changed.wait(
      lock, [this, now] { return shared_->ended || shared_->let_go || shared_->alarm() > now; });
}

void DispatchThread::letGo() {
  const std::lock_guard lock(shared_->mutex);
  shared_->let_go = true;
  shared_->changed.notify_all();
}

bool DispatchThread::onThread() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->thread == std::this_thread::get_id();
}

void DispatchThread::end() {
  std::deque<Shared::Work> dropped;  // ends after the lock
  std::unique_lock lock(shared_->mutex);
  shared_->ended = true;
  dropped.swap(shared_->waiting);
  for (const auto& timer : shared_->timers) timer->moment_ = kNever;
  shared_->timers.clear();
  shared_->updateAlarm();
  if (shared_->thread == std::this_thread::get_id()) return;
  shared_->changed.wait(lock, [this] { return !shared_->running; });
}

}  // namespace jxmodel
