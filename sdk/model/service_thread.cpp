#include "model/service_thread.h"

#include <pthread.h>
#include <signal.h>

#include <condition_variable>
#include <deque>
#include <utility>

namespace jxmodel {
namespace {

using Time = std::chrono::steady_clock::time_point;

struct Work {
  Time not_before;
  std::function<void()> run;
};

}  // namespace

struct ServiceThread::Shared {
  mutable std::mutex mutex;  // guards all below
  std::condition_variable changed;
  std::deque<Work> waiting;
  std::thread::id thread;  // none before it runs
  bool running = false;    // a piece of work, without the lock
  bool held = false;
  bool ended = false;

  /// Takes the first piece of work as soon as it may begin; false if there never is one again.
  bool next(std::unique_lock<std::mutex>& lock, Work* work) {
    while (!ended) {
      if (held || waiting.empty()) {
        changed.wait(lock);
        continue;
      }
      const Time due = waiting.front().not_before;
      if (due > std::chrono::steady_clock::now()) {
        changed.wait_until(lock, due);
        continue;
      }
      *work = std::move(waiting.front());
      waiting.pop_front();
      return true;
    }
    return false;
  }
};

ServiceThread::ServiceThread() : shared_(std::make_shared<Shared>()) {}

ServiceThread::~ServiceThread() {
  end();
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void ServiceThread::run(Shared& shared) {
  std::unique_lock lock(shared.mutex);
  shared.thread = std::this_thread::get_id();
  Work work;
  while (shared.next(lock, &work)) {
    shared.running = true;
    lock.unlock();
    work.run();
    work = {};  // what it holds goes before anybody hears that it has ended
    lock.lock();
    shared.running = false;
    shared.changed.notify_all();
  }
}

void ServiceThread::start() {
  const std::lock_guard lock(start_mutex_);
  if (thread_.joinable()) return;
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  thread_ = std::thread([shared = shared_] { run(*shared); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void ServiceThread::post(std::function<void()> work, std::chrono::milliseconds delay) {
  const Time not_before = std::chrono::steady_clock::now() + delay;
  {
    const std::lock_guard lock(shared_->mutex);
    if (shared_->ended) return;
    shared_->waiting.push_back({not_before, std::move(work)});
    shared_->changed.notify_all();
  }
  start();
}

void ServiceThread::hold(bool held) {
  const std::lock_guard lock(shared_->mutex);
  shared_->held = held;
  shared_->changed.notify_all();
}

size_t ServiceThread::pending() const {
  const std::lock_guard lock(shared_->mutex);
  return shared_->waiting.size() + (shared_->running ? 1 : 0);
}

void ServiceThread::end() {
  std::deque<Work> dropped;  // ends after the lock
  std::unique_lock lock(shared_->mutex);
  shared_->ended = true;
  dropped.swap(shared_->waiting);
  shared_->changed.notify_all();
  if (shared_->thread == std::this_thread::get_id()) return;
  shared_->changed.wait(lock, [this] { return !shared_->running; });
}

}  // namespace jxmodel
